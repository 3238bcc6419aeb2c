#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One switchboard for all stand-ins of the platform: each function that the node can call has a
// call point, which counts its calls and can be told to fail the n-th of them. The node's real
// calls go through it, in the tool as in the tests.
//
// Thread-safe. Arming is meant to be done while no call is under way.
namespace host {

class CallPoint {
public:
    // `name` is the function's name as its caller writes it; it must outlive the call point. One
    // object of static storage per function.
    explicit CallPoint(const char* name);
    CallPoint(const CallPoint&) = delete;
    CallPoint& operator=(const CallPoint&) = delete;

    // Counts one call. Returns the result to fail with where this call was told to fail.
    std::optional<std::int64_t> Enter();

    const char* name() const { return name_; }

private:
    friend struct Faults;

    const char* name_;
    std::atomic<std::uint64_t> calls_{0};
    std::atomic<std::uint64_t> failFrom_{0}; // 0: never
    std::atomic<std::uint64_t> failUpTo_{0};
    std::atomic<std::int64_t> result_{0};
};

struct Faults {
    // Makes calls `nth` to `nth + times - 1` of the named function, counted from now on, fail with
    // `result`. Functions that return a pointer fail with null whatever the number says. Throws
    // std::out_of_range for a name that no loaded stand-in has.
    static void Fail(std::string_view name, std::uint64_t nth, std::int64_t result,
                     std::uint64_t times = 1);

    // Calls of the named function since the last Reset.
    static std::uint64_t Calls(std::string_view name);

    // All counts to 0, nothing armed.
    static void Reset();

    // Names of all loaded call points.
    static std::vector<std::string> Names();
};

} // namespace host
