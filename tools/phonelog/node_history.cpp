#include "tools/phonelog/node_history.h"

#include <algorithm>
#include <iterator>

#include <fmt/core.h>

namespace phonelog {

namespace {

// Errors of one request come within this time, where only errors are logged.
constexpr std::int64_t kLongestRequest = 10'000'000;

// No camera comes near these; they keep the memory bounded whatever a file holds.
constexpr std::size_t kMostUnderWay = 256; // nodes or requests of all processes
constexpr std::size_t kMostTexts = 32;     // of one life

bool BelongsToCreation(Message message) {
    return message <= Message::NoInputConfiguration;
}

Moment MomentOf(const LogLine& line) {
    return {std::string(line.time), line.micros, line.process, line.thread};
}

void AddOnce(std::vector<std::string>& texts, std::string text) {
    if (texts.size() < kMostTexts && std::ranges::find(texts, text) == texts.end()) {
        texts.push_back(std::move(text));
    }
}

// Nothing where the message tells no failure, or one whose cause has been told.
void AddFailure(std::vector<std::string>& failures, const Recognised& found) {
    std::string failure = Failure(found);
    if (!failure.empty() && (failures.empty() || !IsConsequence(found))) {
        AddOnce(failures, std::move(failure));
    }
}

// Nothing where the phone's clock was set back, or its year ended in a log without years.
std::optional<std::int64_t> EndOf(const Moment& begin, std::optional<std::int64_t> end) {
    return begin.micros && end >= begin.micros ? end : std::nullopt;
}

// Messages of one rank come in any order: that of the cameras' slots.
Message Rank(Message message) {
    return message == Message::AuxInconsistent ? Message::MainInconsistent : message;
}

// Whether the main image is copied in place of a rendered picture. Where only errors are logged,
// other errors say so as well; else they do not, since a debug view is shown in spite of them.
bool CopiesMain(Message message, bool errorsAlone) {
    switch (message) {
    case Message::NoCalibrationCopy:
    case Message::EngineFailed:
    case Message::NoDisparity:
    case Message::Copied:
        return true;
    default:
        return errorsAlone && message != Message::DumpFailed; // a dump costs no picture
    }
}

} // namespace

const char* Word(Verdict verdict) {
    constexpr const char* kWords[] = {"rendered", "disparity alone", "debug view", "copied",
                                      "lost",     "failed",          "stopped",    "unended"};
    return kWords[static_cast<int>(verdict)];
}

NodeHistory::NodeHistory(TakeNode takeNode, TakeRequest takeRequest)
    : takeNode_(std::move(takeNode)), takeRequest_(std::move(takeRequest)) {}

void NodeHistory::Read(const LogLine& line) {
    ++messages_;
    const auto found = Recognise(line.text);
    if (!found) {
        return;
    }
    switch (found->message) {
    case Message::DestroyIn:
    case Message::Destroyed:
        ReadDestruction(line, *found);
        break;
    case Message::NullPointer:
    case Message::Other:
        if (line.priority == 'E') {
            ReadOther(line, *found);
        }
        break;
    default:
        if (BelongsToCreation(found->message)) {
            ReadCreation(line, *found);
        } else {
            ReadRequest(line, *found);
        }
        break;
    }
}

// An error of the step that is under way on its thread, or of a callback between two of them.
void NodeHistory::ReadOther(const LogLine& line, const Recognised& found) {
    const Thread thread(line.process, line.thread);
    const auto request = requests_.find(thread);
    const auto node = nodes_.find(thread);
    if (request != requests_.end() && !request->second.life.errorsAlone) {
        AddFailure(request->second.life.failures, found);
    } else if (node != nodes_.end() && node->second.debug) {
        AddFailure(node->second.life.failures, found);
    } else {
        Count(Failure(found), std::string(line.time));
    }
}

NodeHistory::OpenNode& NodeHistory::NodeOf(const LogLine& line, bool begins) {
    const Thread thread(line.process, line.thread);
    auto open = nodes_.find(thread);
    if (open != nodes_.end() && begins) {
        CloseNode(thread, false, std::nullopt);
        open = nodes_.end();
    }
    if (open == nodes_.end()) {
        // A request of this thread did not end if it creates a node now.
        if (requests_.contains(thread)) {
            Close(thread, std::nullopt, std::nullopt);
        }
        CloseOldest();
        open = nodes_.emplace(thread, OpenNode()).first;
        open->second.life.number = ++counts_.nodes;
        open->second.life.begin = MomentOf(line);
    }
    return open->second;
}

void NodeHistory::ReadCreation(const LogLine& line, const Recognised& found) {
    const Thread thread(line.process, line.thread);
    const auto open = nodes_.find(thread);
    const bool decided = open != nodes_.end() && !open->second.debug &&
                         (open->second.life.calibration || !open->second.life.failures.empty());
    // The creation's first message depends on the mask of the node before it. Where only errors are
    // logged, a new start of the engine is the next node's.
    const bool starts =
        found.message >= Message::CalibrationMissing && found.message <= Message::EngineInfoFailed;
    const bool begins = found.message == Message::CreateIn || (decided && starts);
    if (found.message == Message::CreateOut && open == nodes_.end()) {
        return; // the log begins behind the creation, or its record was refused
    }
    OpenNode& node = NodeOf(line, begins);
    node.debug = node.debug || line.priority == 'D';
    NodeLife& life = node.life;
    const auto& values = found.values;
    switch (found.message) {
    case Message::CreateOut:
        life.created = found.Number(0) == 0;
        CloseNode(thread, true, line.micros);
        return;
    case Message::CreateFailed:
        life.created = false;
        AddFailure(life.failures, found);
        if (!node.debug) { // its last message
            CloseNode(thread, true, std::nullopt);
        }
        return;
    case Message::TagMissing:
    case Message::NoCameraConfiguration:
    case Message::TooManyCameras:
    case Message::NoInputConfiguration:
        life.created = false;
        AddFailure(life.failures, found);
        break;
    case Message::EngineVersion:
        life.engineVersion = values[0];
        break;
    case Message::CalibrationMissing:
    case Message::CalibrationLength:
    case Message::CalibrationShort:
    case Message::CalibrationRefused:
        AddOnce(life.refused, Failure(found));
        break;
    case Message::CalibrationUsed:
        life.calibration = values[0];
        break;
    case Message::Cameras:
        life.cameras = found.Number(0);
        life.primaryCamera = found.Number(1);
        break;
    case Message::CalibrationNone:
        life.calibration = "";
        [[fallthrough]];
    default:
        AddFailure(life.failures, found);
        break;
    }
}

void NodeHistory::CloseNode(Thread thread, bool ended, std::optional<std::int64_t> end) {
    const auto open = nodes_.find(thread);
    NodeLife life = std::move(open->second.life);
    if (open->second.debug && !ended) {
        life.created = false;
        AddOnce(life.failures, "its creation never ended");
    }
    nodes_.erase(open);
    life.end = EndOf(life.begin, end);
    if (life.created) {
        std::vector<LivingNode>& living = living_[thread.first];
        // Ends are not logged where only errors are.
        constexpr std::size_t kMostNodes = 16;
        if (living.size() == kMostNodes) {
            living.erase(living.begin());
        }
        living.push_back({life.number, 0, thread.second});
        if (living_.size() > kMostUnderWay) { // processes that ended without a word
            const auto first = living_.begin();
            living_.erase(first->first == thread.first ? std::next(first) : first);
        }
    } else {
        ++counts_.nodesFailed;
    }
    if (life.calibration == "") {
        ++counts_.nodesWithoutCalibration;
    }
    for (const std::string& failure : life.failures) {
        Count(failure, life.begin.time);
    }
    takeNode_(life);
}

void NodeHistory::ReadDestruction(const LogLine& line, const Recognised& found) {
    const Thread thread(line.process, line.thread);
    if (nodes_.contains(thread)) { // a creation of which errors alone are logged
        CloseNode(thread, true, std::nullopt);
    }
    if (requests_.contains(thread)) { // its last line is lost
        Close(thread, std::nullopt, std::nullopt);
    }
    const auto living = living_.find(line.process);
    // The end of a node whose creation failed shows nothing that is not known.
    if (found.message == Message::Destroyed || living == living_.end() || living->second.empty()) {
        return;
    }
    // The log does not say which; with several, requests will be told apart by their numbers.
    std::vector<LivingNode>& nodes = living->second;
    const auto ofThread = std::ranges::find(nodes, line.thread, &LivingNode::thread);
    nodes.erase(ofThread == nodes.end() ? nodes.begin() : ofThread);
    if (nodes.empty()) {
        living_.erase(living);
    }
}

NodeHistory::OpenRequest& NodeHistory::RequestOf(const LogLine& line, Message message) {
    const Thread thread(line.process, line.thread);
    auto open = requests_.find(thread);
    if (open != requests_.end()) {
        const RequestLife& life = open->second.life;
        // Where only errors are logged: what comes earlier in a request than the last message, or
        // is said again, or comes much later, is the next one's.
        const bool next =
            life.errorsAlone && (Rank(message) < Rank(open->second.last) ||
                                 std::ranges::count(open->second.errors, line.text) > 0 ||
                                 (line.micros && life.begin.micros &&
                                  *line.micros - *life.begin.micros > kLongestRequest));
        if (message == Message::RequestIn || next) {
            Close(thread, std::nullopt, std::nullopt);
            open = requests_.end();
        }
    }
    if (open == requests_.end()) {
        CloseCreations(thread);
        CloseOldest();
        open = requests_.emplace(thread, OpenRequest()).first;
        RequestLife& life = open->second.life;
        life.begin = MomentOf(line);
        life.errorsAlone = line.priority == 'E';
    }
    open->second.last = message;
    return open->second;
}

// Before a request on this thread. A node was created before its first request, if the end of its
// creation is logged or not: it logged errors alone, or the line is lost.
void NodeHistory::CloseCreations(Thread thread) {
    for (auto node = nodes_.begin(); node != nodes_.end();) {
        const auto next = std::next(node);
        const bool ended = !node->second.debug || node->first.second == thread.second ||
                           !living_.contains(thread.first);
        if (node->first.first == thread.first && ended) {
            CloseNode(node->first, true, std::nullopt);
        }
        node = next;
    }
}

void NodeHistory::CloseOldest() {
    const auto older = [](const auto& a, const auto& b) {
        return a.second.life.begin.micros < b.second.life.begin.micros;
    };
    if (nodes_.size() == kMostUnderWay) {
        CloseNode(std::ranges::min_element(nodes_, older)->first, false, std::nullopt);
    }
    if (requests_.size() == kMostUnderWay) {
        Close(std::ranges::min_element(requests_, older)->first, std::nullopt, std::nullopt);
    }
}

void NodeHistory::ReadRequest(const LogLine& line, const Recognised& found) {
    const Thread thread(line.process, line.thread);
    // The end of a request that began before the log did.
    if (!requests_.contains(thread) && found.message == Message::RequestOut) {
        return;
    }
    OpenRequest& open = RequestOf(line, found.message);
    open.life.errorsAlone = open.life.errorsAlone && line.priority == 'E';
    if (open.life.errorsAlone && open.errors.size() < kMostTexts) {
        open.errors.emplace_back(line.text);
    }
    ReadValues(open.life, found);
    open.copied = open.copied || CopiesMain(found.message, open.life.errorsAlone);
    open.failed = open.failed || (found.message >= Message::RequestTooSmall &&
                                  found.message <= Message::RequestFailed);
    open.lost = open.lost || (found.message == Message::ImageUnusable &&
                              found.values[8].starts_with("no photo"));
    AddFailure(open.life.failures, found);
    ReadEvent(line, open, found);
    if (found.message == Message::RequestOut) {
        Close(thread, found.Number(0), line.micros);
    } else if (open.life.errorsAlone && (found.message == Message::RequestTooSmall ||
                                         found.message == Message::RequestFailed)) {
        Close(thread, std::nullopt, std::nullopt);
    }
}

void NodeHistory::ReadValues(RequestLife& life, const Recognised& found) {
    const auto number = [&found](std::size_t index) { return found.Number<int>(index); };
    switch (found.message) {
    case Message::Frame:
        life.frame = found.Number<std::uint64_t>(0);
        break;
    case Message::Faces:
        life.faces = number(1);
        break;
    case Message::FaceChosen:
        life.faceInFocus = number(0);
        break;
    case Message::Parameters:
        life.crops = {{number(0), number(1)}, {number(2), number(3)}};
        life.blur = number(4);
        life.rotation = number(5);
        life.focus = {number(6), number(7)};
        break;
    case Message::EngineParameters:
        life.blur = number(1);
        life.focus = {number(2), number(3)};
        break;
    case Message::Processed:
        life.processed = found.Number<std::uint64_t>(0);
        break;
    default:
        break;
    }
}

// How far the request came, and how long its steps took.
void NodeHistory::ReadEvent(const LogLine& line, OpenRequest& open, const Recognised& found) {
    const char* step = nullptr;
    switch (found.message) {
    case Message::EngineParametersIn:
        open.prepared = true;
        step = "preparation";
        break;
    case Message::EngineParameters:
        open.renders = found.Number(0) != 0;
        return;
    case Message::RenderIn:
        open.renderBegan = true;
        break;
    case Message::DisparityRead:
        step = "disparity";
        break;
    case Message::Rendered:
        step = "rendering";
        break;
    case Message::Copied:
        step = "copy";
        break;
    case Message::RenderOut:
    case Message::DumpsIn:
    case Message::RequestIn:
        break;
    case Message::DumpsOut:
        step = "dumps";
        break;
    default:
        return;
    }
    if (!line.micros) {
        return;
    }
    if (step != nullptr && open.stepStart != 0 && open.stepStart <= *line.micros &&
        open.life.steps.size() < kMostTexts) {
        open.life.steps.push_back({step, open.stepStart, *line.micros - open.stepStart});
    }
    open.stepStart = *line.micros;
}

void NodeHistory::Close(Thread thread, std::optional<std::int64_t> result,
                        std::optional<std::int64_t> end) {
    const auto at = requests_.find(thread);
    const OpenRequest open = std::move(at->second);
    requests_.erase(at);
    RequestLife life = open.life;
    life.number = ++counts_.requests;
    life.end = EndOf(life.begin, end);
    // A request that was counted has ended, though a busy phone lost the last line.
    const bool ended = result || life.processed || life.errorsAlone;
    life.verdict = open.failed || result.value_or(0) != 0 ? Verdict::Failed
                   : !ended                               ? Verdict::Unended
                   : open.lost                            ? Verdict::Lost
                   : open.copied                          ? Verdict::Copied
                   // With its errors alone it may have lost its dumps and nothing else.
                   : life.errorsAlone  ? Verdict::Rendered
                   : !open.prepared    ? Verdict::Stopped
                   : !open.renderBegan ? Verdict::Shown
                   : open.renders      ? Verdict::Rendered
                                       : Verdict::Disparity;
    Assign(life);
    counts_.lost += life.verdict == Verdict::Lost ? 1 : 0;
    counts_.copied += life.verdict == Verdict::Copied ? 1 : 0;
    counts_.failed += life.verdict == Verdict::Failed ? 1 : 0;
    counts_.unended += life.verdict == Verdict::Unended ? 1 : 0;
    for (const std::string& failure : life.failures) {
        Count(failure, life.begin.time);
    }
    takeRequest_(life);
}

// The node of a request: the only one of the process, or the one whose count the request continues,
// first of all the one that this thread used last.
void NodeHistory::Assign(RequestLife& life) {
    const auto living = living_.find(life.begin.process);
    if (living == living_.end()) {
        return;
    }
    LivingNode* chosen = nullptr;
    for (LivingNode& node : living->second) {
        const bool fits =
            living->second.size() == 1 || (life.processed && node.processed + 1 == *life.processed);
        if (fits && (chosen == nullptr ||
                     (node.thread == life.begin.thread && chosen->thread != life.begin.thread))) {
            chosen = &node;
        }
    }
    if (chosen != nullptr) {
        life.node = chosen->number;
        chosen->processed = life.processed.value_or(chosen->processed);
        chosen->thread = life.begin.thread;
    }
}

void NodeHistory::Count(const std::string& failure, const std::string& time) {
    constexpr std::size_t kMostKinds = 100; // of failures, so that no log fills the memory
    if (failures_.size() >= kMostKinds && !failures_.contains(failure)) {
        return;
    }
    Failures& alike = failures_[failure];
    if (alike.count++ == 0) {
        alike.first = time;
    }
    alike.last = time;
}

void NodeHistory::Finish() {
    while (!nodes_.empty()) {
        CloseNode(nodes_.begin()->first, false, std::nullopt);
    }
    while (!requests_.empty()) {
        Close(requests_.begin()->first, std::nullopt, std::nullopt);
    }
}

std::vector<std::string> NodeHistory::Findings() const {
    std::vector<std::string> findings;
    const auto add = [&findings](int count, int all, const char* thing, const char* what) {
        if (count > 0) {
            findings.push_back(
                fmt::format("{} of {} {}{} {}", count, all, thing, all == 1 ? "" : "s", what));
        }
    };
    if (messages_ == 0) {
        findings.emplace_back("no message of the node");
    }
    add(counts_.nodesFailed, counts_.nodes, "node", "could not be created");
    add(counts_.nodesWithoutCalibration, counts_.nodes, "node",
        "found no calibration: each photo is a copy of the main image");
    add(counts_.copied, counts_.requests, "request", "ended in a copy of the main image");
    add(counts_.lost, counts_.requests, "request", "wrote no photo");
    add(counts_.failed, counts_.requests, "request", "failed");
    add(counts_.unended, counts_.requests, "request",
        "never ended: a crash, a hang, or the end of the log");
    for (const auto& [failure, alike] : failures_) {
        const std::string since = alike.first.empty() ? ""
                                  : alike.count == 1
                                      ? fmt::format(", at {}", alike.first)
                                      : fmt::format(", from {} to {}", alike.first, alike.last);
        findings.push_back(fmt::format("{} time{}: {}{}", alike.count, alike.count == 1 ? "" : "s",
                                       failure, since));
    }
    return findings;
}

} // namespace phonelog
