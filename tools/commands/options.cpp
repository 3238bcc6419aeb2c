#include "tools/commands/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <fmt/core.h>

#include "host/picture/errors.h"

namespace {

// How often an option may stand on the command line, and how many values follow its name.
enum class Values { kOne, kOneEachTime, kSeveral };

// "a", "a or b", "a, b or c" of "a|b|c".
std::string InWords(const std::string& choices) {
    std::string words;
    const auto last = choices.rfind('|');
    for (std::size_t i = 0; i < choices.size(); ++i) {
        words += choices[i] != '|' ? std::string(1, choices[i]) : i == last ? " or " : ", ";
    }
    return words;
}

CLI::Option& AddOption(CLI::App& app, const std::string& names, const std::string& form,
                       Values values, const Command::Take& take, const std::string& help) {
    // The long spelling stands last.
    const std::string name = names.substr(names.rfind(',') + 1);
    CLI::Option* option = app.add_option(
        names,
        [name, values, take](const std::vector<std::string>& texts) {
            if (values == Values::kOne && texts.size() > 1) {
                Refuse(name, "one value", std::to_string(texts.size()));
            }
            for (const std::string& text : texts) {
                take({name, text});
            }
            return true;
        },
        help);
    // All values are handed over and counted above, so that a refusal has this program's words.
    option->type_name(form)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    option->type_size(1)->expected(
        values == Values::kSeveral ? CLI::detail::expected_max_vector_size : 1);
    return *option;
}

// The first option that breaks a rule of its declaration.
void CheckRules(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        const std::string name = option->get_name();
        if (option->get_required() && option->empty()) {
            Refuse(name, InWords(option->get_type_name()), "none");
        }
        for (const CLI::Option* other : option->get_excludes()) {
            if (!option->empty() && !other->empty()) {
                Refuse(name, "no " + other->get_name() + " beside it", "both");
            }
        }
        for (const CLI::Option* other : option->get_needs()) {
            if (!option->empty() && other->empty()) {
                Refuse(name, other->get_name() + " beside it", "none");
            }
        }
    }
}

// Turns the library's complaint into one of this program's form. A mistyped option comes first:
// what else is missing may be missing because of it.
[[noreturn]] void RefuseWords(const CLI::App& command, const CLI::ParseError& error) {
    for (const std::string& word : command.remaining()) {
        const bool option = word.starts_with('-');
        Refuse(option ? word : command.get_name(),
               option ? "an option that --help lists" : "no further argument",
               option ? "none of this name" : '"' + word + '"');
    }
    // An option at the end of the line, without its value: "--blur: 1 required 0..100 missing".
    const std::string_view what = error.what();
    const std::string name(what.substr(0, what.find(':')));
    if (const CLI::Option* option = command.get_option_no_throw(name)) {
        Refuse(name, InWords(option->get_type_name()), "none");
    }
    CheckRules(command);
    throw UseError(error.what());
}

} // namespace

void Argument::Refuse(const std::string& expected) const {
    ::Refuse(name, expected, fmt::format("\"{}\"", text));
}

std::vector<int> Argument::Integers(const std::string& form, int low, int high) const {
    // from_chars takes no blank, no plus sign and no locale's digits.
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    const auto read = [&] {
        int number = 0;
        const auto [next, error] = std::from_chars(at, end, number);
        at = next;
        numbers.push_back(number);
        return error == std::errc();
    };
    bool good = read();
    for (const char separator : form) {
        if (separator == ',' || separator == 'x' || separator == '/') {
            good = good && at != end && *at++ == separator && read();
        }
    }
    if (!good || at != end) {
        Refuse(form + " in whole numbers");
    }
    if (std::ranges::any_of(numbers, [&](int n) { return n < low || n > high; })) {
        Refuse(fmt::format("numbers from {} to {}", low, high));
    }
    return numbers;
}

int Argument::Integer(int low, int high) const {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || next != end || number < low || number > high) {
        Refuse(fmt::format("{} to {}", low, high));
    }
    return number;
}

Size Argument::Sides(const std::string& form, int low, int high) const {
    const auto sides = Integers(form);
    if (std::ranges::any_of(sides, [&](int side) { return side < low || side > high; })) {
        Refuse(fmt::format("sides of {} to {}", low, high));
    }
    return {sides[0], sides[1]};
}

double Argument::Number() const {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || next != end || !std::isfinite(number)) {
        Refuse("a number");
    }
    return number;
}

