#pragma once

#include <cstdint>
#include <functional>
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

private:
    friend class Call;
    CallState& state_;
};

// A call that an observer is told of.
struct CallRecord {
    std::string name;        // of the call point, or of a node's callback
    std::string detail;      // what it was about and what came of it, may be empty
    std::int64_t start = 0;  // microseconds since 1970, the log's clock
    std::int64_t length = 0; // microseconds
    int thread = 0;          // the kernel's number
};

// One call that is under way, from construction to destruction.
class Call {
public:
    // Counts the call.
    explicit Call(CallPoint& point);
    // A call that is no stand-in's and cannot be told to fail. `name` must outlive it.
    explicit Call(std::string_view name);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    // The result to fail with, if this call was told to fail.
    const std::optional<std::int64_t>& failure() const { return failure_; }

    // Adds to the record's detail what `describe` returns; it is called where somebody observes.
    template <typename Describe>
    void Tell(const Describe& describe) {
        if (observed_) {
            detail_ += detail_.empty() ? "" : ", ";
            detail_ += describe();
        }
    }

private:
    std::string_view name_;
    std::optional<std::int64_t> failure_;
    bool observed_;
    std::int64_t start_;
    std::string detail_;
};

// Hands the record of every call that ends to `observer`, on the thread that made it; null ends
// that. To be set while no call is under way. The observer is called on several threads at once.
void SetCallObserver(std::function<void(const CallRecord&)> observer);

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
