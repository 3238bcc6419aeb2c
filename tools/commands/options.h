#pragma once

#include <concepts>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/picture/geometry.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

// The command line. The library that reads it is known to options.cpp alone.

// A value from the command line. What cannot be taken is refused with a UseError that names the
// option and both texts.
struct Argument {
    std::string name; // of the option, "--focus", or of the place, "MAIN"
    std::string text;

    [[noreturn]] void Refuse(const std::string& expected) const;

    // Whole numbers within bounds, as many as `form` has places: "X,Y", "WxH", "K/N".
    std::vector<int> Integers(const std::string& form, int low = std::numeric_limits<int>::min(),
                              int high = std::numeric_limits<int>::max()) const;
    int Integer(int low, int high) const;
    Size Sides(const std::string& form, int low, int high) const;
    double Number() const; // finite
    std::string OneOf(const std::string& choices) const;
};

class Option {
public:
    Option(CLI::App& app, CLI::Option& option) : app_(&app), option_(&option) {}

    Option Required();
    // `other`: the name of an option declared before.
    Option Excludes(const std::string& other);
    Option Needs(const std::string& other);

private:
    CLI::App* app_;
    CLI::Option* option_;
};

// One command and its options. `names` is "-o,--output", or "MAIN" for what stands without an
// option; `form` is what the help shows for the value: "X,Y", "0..100", "png|nv12|y8"; FILE and DIR
// tell the shell's completion what to offer.
class Command {
public:
    using Take = std::function<void(const Argument&)>;

    explicit Command(CLI::App& app) : app_(&app) {}

    Option Flag(const std::string& names, bool& given, const std::string& help);
    Option Value(const std::string& names, const std::string& form, const Take& take,
                 const std::string& help);
    // May be repeated; `take` is called for each.
    Option Repeated(const std::string& names, const std::string& form, const Take& take,
                    const std::string& help);
    Option Path(const std::string& names, const std::string& form, std::filesystem::path& path,
                const std::string& help);
    // One or more after one name.
    Option Paths(const std::string& names, const std::string& form,
                 std::vector<std::filesystem::path>& paths, const std::string& help);

    // A whole number within bounds into an integer or an optional one.
    template <typename Number>
    Option Integer(const std::string& names, const std::string& form, int low, int high,
                   Number& number, const std::string& help) {
        const auto take = [low, high, &number](const Argument& argument) {
            Assign(number, argument.Integer(low, high));
        };
        return Value(names, form, take, help);
    }

    // 0, 90, 180 or 270 degrees, in the same way.
    template <typename Number>
    Option Rotation(const std::string& names, Number& degrees, const std::string& help) {
        const auto take = [&degrees](const Argument& argument) {
            Assign(degrees, std::stoi(argument.OneOf(kQuarterTurns)));
        };
        return Value(names, kQuarterTurns, take, help);
    }

    // Below the options: examples, exit codes.
    void Footer(const std::string& text);

    struct OptionFacts {
        std::vector<std::string> names; // with their dashes; none of what stands without an option
        std::string form;
        int mostValues = 0; // of a flag none
    };
    std::string name() const;
    std::vector<OptionFacts> options() const;

private:
    static constexpr char kQuarterTurns[] = "0|90|180|270";

    template <std::integral Number>
    static void Assign(Number& number, int value) {
        number = static_cast<Number>(value);
    }
    template <std::integral Number>
    static void Assign(std::optional<Number>& number, int value) {
        number = static_cast<Number>(value);
    }

    CLI::App* app_;
};

class Program {
public:
    Program(const std::string& name, const std::string& version, const std::string& summary);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Returned commands live as long as the program.
    Command Add(const std::string& name, const std::string& summary);

    std::vector<Command> commands() const;

    // The same as the command's --help. Refuses what is no command's name.
    void PrintHelp(const Argument& command) const;

    // Reads the words and fills in the options. Returns the name of the command to run, empty where
    // help or version was asked for and printed. Throws UseError.
    std::string Parse(int argc, const char* const* argv);

    std::string CommandNames() const; // "render|inspect|..."

private:
    std::unique_ptr<CLI::App> app_;
};