std::string Argument::OneOf(const std::string& choices) const {
    // A text with a bar could match two neighbouring choices together.
    if (text.find('|') != std::string::npos ||
        ("|" + choices + "|").find("|" + text + "|") == std::string::npos) {
        Refuse(InWords(choices));
    }
    return text;
}

Option Option::Required() {
    option_->required();
    return *this;
}

Option Option::Excludes(const std::string& other) {
    option_->excludes(app_->get_option(other));
    return *this;
}

Option Option::Needs(const std::string& other) {
    option_->needs(app_->get_option(other));
    return *this;
}

Option Command::Flag(const std::string& names, bool& given, const std::string& help) {
    return Option(*app_, *app_->add_flag(names, given, help));
}

Option Command::Value(const std::string& names, const std::string& form, const Take& take,
                      const std::string& help) {
    return Option(*app_, AddOption(*app_, names, form, Values::kOne, take, help));
}

Option Command::Repeated(const std::string& names, const std::string& form, const Take& take,
                         const std::string& help) {
    return Option(*app_, AddOption(*app_, names, form, Values::kOneEachTime, take, help));
}

Option Command::Path(const std::string& names, const std::string& form, std::filesystem::path& path,
                     const std::string& help) {
    return Value(
        names, form,
        [form, &path](const Argument& argument) {
            if (argument.text.empty()) {
                argument.Refuse(form);
            }
            path = argument.text;
        },
        help);
}

Option Command::Paths(const std::string& names, const std::string& form,
                      std::vector<std::filesystem::path>& paths, const std::string& help) {
    return Option(*app_,
                  AddOption(
                      *app_, names, form, Values::kSeveral,
                      [&paths](const Argument& argument) { paths.emplace_back(argument.text); },
                      help));
}

void Command::Footer(const std::string& text) {
    app_->footer(text);
}

std::string Command::name() const {
    return app_->get_name();
}

std::vector<Command::OptionFacts> Command::options() const {
    std::vector<OptionFacts> facts;
    for (const CLI::Option* option : std::as_const(*app_).get_options()) {
        OptionFacts fact{{}, option->get_type_name(), option->get_items_expected_max()};
        for (const std::string& name : option->get_snames()) {
            fact.names.push_back("-" + name);
        }
        for (const std::string& name : option->get_lnames()) {
            fact.names.push_back("--" + name);
        }
        facts.push_back(fact);
    }
    return facts;
}

Program::Program(const std::string& name, const std::string& version, const std::string& summary)
    : app_(std::make_unique<CLI::App>(summary, name)) {
    app_->require_subcommand(0, 1); // a missing one is refused below, with the names
    app_->set_version_flag("--version", name + " " + version, "Print the version and exit");
}

Program::~Program() = default;

Command Program::Add(const std::string& name, const std::string& summary) {
    return Command(*app_->add_subcommand(name, summary));
}

std::vector<Command> Program::commands() const {
    std::vector<Command> commands;
    // With a filter, even an empty one, the library gives all commands, else only those on the
    // line.
    for (CLI::App* app : app_->get_subcommands(std::function<bool(CLI::App*)>())) {
        commands.emplace_back(*app);
    }
    return commands;
}

void Program::PrintHelp(const Argument& command) const {
    const std::string name = command.OneOf(CommandNames());
    std::printf("%s", app_->get_subcommand(name)->help(app_->get_name()).c_str());
}

std::string Program::CommandNames() const {
    std::string names;
    for (const Command& command : commands()) {
        names += (names.empty() ? "" : "|") + command.name();
    }
    return names;
}

std::string Program::Parse(int argc, const char* const* argv) {
    try {
        app_->parse(argc, argv);
        // The library throws for --help and --version as well, and prints them here.
    } catch (const CLI::Success& help) {
        app_->exit(help);
        return {};
    } catch (const CLI::ParseError& error) {
        const auto chosen = app_->get_subcommands();
        if (!chosen.empty()) {
            RefuseWords(*chosen.front(), error);
        }
        const auto words = app_->remaining();
        Argument{"COMMAND", words.empty() ? "" : words.front()}.OneOf(CommandNames());
    }
    const auto chosen = app_->get_subcommands();
    if (chosen.empty()) {
        Refuse("COMMAND", InWords(CommandNames()), "none");
    }
    return chosen.front()->get_name();
}
