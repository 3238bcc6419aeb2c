// A node that never returns from its entry: it crashes, exits or hangs, as a property says.

#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "platform/chi_node.h"
#include "platform/properties.h"

extern "C" void ChiNodeEntry(ChiNodeCallbacks*) {
    char end[kPropertyValueMax] = {};
    property_get("test.end", end, "");
    if (std::strcmp(end, "crash") == 0) {
        std::abort();
    }
    if (std::strcmp(end, "exit") == 0) {
        std::exit(0);
    }
    for (;;) {
        ::pause();
    }
}
