#include "host/control/faults.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <ctime>
#include <stdexcept>

#include <unistd.h>

#include <fmt/format.h>

namespace host {

// Its numbers are atomic, since the node calls on several threads while the tool or a test reads
// the counts from its own.
struct CallState {
    CallDescription description;
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> failFrom{0}; // 0: never
    std::atomic<std::uint64_t> failUpTo{0}; // the first call that succeeds again
    std::atomic<std::int64_t> result{0};
};

namespace {

// The results of a failing call where no other is given, by the library that the function belongs
// to.
constexpr std::int64_t kSystemError = -1;
constexpr std::int64_t kPlatformError = 1; // CDKResultEFailed
constexpr std::int64_t kEngineError = -4;  // the stand-in engine's code for an unexpected failure

// Initialised before any code runs: call points of other libraries look their state up while they
// are loaded.
constinit CallState calls[] = {
    {{"property_get", "a property reads as empty, whatever its value", 0}},
    {{"__android_log_print", "the message is lost", kSystemError}},
    {{"ChiNodeUtils::QueryVendorTag", "the platform does not get the node's tags", kPlatformError}},
    {{"ChiNodeUtils::SetNodeInterface", "the node gets no callbacks", kPlatformError}},
    {{"getVendorTagBase", "the platform does not tell a vendor tag's id", kPlatformError}},
    {{"CamX::SettingsManager::GetInstance", "the platform has no settings (null)", {}}},
    {{"CamX::SettingsManager::GetStaticSettings", "the settings have no record (null)", {}}},
    {{"ChiNodeUtils::GetDataList", "metadata that the node reads is missing (null)", {}}},
    {{"ChiNodeUtils::DefaultBufferNegotiation", "buffers are not negotiated", kPlatformError}},
    {{"queryRequestState", "the platform does not tell if a request goes on", kPlatformError}},
    {{"setMetadata", "the platform refuses what the node publishes", kPlatformError}},
    {{"fopen", "a device file does not open (null)", {}}},
    {{"fseek", "the position in a device file stays as it is", kSystemError}},
    {{"ftell", "the position in a device file is not told", kSystemError}},
    {{"fread", "only RESULT items of a device file are read", 0}},
    {{"fclose", "a device file is closed, but reported as failed", kSystemError}},
    {{"open", "a device file does not open (-1)", {}}},
    {{"write", "only RESULT bytes are written to a device file, none if below 0", kSystemError}},
    {{"close", "a device file is closed, but reported as failed", kSystemError}},
    {{"TSL_DCIR_GetVersion", "the engine names no version (null)", {}}},
    {{"TSL_DCIR_Init", "the engine starts no instance", kEngineError}},
    {{"TSL_DCIR_SetCameraImageInfo", "the engine refuses the images' crops", kEngineError}},
    {{"TSL_DCIR_SetCaliData", "the engine refuses the calibration", kEngineError}},
    {{"TSL_DCIR_GetImageSizeInCalibration", "the calibration's sizes are not told", kEngineError}},
    {{"TSL_DCIR_Reset", "the engine keeps the last picture", kEngineError}},
    {{"TSL_DCIR_CalcDisparityData", "the engine makes no disparity map", kEngineError}},
    {{"TSL_DCIR_GetDisparityDataSize", "the disparity map's size is not told", kEngineError}},
    {{"TSL_DCIR_GetDisparityData", "the disparity map is not handed out", kEngineError}},
    {{"TSL_DCIR_Process", "the engine renders nothing", kEngineError}},
    {{"TSL_DCIR_Uninit", "the engine ends the instance, but reports a failure", kEngineError}},
};

// Every call reads it without a lock, which is why it may be set only while none is under way.
std::function<void(const CallRecord&)> observer;

// The log uses the same clock, so that calls and messages can stand in one timeline.
std::int64_t Microseconds() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

CallState& Find(std::string_view name) {
    const auto found =
        std::ranges::find(calls, name, [](const CallState& call) { return call.description.name; });
    if (found == std::end(calls)) {
        throw std::out_of_range(fmt::format("no stand-in has a function named {}", name));
    }
    return *found;
}

// The call whose name the text starts with, up to the text's end or a colon; null if there is none.
// Names have colons themselves.
CallState* FindAtStart(std::string_view text) {
    const auto found = std::ranges::find_if(calls, [text](const CallState& call) {
        const std::string_view name = call.description.name;
        return text.starts_with(name) && (text.size() == name.size() || text[name.size()] == ':');
    });
    return found != std::end(calls) ? &*found : nullptr;
}

// Takes ":NUMBER" from the start of the text; nothing if the text does not start so.
template <typename Number>
std::optional<Number> TakeNumber(std::string_view& text) {
    Number number = 0;
    if (!text.starts_with(':')) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

// A failure whose call the count has passed has happened, even if the call ignored it.
bool IsPending(const CallState& call) {
    return call.failFrom > call.calls;
}

// A call that came between these stores would see half of the range: faults.h asks for arming while
// none is under way.
void ArmCall(CallState& call, std::uint64_t nth, std::int64_t result, std::uint64_t times) {
    call.result = result;
    call.failUpTo = call.calls + nth + times;
    call.failFrom = call.calls + nth;
}

} // namespace

CallPoint::CallPoint(std::string_view name) : state_(Find(name)) {}

Call::Call(CallPoint& point) : Call(point.state_.description.name) {
    CallState& state = point.state_;
    // The increment is one atomic step, so that of calls on several threads exactly one is the
    // n-th.
    const std::uint64_t call = ++state.calls;
    if (call >= state.failFrom && call < state.failUpTo) {
        failure_ = state.result.load();
    }
}

Call::Call(std::string_view name)
    : name_(name), observed_(observer != nullptr), start_(observed_ ? Microseconds() : 0) {}

Call::~Call() {
    if (observed_) {
        observer({std::string(name_), std::move(detail_), start_, Microseconds() - start_,
                  static_cast<int>(::gettid())});
    }
}

void SetCallObserver(std::function<void(const CallRecord&)> take) {
    observer = std::move(take);
}

std::vector<CallDescription> Faults::List() {
    std::vector<CallDescription> list;
    for (const CallState& call : calls) {
        list.push_back(call.description);
    }
    return list;
}

void Faults::Arm(std::string_view text) {
    CallState* const call = FindAtStart(text);
    if (call == nullptr) {
        throw std::invalid_argument(
            fmt::format("expected CALL[:N[:RESULT]] with one of the calls {}, found \"{}\"",
                        fmt::join(Names(), ", "), text));
    }
    const auto& [name, effect, defaultResult] = call->description;
    std::string_view rest = text.substr(name.size());
    const auto nth = TakeNumber<std::uint64_t>(rest);
    const auto result = nth ? TakeNumber<std::int64_t>(rest) : std::nullopt;
    constexpr std::uint64_t kMostCalls = 1'000'000'000; // leaves room to add to
    if (!rest.empty() || nth == 0 || nth > kMostCalls || (result && !defaultResult)) {
        throw std::invalid_argument(fmt::format("expected {}{} with an N of 1 to {}, found \"{}\"",
                                                name, defaultResult ? "[:N[:RESULT]]" : "[:N]",
                                                kMostCalls, text));
    }
    if (IsPending(*call)) {
        throw std::invalid_argument(
            fmt::format("expected one failure of {} at a time, found another, {}", name, text));
    }
    ArmCall(*call, nth.value_or(1), result.value_or(defaultResult.value_or(0)), 1);
}

std::vector<std::string> Faults::Pending() {
    std::vector<std::string> pending;
    for (const CallState& call : calls) {
        if (IsPending(call)) {
            const std::uint64_t made = call.calls;
            pending.push_back(fmt::format("{}:{} ({} {} so far)", call.description.name,
                                          call.failFrom.load(), made,
                                          made == 1 ? "call" : "calls"));
        }
    }
    return pending;
}

void Faults::Fail(std::string_view name, std::uint64_t nth, std::int64_t result,
                  std::uint64_t times) {
    ArmCall(Find(name), nth, result, times);
}

std::uint64_t Faults::Calls(std::string_view name) {
    return Find(name).calls;
}

void Faults::Reset() {
    for (CallState& call : calls) {
        // Failures go before the counts: a count of 0 would make one that has happened pending
        // again.
        call.failFrom = 0;
        call.failUpTo = 0;
        call.calls = 0;
    }
}

std::vector<std::string> Faults::Names() {
    std::vector<std::string> names;
    for (const CallState& call : calls) {
        names.emplace_back(call.description.name);
    }
    return names;
}

} // namespace host
