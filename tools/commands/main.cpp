// bokehnode: runs the capture bokeh node on a workstation.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "host/picture/errors.h"
#include "tools/commands/commands.h"
#include "tools/files/interruption.h"

namespace {

struct Subcommand {
    const char* name;
    const char* summary;
    // Adds the options; what it returns runs the command once they are read.
    std::function<std::function<int()>(CLI::App&)> prepare;
};

const Subcommand kSubcommands[] = {
    {"render", "blur the background of a stereo pair of pictures", PrepareRender},
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
    std::string names;
    for (const Subcommand& subcommand : kSubcommands) {
        names += (names.empty() ? "" : ", ") + std::string(subcommand.name);
    }
    app.require_subcommand(0, 1); // a missing one is told below, with the names
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
    } catch (const CLI::ExtrasError& error) {
        if (app.get_subcommands().empty()) {
            throw UseError("expected a command (" + names + "), found \"" +
                           app.remaining().front() + "\"");
        }
        app.exit(error);
        return kExitWrongUse;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitWrongUse;
    }
    if (!chosen) {
        throw UseError("expected a command (" + names + "), found none");
    }
    return chosen();
}

// Output that went nowhere, as on a full disk, is no success.
int WithOutputWritten(int code) {
    const bool written = std::ferror(stdout) == 0;
    if (std::fflush(stdout) == 0 && written) {
        return code;
    }
    std::fprintf(stderr, "bokehnode: standard output: cannot be written: %s\n",
                 std::strerror(errno));
    return std::max<int>(code, kExitFailed);
}

} // namespace

int main(int argc, char** argv) {
    WatchForInterruption();
    try {
        int code = kExitDone;
        const std::string mistake = MistakeIn([&] { code = Run(argc, argv); });
        if (!mistake.empty()) {
            std::fprintf(stderr, "bokehnode: %s\n", mistake.c_str());
            code = kExitWrongUse;
        }
        return WithOutputWritten(code);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bokehnode: %s\n", error.what());
        return kExitFailed;
    }
}
