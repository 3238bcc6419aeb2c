// Makes good dump sets, inspects them, corrupts them in seeded ways and inspects those: how many
// corruptions are named rightly, how many good sets are suspected.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "host/picture/image_file.h"
#include "tests/tool/corruption.h"
#include "tests/tool/synthetic_capture.h"
#include "tools/inspect/inspection.h"

namespace fs = std::filesystem;

namespace {

struct Options {
    int sets = 200;
    int corruptions = 1000;
    unsigned seed = 1;
    fs::path folder;
    fs::path left;
    fs::path right;
};

std::string Describe(const std::vector<Finding>& findings) {
    std::string words;
    for (const Finding& finding : findings) {
        words += "\n    " + std::string(NameOf(finding.problem)) + ": " + finding.text;
    }
    return words.empty() ? "\n    nothing found" : words;
}

int InspectGoodSets(const std::vector<SyntheticCapture>& captures) {
    int alarms = 0;
    for (const SyntheticCapture& capture : captures) {
        const Inspection inspection = Inspect(FindDumpSet(capture.folder / capture.stem));
        if (!inspection.findings.empty()) {
            ++alarms;
            std::printf("false alarm: %s (%s)%s\n", capture.stem.c_str(),
                        capture.scene ? "scene" : "photo", Describe(inspection.findings).c_str());
        }
    }
    std::printf("good sets suspected: %d of %zu (%.2f %%)\n", alarms, captures.size(),
                100.0 * alarms / static_cast<double>(captures.size()));
    return alarms;
}

bool Named(const Corrupted& corrupted, const std::vector<Finding>& findings) {
    return !findings.empty() && findings.front().problem == corrupted.problem &&
           findings.front().file == corrupted.file;
}

int InspectCorruptedSets(const Options& options, const std::vector<SyntheticCapture>& captures) {
    int right = 0;
    std::map<Problem, std::pair<int, int>> counts; // right, all
    for (int i = 0; i < options.corruptions; ++i) {
        const auto seed = options.seed * 100003u + static_cast<unsigned>(i);
        const std::size_t which = static_cast<std::size_t>(i / kCorruptionKinds) % captures.size();
        const SyntheticCapture& capture = captures[which];
        const fs::path folder = options.folder / "corrupted";
        const Corrupted corrupted = Corrupt(i % kCorruptionKinds, capture,
                                            captures[(which + 1) % captures.size()], seed, folder);
        const Inspection inspection = Inspect(FindDumpSet(folder));
        auto& [good, all] = counts[corrupted.problem];
        ++all;
        if (Named(corrupted, inspection.findings)) {
            ++right;
            ++good;
        } else {
            std::printf("not named: %s (%s), %s, of %s, number %d%s\n", capture.stem.c_str(),
                        capture.scene ? "scene" : "photo", corrupted.what.c_str(),
                        corrupted.file ? RoleName(*corrupted.file) : "the pair", i,
                        Describe(inspection.findings).c_str());
        }
    }
    for (const auto& [problem, count] : counts) {
        std::printf("%-18s %d of %d\n", NameOf(problem), count.first, count.second);
    }
    std::printf("corruptions named: %d of %d (%.2f %%)\n", right, options.corruptions,
                100.0 * right / options.corruptions);
    return options.corruptions - right;
}

int Run(const Options& options) {
    RgbImage left;
    RgbImage right;
    if (!options.left.empty()) {
        left = ReadImageFile(options.left);
        right = ReadImageFile(options.right);
    }
    CaptureMaker maker(NODE_LIBRARY, ENGINE_LIBRARY, std::move(left), std::move(right));
    const std::vector<SyntheticCapture> captures =
        maker.MakeAll(options.seed * 10007u, options.sets, options.folder / "good");
    const int alarms = InspectGoodSets(captures);
    const int missed = InspectCorruptedSets(options, captures);
    return 100 * alarms <= options.sets && 100 * missed <= options.corruptions ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Judges inspect on good and on corrupted dump sets.");
    app.option_defaults()->take_last();
    app.add_option("--sets", options.sets, "good sets")->check(CLI::Range(2, 100000));
    app.add_option("--corruptions", options.corruptions)->check(CLI::Range(1, 1000000));
    app.add_option("--seed", options.seed);
    app.add_option("--folder", options.folder, "for the sets; it is emptied")->required();
    auto* left = app.add_option("--left", options.left, "a photo for part of the sets");
    auto* right = app.add_option("--right", options.right, "its other half");
    left->needs(right);
    right->needs(left);
    CLI11_PARSE(app, argc, argv);
    fs::remove_all(options.folder);
    fs::create_directories(options.folder / "good");
    try {
        return Run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "inspect_corruptions: %s\n", error.what());
        return 2;
    }
}
