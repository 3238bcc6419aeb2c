#include "tools/commands/commands.h"

#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "host/picture/errors.h"
#include "tools/commands/shared_options.h"
#include "tools/files/console.h"
#include "tools/files/interruption.h"
#include "tools/run/device_folder.h"
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

// Lets the node dump the pair into the folder, as `bokehnode render` does.
void Render(const fs::path& main, const fs::path& aux, const fs::path& folder, int timeout) {
    const std::string seconds = std::to_string(timeout);
    const char* const words[] = {"bokehnode",     "render", main.c_str(),
                                 aux.c_str(),     "--dump", "--timeout",
                                 seconds.c_str(), "-o",     folder.c_str()};
    Program program("bokehnode", TOOL_VERSION, "");
    const std::function<int()> render = PrepareRender(program.Add("render", ""));
    program.Parse(static_cast<int>(std::size(words)), words);
    const pid_t child = ForkChild();
    if (child == 0) {
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); // the address's alone
        int code = kExitFailed;
        const std::string mistake = MistakeIn([&] { code = render(); });
        if (!mistake.empty()) {
            PrintNotice(mistake);
        }
        LeaveChild(mistake.empty() ? code : kExitFailed);
    }
    int status = 0;
    AwaitChild(child, status);
    if (!fs::exists(folder / "output.png")) {
        throw std::runtime_error("the pictures could not be rendered");
    }
}

} // namespace

std::function<int()> PrepareView(Command command) {
    const auto options = std::make_shared<ViewOptions>();
    const auto aux = std::make_shared<fs::path>();
    command
        .Path("SET", "FILE", options->place,
              "a file of a dump set, or a folder with any number of sets;\nnew ones show up by "
              "themselves. Or the main camera's picture,\nas `render` takes it")
        .Required();
    command.Path("AUX", "FILE", *aux, "the aux camera's picture of the same moment");
    command.Path("-o,--output", "DIR", options->output,
                 "let the page save what it shows, dumps and PNG, in folders\nbelow this one; not "
                 "the sets' own folder");
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
    AddOutputFile(
        command, "--trace", ".json", options->trace,
        "write each callback, operation and call of all requests, one\nafter another, as a "
        "timeline for Perfetto, ending in .json;\nwhole after each");
    command.Integer("--timeout", "SECONDS", 1, 1'000'000, options->timeout,
                    "give the node and the engine up after this time (default:\n60)");
    command.Footer(
        "Prints the address of a page for a browser on this machine. A click on the picture is\n"
        "the focus point: the request runs through the node and the engine again, and the\n"
        "picture follows. Blur, faces, rotation, crops and more can be changed, undone, pinned\n"
        "and compared, and the page shows the `bokehnode replay` that makes the same bytes.\n"
        "Nothing is written without -o or --trace. Ends by Ctrl-C, or five minutes after the last\n"
        "page was closed.\n"
        "\n"
        "Examples:\n"
        "  bokehnode view camera\n"
        "  bokehnode view camera/IMG_20240131_235959 --calibration dualcam_cali.bin\n"
        "  bokehnode view left.jpg right.jpg -o tried\n"
        "\n" +
        ExitCodes("0 the last page was closed"));
    return [options, aux] {
        std::optional<TemporaryFolder> rendered;
        if (!aux->empty()) {
            Render(options->place, *aux, rendered.emplace().path(), options->timeout);
            options->place = rendered->path();
        }
        ServeLiveView(*options, ParseWords);
        return kExitDone;
    };
}
