#include "tools/commands/commands.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <fmt/core.h>

#include "host/picture/errors.h"

namespace {

struct Words {
    std::string commands;
    // Branches of the script's case statements:
    std::string values;  // completions of an option's value
    std::string options; // the options of each command
    std::string places;  // completions of an argument that belongs to no option
};

// What fills in the value of an option or a place, by the form that its help shows.
std::string ValueOf(std::string form) {
    if (form.starts_with("FILE")) {
        return "files";
    }
    if (form.starts_with("DIR")) {
        return "folders";
    }
    if (form.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789|") != std::string::npos) {
        form.clear(); // "X,Y" and the like describe values and are none
    }
    std::ranges::replace(form, '|', ' ');
    return "words \"" + form + "\"";
}

void AddCommand(const Command& command, Words& words) {
    const std::string name = command.name();
    words.commands += (words.commands.empty() ? "" : " ") + name;
    std::string all;
    std::string place = "words \"\"";
    for (const Command::OptionFacts& option : command.options()) {
        std::string pattern;
        for (const std::string& spelling : option.names) {
            all += (all.empty() ? "" : " ") + spelling;
            pattern += fmt::format("{}\"{} {}\"", pattern.empty() ? "" : " | ", name, spelling);
        }
        // What stands without an option has no name with a dash, and in its place stand all values
        // of an option but the first.
        if (pattern.empty() || option.mostValues > 1) {
            place = ValueOf(option.form);
        }
        if (!pattern.empty() && option.mostValues > 0) {
            words.values +=
                fmt::format("    {})\n        _bokehnode_{}\n        return\n        ;;\n", pattern,
                            ValueOf(option.form));
        }
    }
    words.places += fmt::format("    {}) _bokehnode_{} ;;\n", name, place);
    words.options += fmt::format("    {}) _bokehnode_words \"{}\" ;;\n", name, all);
}

// The script is made from the options as declared, so that it cannot fall behind them. Its case
// statements find what to offer by the command and the word before the cursor.
std::string BashScript(const Program& program) {
    Words words;
    for (const Command& command : program.commands()) {
        AddCommand(command, words);
    }
    return R"(# bash completion of bokehnode; bokehnode completion bash prints it. zsh reads it after bashcompinit.

[ -z "$ZSH_VERSION" ] || mapfile() { local IFS=$'\n'; COMPREPLY=($(cat)); }
_bokehnode_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current"); }
_bokehnode_files() { mapfile -t COMPREPLY < <(compgen -f -- "$current"); }
_bokehnode_folders() { mapfile -t COMPREPLY < <(compgen -d -- "$current"); }

_bokehnode() {
    local current="${COMP_WORDS[COMP_CWORD]}"
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        _bokehnode_words ")" +
           words.commands + R"( --help --version"
        return
    fi
    case "${COMP_WORDS[1]} ${COMP_WORDS[COMP_CWORD - 1]}" in
)" + words.values +
           R"(    esac
    if [[ "$current" != -* ]]; then
        case "${COMP_WORDS[1]}" in
)" + words.places +
           R"(        esac
        return
    fi
    case "${COMP_WORDS[1]}" in
)" + words.options +
           R"(    esac
}

complete -o filenames -F _bokehnode bokehnode
)";
}

} // namespace

std::function<int()> PrepareCompletion(Command command, const Program& program) {
    const char* shells = "bash";
    const auto check = [shells](const Argument& shell) { shell.OneOf(shells); };
    command.Value("SHELL", shells, check, "the shell").Required();
    command.Footer("Examples:\n"
                   "  source <(bokehnode completion bash)\n"
                   "  bokehnode completion bash > ~/.local/share/bash-completion/completions/"
                   "bokehnode");
    return [&program] {
        std::printf("%s", BashScript(program).c_str());
        return kExitDone;
    };
}
