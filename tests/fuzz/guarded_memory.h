#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace fuzz {

// Memory before a page that nobody may touch. What is placed in it ends where that page starts, so
// that an access one byte too far ends the process. Never freed: mapped once, used by every run.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t capacity) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        capacity_ = (capacity + page - 1) / page * page;
        void* mapped = mmap(nullptr, capacity_ + page, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        end_ = static_cast<std::uint8_t*>(mapped) + capacity_;
        if (mapped == MAP_FAILED || mprotect(end_, page, PROT_NONE) != 0) {
            std::abort();
        }
        forbidden_.push_back(end_);
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    std::uint8_t* Last(std::size_t bytes) const { return end_ - bytes; }
    // The first byte of the closed page: an address that must be neither read nor written.
    std::uint8_t* Forbidden() const { return end_; }
    static bool IsForbidden(const void* address) {
        return std::find(forbidden_.begin(), forbidden_.end(), address) != forbidden_.end();
    }

    // Fills it with noise of its own and lets nobody write to it any more.
    void FreezeNoise(std::uint32_t seed) {
        for (std::uint8_t* byte = Last(capacity_); byte != end_; ++byte) {
            seed = seed * 1664525 + 1013904223;
            *byte = static_cast<std::uint8_t>(seed >> 24);
        }
        mprotect(Last(capacity_), capacity_, PROT_READ);
    }

    // Hands out the first bytes of a record, as many as its maker says it has: whatever the maker
    // calls it, two words and a pointer may always be read, and no more than the record is there.
    template <typename Record>
    Record* Place(const Record& record, std::uint32_t declared) const {
        const std::size_t size = declared < 16 ? 16 : (declared + std::size_t{7}) / 8 * 8;
        const std::size_t bytes = size < sizeof(Record) ? size : sizeof(Record);
        std::memcpy(Last(bytes), &record, bytes);
        return reinterpret_cast<Record*>(Last(bytes));
    }

private:
    std::size_t capacity_;
    std::uint8_t* end_;
    inline static std::vector<const void*> forbidden_;
};

} // namespace fuzz
