#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/picture/file_bytes.h"
#include "tools/compare/difference.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"
#include "tools/files/output_folder.h"
#include "tools/run/node_run.h"
#include "tools/run/run_options.h"

// What a replay changes against the dumped request, and what it runs in.
struct ReplayOptions : RunOptions, RequestOptions {
    bool noFaces = false;
    bool skipBokeh = false;       // the request asks for no rendering
    std::optional<int> mainWidth; // pixels in a row of the dumps; default: as the set tells
    std::optional<int> auxWidth;
};

inline constexpr char kSkipBokeh[] = "--skip-bokeh"; // the option, and the change that it makes

// A build with which a replay is compared, and what it made of the set.
struct Reference {
    Libraries libraries;
    std::uint32_t depthEffectInfo = 0;
    std::string failure; // empty if it did not fail
};

// What became of a dumped request that ran again: all that a report shows.
struct Replayed : Outcome {
    DumpParameters dumped;
    DumpParameters asked;                // the dumped ones with what the options change
    std::vector<std::string> changes;    // all that the options change or set
    std::optional<DumpParameters> taken; // what the node made of the request
    Size mainSensor;
    Size auxSensor;
    host::Image main;
    host::Image aux;
    host::Image output;
    host::Image dumpedOutput; // without a size where the set has none that can be compared
    host::Image disparity;    // rows as long as the main image's pitch, unless that was changed
    host::Image dumpedDisparity;
    Libraries libraries;
    std::optional<Reference> reference; // the build whose results stand in for the dumped ones
    bool accepted = false;              // what differs from it
    // Against the dumped ones; nothing where there is no pair to compare.
    std::optional<PictureDifference> outputDifference;
    std::optional<PictureDifference> disparityDifference;
    bool disparityDue = false; // the set or the replay has one, so that both must
    std::vector<std::pair<std::string, Bytes>> files; // the node's new dumps, named as the old ones

    // Why output or disparity have no difference; part of the notes as well.
    std::vector<std::string> notCompared;

    // The request is the dumped one, so that the same results are due.
    bool asDumped() const;
    // Output, disparity and the reference's depthEffectInfo are the same. Only if it published.
    bool same() const;
    // The same, by a replay that did not fail.
    bool equal() const { return !failed() && same(); }
    // "equal", "differs", "failed", or "rendered" where the set has no output to compare with.
    std::string status() const;
};

// Reads the set, rebuilds its request and runs it through the node, which dumps. Once per process.
// Returns in a child process, so that the time limit covers what the caller does then as well, and
// throws a ChildFailure in the calling one: see ContinueInChild. Throws UseError where the set
// cannot be replayed. `reference`: the build that made the set's output and disparity.
Replayed Replay(const DumpSet& set, const ReplayOptions& options,
                const std::optional<Reference>& reference = {});

// Replays a set again and again in this process. Node and engine stay loaded, the node as long as
// only focus, faces, blur and skipping change, and the set's files are read once. The images are
// the same as those of Replay. The node dumps only if the options say so: without, `taken`,
// `missing` and `files` stay empty, and the differences have no SSIM.
class LoadedReplay {
public:
    explicit LoadedReplay(const DumpSet& set);
    ~LoadedReplay();
    LoadedReplay(const LoadedReplay&) = delete;
    LoadedReplay& operator=(const LoadedReplay&) = delete;

    // Gets the new output as soon as it is there. Returns whether it is to be compared as well.
    using TakeOutput = std::function<bool(const Replayed&)>;

    // Valid until the next call. Throws as Replay, and host::PipelineError for libraries other
    // than those of the first call in this process.
    const Replayed& Run(const ReplayOptions& options, const TakeOutput& take);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Throws UseError where the options name a focus point that no replay of this set can have.
void CheckFocus(const DumpSet& set, const ReplayOptions& options);

// Throws UseError where the output folder is the set's own: new dumps have the names of the old
// ones and would replace them.
void RefuseSetsFolder(const std::filesystem::path& output, const DumpSet& set);
// The same for a folder with captures anywhere below it.
void RefuseCapturesFolder(const std::filesystem::path& output,
                          const std::filesystem::path& captures);

// Writes the new dumps, the output as PNG and, where it differs from the dumped one, by how much.
// The files appear when the caller commits.
void WriteFiles(OutputFolder& folder, const std::string& stem, const Replayed& replayed);

// What became of a replay, for a reader and as JSON.
std::string InWords(const DumpSet& set, const Replayed& replayed);
Json ToJson(const DumpSet& set, const Replayed& replayed);

// What shows a page of all sets, made while they run.
class ReplayPages {
public:
    virtual ~ReplayPages() = default;
    // Writes the page of one set, in that set's process. `name`: of the file. Returns its tile,
    // which the set's result keeps.
    virtual Json Write(const DumpSet& set, const std::string& name, const std::string& title,
                       const Replayed& replayed) = 0;
    // Whether the page of this tile is there, and not one that another run has put in its place.
    virtual bool Has(const Json& tile) const = 0;
    // `tile`: null where there is none. `wrong`: how a set that differs counts, and one without a
    // tile.
    virtual void Add(const std::string& title, const std::string& status, const std::string& reason,
                     Json tile, bool wrong) = 0;
    // Writes the page of all. Returns what was written.
    virtual std::vector<std::string> Commit() = 0;
};

// Libraries to compare with; empty: the same as those that are tried.
struct ReferenceBuild {
    std::filesystem::path node;
    std::filesystem::path engine;

    bool given() const { return !node.empty() || !engine.empty(); }
};

struct ReplayAllOptions {
    int jobs = 1;             // sets at once
    ReferenceBuild reference; // if given, its results stand in for the dumped ones
    double failAbove = 0;     // share of differing samples that is accepted against it
    // The sets are split by their content, so that it does not matter where they lie.
    int shard = 1;
    int shards = 1;
    bool merge = false;           // only shows results
    ReplayPages* pages = nullptr; // may be null
};

// Replays every set below `place`, each in a process of its own. Prints a line each, in the sets'
// order, and a summary, or all as JSON. The result of each is a JSON file in `output`, and its
// process's log a text file. A set that came out equal or differing is not run again while its
// content, the node's, the engine's and the calibration's and the options are the same. Against a
// reference build a table shows the largest difference first. Returns the command's exit code;
// throws UseError before any set starts where the options suit none. To be called before the
// process has loaded a node.
int ReplayAll(const std::filesystem::path& place, const std::filesystem::path& output,
              const ReplayAllOptions& all, bool json, const ReplayOptions& options);
