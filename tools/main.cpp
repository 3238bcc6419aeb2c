// bokehnode: runs the capture bokeh node on a workstation.

#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/commands/calibrate.h"
#include "tools/commands/completion.h"
#include "tools/commands/convert.h"
#include "tools/commands/diff.h"
#include "tools/commands/inspect.h"
#include "tools/commands/render.h"
#include "tools/commands/replay.h"
#include "tools/errors.h"
#include "tools/interruption.h"

namespace {

struct Subcommand {
    const char* name;
    const char* summary;
    // Adds the options; what it returns runs the command once they are read.
    std::function<std::function<int()>(CLI::App&)> prepare;
};

const Subcommand kSubcommands[] = {
    {"render", "blur the background of a stereo pair of pictures",
     [](CLI::App& command) -> std::function<int()> {
         const auto options = std::make_shared<RenderOptions>();
         AddRenderOptions(command, *options);
         return [options] { return Render(*options); };
     }},
    {"inspect", "show dump sets and say what looks wrong", PrepareInspect},
    {"replay", "run dumped requests again, as they were or changed", PrepareReplay},
    {"convert", "turn dumps into PNG pictures and back", PrepareConvert},
    {"diff", "compare two pictures or dumps", PrepareDiff},
    {"calibrate", "make or show the engine's calibration file", PrepareCalibrate},
    {"completion", "print a shell's completion of this program", PrepareCompletion},
};

int Run(int argc, char** argv) {
    CLI::App app("Runs the capture bokeh node on pictures, as a device's camera pipeline does.",
                 "bokehnode");
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("bokehnode: ") + error.what() + "\n" +
               "Run with --help for what can be asked.\n";
    });
    std::function<int()> chosen;
    for (const Subcommand& subcommand : kSubcommands) {
        CLI::App* command = app.add_subcommand(subcommand.name, subcommand.summary);
        const auto run = subcommand.prepare(*command);
        command->callback([&chosen, run] { chosen = run; });
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitWrongUse;
    }
    return chosen();
}

} // namespace

int main(int argc, char** argv) {
    WatchForInterruption();
    try {
        return Run(argc, argv);
    } catch (const UseError& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
        return kExitWrongUse;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
        return kExitFailed;
    }
}
