// A node that never returns from its entry: it crashes, is killed, exits, hangs or finds no memory,
// as a property says.

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>

#include <unistd.h>

#include "platform/chi_node.h"
#include "platform/properties.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks*) {
    char end[kPropertyValueMax] = {};
    property_get("test.end", end, "");
    if (std::strcmp(end, "crash") == 0) {
        std::abort();
    }
    if (std::strcmp(end, "kill") == 0) {
        std::raise(SIGKILL); // as the system where it runs out of memory
    }
    if (std::strcmp(end, "memory") == 0) {
        throw std::bad_alloc();
    }
    if (std::strcmp(end, "exit") == 0) {
        std::exit(0);
    }
    if (std::strcmp(end, "_exit") == 0) {
        ::_exit(0);
    }
    for (;;) {
        ::pause();
    }
}
