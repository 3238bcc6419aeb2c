#include "host/control/faults.h"

#include <mutex>
#include <stdexcept>

namespace host {
namespace {

struct Registry {
    std::mutex mutex;
    std::vector<CallPoint*> points;
};

// Constructed on first use: call points of other libraries register before this one's statics run.
Registry& registry() {
    static Registry instance;
    return instance;
}

CallPoint& Find(std::string_view name) {
    for (CallPoint* point : registry().points) {
        if (point->name() == name) {
            return *point;
        }
    }
    throw std::out_of_range("no stand-in has a function named " + std::string(name));
}

} // namespace

CallPoint::CallPoint(const char* name) : name_(name) {
    const std::lock_guard lock(registry().mutex);
    registry().points.push_back(this);
}

std::optional<std::int64_t> CallPoint::Enter() {
    const std::uint64_t call = ++calls_;
    if (call >= failFrom_ && call < failUpTo_) {
        return result_.load();
    }
    return std::nullopt;
}

void Faults::Fail(std::string_view name, std::uint64_t nth, std::int64_t result,
                  std::uint64_t times) {
    const std::lock_guard lock(registry().mutex);
    CallPoint& point = Find(name);
    point.result_ = result;
    point.failUpTo_ = point.calls_ + nth + times;
    point.failFrom_ = point.calls_ + nth;
}

std::uint64_t Faults::Calls(std::string_view name) {
    const std::lock_guard lock(registry().mutex);
    return Find(name).calls_;
}

void Faults::Reset() {
    const std::lock_guard lock(registry().mutex);
    for (CallPoint* point : registry().points) {
        point->failFrom_ = 0;
        point->failUpTo_ = 0;
        point->calls_ = 0;
    }
}

std::vector<std::string> Faults::Names() {
    const std::lock_guard lock(registry().mutex);
    std::vector<std::string> names;
    for (const CallPoint* point : registry().points) {
        names.emplace_back(point->name());
    }
    return names;
}

} // namespace host
