#include "tools/commands/commands.h"

#include <memory>
#include <string>
#include <vector>

#include "host/picture/errors.h"
#include "tools/commands/shared_options.h"
#include "tools/view/live_view.h"

namespace fs = std::filesystem;

namespace {

ReplayOptions ParseWords(const std::vector<std::string>& words) {
    ReplayOptions options;
    Program program("bokehnode", TOOL_VERSION, "");
    Command replay = program.Add("replay", "");
    AddReplayChanges(replay, options);
    std::vector<const char*> pointers{"bokehnode", "replay"};
    for (const std::string& word : words) {
        pointers.push_back(word.c_str());
    }
    program.Parse(static_cast<int>(pointers.size()), pointers.data());
    return options;
}

} // namespace

std::function<int()> PrepareView(Command command) {
    const auto options = std::make_shared<ViewOptions>();
    command
        .Path("SET", "FILE", options->place,
              "a file of a dump set, or a folder with any number of sets;\nnew ones show up by "
              "themselves")
        .Required();
    const auto files = [&command](const char* name, std::vector<fs::path>& into,
                                  const std::string& help) {
        command.Repeated(
            name, "FILE", [&into](const Argument& argument) { into.emplace_back(argument.text); },
            help);
    };
    files("--calibration", options->calibrations,
          "a calibration file to choose from; may be repeated, as\nthe next two");
    files("--node", options->nodes, "a node's library");
    files("--engine", options->engines, "an engine's library");
    command.Repeated(
        "--set", "NAME=VALUE",
        [options](const Argument& argument) { options->properties.push_back(argument.text); },
        "set a system property for every run; may be repeated");
    command.Integer("--timeout", "SECONDS", 1, 1'000'000, options->timeout,
                    "give the node and the engine up after this time (default:\n60)");
    command.Footer(
        "Prints the address of a page for a browser on this machine. A click on the picture is\n"
        "the focus point: the request runs through the node and the engine again, and the\n"
        "picture follows. Blur, faces, rotation, crops and more can be changed, undone, pinned\n"
        "and compared, and the page shows the `bokehnode replay` that makes the same bytes.\n"
        "Nothing is written. Ends by Ctrl-C, or five minutes after the last page was closed.\n"
        "\n"
        "Examples:\n"
        "  bokehnode view camera\n"
        "  bokehnode view camera/IMG_20240131_235959 --calibration dualcam_cali.bin\n"
        "\n" +
        ExitCodes("0 the last page was closed"));
    return [options] {
        ServeLiveView(*options, ParseWords);
        return kExitDone;
    };
}
