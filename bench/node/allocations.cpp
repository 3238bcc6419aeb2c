#include "bench/node/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> g_allocations{0};

void Count() {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

std::uint64_t bench::Allocations() {
    return g_allocations.load(std::memory_order_relaxed);
}

// The linker sends this program's calls here and the plain names to the C library.
extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) {
    Count();
    return __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    Count();
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* block, std::size_t size) {
    Count();
    return __real_realloc(block, size);
}

} // extern "C"

// Replaces the standard library's for the whole process; its other forms call these.
void* operator new(std::size_t size) {
    if (void* block = std::malloc(size > 0 ? size : 1); block != nullptr) {
        return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
