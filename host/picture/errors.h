#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

// What a run of the tool ends with.
enum ExitCode : int {
    kExitDone = 0,
    kExitFailed = 1,   // differs, or the node or the engine failed
    kExitWrongUse = 2, // wrong use, unreadable input, output that cannot be written
};

// The caller's mistake, worded for the caller: what is wrong, what was expected, what was found.
class UseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws the UseError "NAME: expected EXPECTED, found FOUND", where NAME is the option or the file.
// All refusals have this form, unless the system says why something cannot be done.
[[noreturn]] void Refuse(const std::string& name, const std::string& expected,
                         const std::string& found);

// Throws the UseError "PATH: cannot ACTION: REASON", with the system's reason.
[[noreturn]] void Cannot(const std::string& action, const std::filesystem::path& path,
                         const std::string& reason);

// Runs the action. Returns the caller's mistake that stopped it, a path that the system refuses
// included, or an empty text; other errors pass through.
template <typename Action>
std::string MistakeIn(const Action& action) {
    try {
        action();
        return {};
    } catch (const UseError& error) {
        return error.what();
    } catch (const std::filesystem::filesystem_error& error) {
        return error.path1().string() + ": " + error.code().message();
    }
}
