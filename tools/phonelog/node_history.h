#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/picture/geometry.h"
#include "tools/phonelog/log_line.h"
#include "tools/phonelog/node_messages.h"

// What the nodes of a log did, read message by message. The memory that is used depends on how many
// nodes and requests are under way at once, not on the log's length.
namespace phonelog {

// When and where something happened.
struct Moment {
    std::string time; // as in the log, empty where it has none
    std::optional<std::int64_t> micros;
    int process = 0;
    int thread = 0;
};

// A part of a request or of a creation. Microseconds of the log's clock.
struct Step {
    std::string name;
    std::int64_t start = 0;
    std::int64_t length = 0;
};

struct NodeLife {
    int number = 0; // counted over the log, from 1
    Moment begin;
    std::optional<std::int64_t> end;        // of the creation; not before its begin
    std::optional<std::string> calibration; // the file in use, empty without one; nothing where
                                            // the log does not tell
    std::vector<std::string> refused;       // files that were not used, and why
    std::string engineVersion;
    std::optional<std::int64_t> cameras;
    std::optional<std::int64_t> primaryCamera;
    std::vector<std::string> failures; // why there is no node, or no engine
    bool created = true;
};

enum class Verdict {
    Rendered,  // the engine's picture
    Disparity, // a copy with the disparity alone, as the request asked
    Shown,     // a debug view
    Copied,    // the main image, since something failed
    Lost,      // no photo was written
    Failed,    // the node answered with an error
    Stopped,   // the pipeline had stopped the request
    Unended,   // the log does not hold the end
};
const char* Word(Verdict verdict); // "rendered"

struct RequestLife {
    int number = 0; // counted over the log, from 1
    int node = 0;   // the node's number; 0: it cannot be told
    Moment begin;
    std::optional<std::int64_t> end; // not before its begin
    bool errorsAlone = false;        // the log's level shows only what failed
    std::optional<std::uint64_t> frame;
    std::optional<std::uint64_t> processed; // the node's count, this request included
    std::optional<Point> focus;
    std::optional<int> blur;
    std::optional<int> rotation;
    std::optional<std::pair<Size, Size>> crops; // main, aux
    std::optional<int> faces;
    std::optional<int> faceInFocus;
    std::vector<std::string> failures; // in words, without repetitions
    Verdict verdict = Verdict::Unended;
    std::vector<Step> steps; // where the log has times
};

class NodeHistory {
public:
    using TakeNode = std::function<void(const NodeLife&)>;
    using TakeRequest = std::function<void(const RequestLife&)>;

    // Each life is handed over once, when it ended.
    NodeHistory(TakeNode takeNode, TakeRequest takeRequest);

    void Read(const LogLine& line);
    // The log ended: hands over what is still open.
    void Finish();

    // What is wrong over all, a sentence each. After Finish.
    std::vector<std::string> Findings() const;

    std::uint64_t messages() const { return messages_; }

private:
    // A process and a thread; 0 where the log does not tell threads.
    using Thread = std::pair<int, int>;

    struct OpenRequest {
        RequestLife life;
        Message last = Message::RequestIn;
        bool prepared = false; // the parameters were handed over, so the request was not stopped
        bool renderBegan = false;
        bool renders = true; // the request asks for a picture
        bool copied = false;
        bool lost = false;
        bool failed = false;
        std::int64_t stepStart = 0;
        std::vector<std::string> errors; // as they stand, where only errors are logged
    };
    struct OpenNode {
        NodeLife life;
        bool debug = false; // its messages are not errors alone, so its end will be told
    };
    struct LivingNode {
        int number = 0;
        std::uint64_t processed = 0;
        int thread = 0; // of its last request
    };
    struct Counts {
        int nodes = 0;
        int requests = 0;
        int copied = 0;
        int lost = 0;
        int failed = 0;
        int unended = 0;
        int nodesWithoutCalibration = 0;
        int nodesFailed = 0;
    };
    // Failures that are alike, for the findings.
    struct Failures {
        int count = 0;
        std::string first;
        std::string last;
    };

    OpenNode& NodeOf(const LogLine& line, bool begins);
    OpenRequest& RequestOf(const LogLine& line, Message message);
    void ReadCreation(const LogLine& line, const Recognised& found);
    void ReadDestruction(const LogLine& line, const Recognised& found);
    void ReadRequest(const LogLine& line, const Recognised& found);
    void ReadOther(const LogLine& line, const Recognised& found);
    void ReadValues(RequestLife& life, const Recognised& found);
    void ReadEvent(const LogLine& line, OpenRequest& open, const Recognised& found);
    // By value: a caller's may be the key of the entry that goes.
    void Close(Thread thread, std::optional<std::int64_t> result, std::optional<std::int64_t> end);
    void CloseNode(Thread thread, bool ended, std::optional<std::int64_t> end);
    void CloseCreations(Thread thread);
    void CloseOldest();
    void Assign(RequestLife& life);
    void Count(const std::string& failure, const std::string& time);

    TakeNode takeNode_;
    TakeRequest takeRequest_;
    std::map<Thread, OpenNode> nodes_;
    std::map<Thread, OpenRequest> requests_;
    std::map<int, std::vector<LivingNode>> living_; // by process
    std::map<std::string, Failures> failures_;
    Counts counts_;
    std::uint64_t messages_ = 0;
};

} // namespace phonelog
