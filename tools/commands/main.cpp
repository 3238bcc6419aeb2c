// bokehnode: runs the capture bokeh node on a workstation.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <limits>
#include <map>
#include <string>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include "host/picture/errors.h"
#include "tools/commands/commands.h"
#include "tools/files/console.h"
#include "tools/files/interruption.h"
#include "tools/files/json_text.h"

namespace {

std::function<int()> PrepareHelp(Command command, const Program& program) {
    const auto show = [&program](const Argument& name) { program.PrintHelp(name); };
    command.Value("COMMAND", program.CommandNames(), show, "").Required();
    return [] { return kExitDone; };
}

int Run(int argc, char** argv) {
    Program program("bokehnode", TOOL_VERSION,
                    "Runs the capture bokeh node on pictures, as a device's camera pipeline does.");
    std::map<std::string, std::function<int()>> run;
    const auto add = [&](const char* name, const char* summary, auto prepare, auto&... more) {
        run[name] = prepare(program.Add(name, summary), more...);
    };
    add("render", "blur the background of a stereo pair of pictures", PrepareRender);
    add("inspect", "show dump sets and say what looks wrong", PrepareInspect);
    add("replay", "run dumped requests again, as they were or changed", PrepareReplay);
    add("convert", "turn dumps into PNG pictures and back", PrepareConvert);
    add("diff", "compare two pictures or dumps", PrepareDiff);
    add("calibrate", "make or show the engine's calibration file", PrepareCalibrate);
    add("log", "tell from a phone's log what its nodes did", PrepareLog);
    add("view", "show dump sets in a browser, live: click to focus", PrepareView);
    add("completion", "print a shell's completion of this program", PrepareCompletion, program);
    add("help", "show the options of a command", PrepareHelp, program);
    const std::string chosen = program.Parse(argc, argv);
    return chosen.empty() ? kExitDone : run[chosen]();
}

// Pictures are made and dropped all the time. Without this each would get new pages, and the system
// takes longer to provide and clear these than most steps take to fill them.
void KeepMemory() {
    // All threads share one heap, which takes large blocks too and is never given back. It grows
    // once, by a block that is freed at once and whose huge pages later pictures share.
    constexpr std::size_t kRoom = std::size_t{1} << 29; // address space alone until used
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_MMAP_MAX, 0);
    ::mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    if (void* const room = std::malloc(kRoom)) {
        const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        const auto start = reinterpret_cast<std::uintptr_t>(room);
        const std::size_t before = (page - start % page) % page;
        ::madvise(static_cast<char*>(room) + before, kRoom - page, MADV_HUGEPAGE);
        std::free(room);
    }
}

// Prints the error on standard error and, with --json, on standard output too. The words are
// searched for --json, since the options may be what could not be read.
int ReportError(const std::string& error, int code, int argc, char** argv) {
    PrintNotice(error);
    if (std::find(argv, argv + argc, std::string("--json")) != argv + argc) {
        std::printf("%s", JsonText({{"error", error}}).c_str());
    }
    return code;
}

// A run is no success if its output could not be written, for instance to a full disk.
int WithOutputWritten(int code) {
    const bool written = std::ferror(stdout) == 0;
    if (std::fflush(stdout) == 0 && written) {
        return code;
    }
    PrintNotice(std::string("standard output: cannot be written: ") + std::strerror(errno));
    return kExitWrongUse;
}

} // namespace

int main(int argc, char** argv) {
    WatchForInterruption();
    KeepMemory();
    int code = kExitDone;
    try {
        const std::string mistake = MistakeIn([&] { code = Run(argc, argv); });
        if (!mistake.empty()) {
            code = ReportError(mistake, kExitWrongUse, argc, argv);
        }
    } catch (const std::exception& error) {
        // A library that crashes or hangs and a node that refuses to be created are no mistake of
        // the caller.
        code = ReportError(error.what(), kExitFailed, argc, argv);
    }
    return WithOutputWritten(code);
}
