#include "tools/commands/commands.h"

#include <cstdio>
#include <memory>
#include <string>

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include "host/picture/errors.h"

namespace {

struct Words {
    std::string commands;
    std::string values;  // branches of a case: what follows an option that takes a value
    std::string options; // the same: the options of a command
    std::string places;  // the same: what stands without an option
};

std::vector<std::string> NamesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

// What fills in the value of an option, by the type that its help shows.
std::string ValueOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    if (const auto open = type.find('{'); open != std::string::npos) {
        std::string choices = type.substr(open + 1, type.find('}') - open - 1);
        for (char& character : choices) {
            character = character == ',' ? ' ' : character;
        }
        return "words \"" + choices + "\"";
    }
    if (type.starts_with("FILE")) {
        return "files";
    }
    return type.starts_with("DIR") ? "folders" : "words \"\"";
}

void AddCommand(const CLI::App& command, Words& words) {
    const std::string& name = command.get_name();
    words.commands += (words.commands.empty() ? "" : " ") + name;
    std::string all;
    std::string place = "files";
    for (const CLI::Option* option : command.get_options()) {
        std::string pattern;
        for (const std::string& spelling : NamesOf(*option)) {
            all.append(all.empty() ? "" : " ").append(spelling);
            pattern.append(pattern.empty() ? "\"" : " | \"").append(name);
            pattern.append(" ").append(spelling).append("\"");
        }
        if (pattern.empty()) {
            place =
                option->get_type_name().find('{') == std::string::npos ? place : ValueOf(*option);
        } else if (option->get_items_expected_max() != 0) {
            words.values += "    " + pattern + ")\n        _bokehnode_" + ValueOf(*option) +
                            "\n        return\n        ;;\n";
        }
    }
    words.places += "    " + name + ") _bokehnode_" + place + " ;;\n";
    words.options += "    " + name + ") _bokehnode_words \"" + all + "\" ;;\n";
}

std::string BashScript(const CLI::App& program) {
    Words words;
    for (const CLI::App* command : program.get_subcommands(nullptr)) {
        AddCommand(*command, words);
    }
    return R"(# bash completion of bokehnode; bokehnode completion bash prints it.

_bokehnode_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current"); }
_bokehnode_files() { mapfile -t COMPREPLY < <(compgen -f -- "$current"); }
_bokehnode_folders() { mapfile -t COMPREPLY < <(compgen -d -- "$current"); }

_bokehnode() {
    local current="${COMP_WORDS[COMP_CWORD]}"
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        _bokehnode_words ")" +
           words.commands + R"( --help"
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

std::function<int()> PrepareCompletion(CLI::App& command) {
    const auto shell = std::make_shared<std::string>();
    command.add_option("SHELL", *shell, "bash")->required()->check(CLI::IsMember({"bash"}));
    command.footer("Examples:\n"
                   "  source <(bokehnode completion bash)\n"
                   "  bokehnode completion bash > ~/.local/share/bash-completion/completions/"
                   "bokehnode");
    return [&command, shell] { // the option writes into it while the words are read
        std::printf("%s", BashScript(*command.get_parent()).c_str());
        return kExitDone;
    };
}
