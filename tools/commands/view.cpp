#include "tools/commands/commands.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/picture/errors.h"
#include "tools/commands/shared_options.h"
#include "tools/files/console.h"
#include "tools/files/interruption.h"
#include "tools/run/device_folder.h"
#include "tools/view/live_view.h"

namespace fs = std::filesystem;

namespace {

// The words as main gets them, valid as long as these.
std::vector<char*> Pointers(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

ReplayOptions ParseWords(const std::vector<std::string>& words) {
    ReplayOptions options;
    Program program("bokehnode", TOOL_VERSION, "");
    Command replay = program.Add("replay", "");
    AddReplayChanges(replay, options);
    std::vector<std::string> all{"bokehnode", "replay"};
    all.insert(all.end(), words.begin(), words.end());
    program.Parse(static_cast<int>(all.size()), Pointers(all).data());
    return options;
}

// Lets the node dump the pair into the view's place, with the first of each list of files. Returns
// the exit code of `bokehnode render`, or kExitDone if there is something to show.
int Render(const fs::path& main, const fs::path& aux, const ViewOptions& view) {
    std::vector<std::string> words{"bokehnode", "render",    main,
                                   aux,         "--dump",    "-o",
                                   view.place,  "--timeout", std::to_string(view.timeout)};
    for (const auto& [name, files] : {std::pair("--calibration", &view.calibrations),
                                      {"--node", &view.nodes},
                                      {"--engine", &view.engines}}) {
        if (!files->empty()) {
            words.insert(words.end(), {name, files->front()});
        }
    }
    for (const std::string& property : view.properties) {
        words.insert(words.end(), {"--set", property});
    }
    const pid_t child = ForkChild();
    if (child == 0) {
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); // the address's alone
        ::execv("/proc/self/exe", Pointers(words).data());
        ::_exit(kExitFailed);
    }
    int status = 0;
    AwaitChild(child, status);
    if (WIFSIGNALED(status)) {
        throw std::runtime_error(SignalInWords(WTERMSIG(status)));
    }
    return fs::exists(view.place / "output.png") ? kExitDone : WEXITSTATUS(status);
}

void AddFiles(Command& command, const char* name, std::vector<fs::path>& files,
              const std::string& help) {
    command.Repeated(
        name, "FILE",
        [&files](const Argument& argument) {
            if (!fs::is_regular_file(argument.text)) {
                argument.Refuse("a file");
            }
            files.emplace_back(argument.text);
        },
        help);
}

int View(ViewOptions& options, const fs::path& aux) {
    std::optional<TemporaryFolder> rendered;
    if (!aux.empty()) {
        const fs::path main =
            std::exchange(options.place, options.output.empty()
                                             ? rendered.emplace().path()
                                             : FreeFolder(options.output, options.place.stem()));
        if (const int code = Render(main, aux, options); code != kExitDone) {
            return code;
        }
        options.rendered = true;
    }
    ServeLiveView(options, ParseWords);
    return kExitDone;
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
    command.Path(
        "-o,--output", "DIR", options->output,
        "let the page save what it shows, dumps and PNG, in folders\nbelow this one, which is "
        "outside of the sets' folder. Of two\npictures, keep the set there");
    AddFiles(command, "--calibration", options->calibrations,
             "a calibration file to choose from; may be repeated, as\nthe next two");
    AddFiles(command, "--node", options->nodes, "a node's library");
    AddFiles(command, "--engine", options->engines, "an engine's library");
    command.Repeated(
        "--set", "NAME=VALUE",
        [options](const Argument& argument) {
            ParseWords({"--set", argument.text}); // refuses a wrong one before anything runs
            options->properties.push_back(argument.text);
        },
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
    return [options, aux] { return View(*options, *aux); };
}
