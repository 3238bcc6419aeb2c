#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One switchboard for all stand-ins of the platform: every function that the node calls has a call
// point, which counts its calls and can be told to fail the n-th of them. The node's real calls go
// through it, in the tool as in the tests.
//
// Counts and failures are the process's: of several nodes all calls are counted together, and which
// of them makes the n-th call depends on how their threads run. Every function here may be called
// on any thread, but a failure is to be armed while no call is under way.
namespace host {

// What is known of a call point before anything runs.
struct CallDescription {
    std::string_view name;   // the function's name as its caller writes it
    std::string_view effect; // what its failure is to the node, as a sentence without a full stop
    // The result of a failing call unless another is given; none: such a call always gives the same
    // (a null pointer, or -1 of `open`).
    std::optional<std::int64_t> result;
};

struct CallState;

class CallPoint {
public:
    // `name` is one of Faults::List(), otherwise std::out_of_range is thrown.
    explicit CallPoint(std::string_view name);
    CallPoint(const CallPoint&) = delete;
    CallPoint& operator=(const CallPoint&) = delete;

    // Counts one call. Returns the result to fail with if this call was told to fail.
    std::optional<std::int64_t> Enter();

private:
    CallState& state_;
};

struct Faults {
    // All call points, those of the engine included, whether or not its library is loaded. Only the
    // stand-in engine has them; calls of another engine are neither counted nor failed.
    static std::vector<CallDescription> List();

    // Arms one failure from a text "CALL[:N[:RESULT]]": the N-th call from now on (1 if not given)
    // fails with RESULT (the description's if not given). Throws std::invalid_argument with what
    // was expected and what was found: for an unknown CALL, which is answered with the names of
    // all, for an N below 1, for a RESULT of a call that can have none, and for a call that is
    // armed already and has not failed yet.
    static void Arm(std::string_view text);

    // The armed failures that have not happened, in words: "TSL_DCIR_Process:2 (1 call so far)".
    static std::vector<std::string> Pending();

    // Makes calls `nth` to `nth + times - 1` of the named function, counted from now on, fail with
    // `result`, in place of what was armed for it before. Throws std::out_of_range for an unknown
    // name.
    static void Fail(std::string_view name, std::uint64_t nth, std::int64_t result,
                     std::uint64_t times = 1);

    // Calls of the named function since the last Reset. Throws std::out_of_range for an unknown
    // name.
    static std::uint64_t Calls(std::string_view name);

    // All counts to 0, nothing armed.
    static void Reset();

    // The names of List().
    static std::vector<std::string> Names();
};

} // namespace host
