#include "tools/dumps/parameter_text.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "engine/refocus_engine.h"

namespace {

struct Field {
    const char* name;
    std::int32_t DumpParameters::*value;
};

// The order of the text. Reading, writing and comparing go by this table, and so agree.
constexpr Field kFields[] = {
    {"i32BlurIntensity", &DumpParameters::blur},
    {"ptFocus_x", &DumpParameters::focusX},
    {"ptFocus_y", &DumpParameters::focusY},
    {"i32MainWidth_CropNoScale", &DumpParameters::mainCropWidth},
    {"i32MainHeight_CropNoScale", &DumpParameters::mainCropHeight},
    {"i32AuxWidth_CropNoScale", &DumpParameters::auxCropWidth},
    {"i32AuxHeight_CropNoScale", &DumpParameters::auxCropHeight},
    {"i32ImageDegree", &DumpParameters::degree},
};

struct FaceField {
    const char* name;
    std::int32_t DumpedFace::*value;
};

constexpr FaceField kFaceFields[] = {
    {"left", &DumpedFace::left},     {"top", &DumpedFace::top},       {"right", &DumpedFace::right},
    {"bottom", &DumpedFace::bottom}, {"orient", &DumpedFace::orient},
};

constexpr char kFaceCount[] = "facenum";

// The start of a line, in quotes and without bytes that a terminal would obey.
std::string Quoted(std::string_view line) {
    std::string shown(line.substr(0, 40));
    std::ranges::replace_if(
        shown, [](char character) { return character < ' ' || character > '~'; }, '?');
    return fmt::format("\"{}\"", shown);
}

// Reads the lines in the order in which the node writes them. Stops at the first line that is not
// as expected; the values read until then are kept.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    void Fixed(const std::string& expected) {
        if (!atEnd() && Line() == expected) {
            Advance();
        } else {
            Refuse(expected.empty() ? "an empty line" : Quoted(expected));
        }
    }

    std::int32_t Value(std::string_view name) {
        const std::string start = fmt::format("{}=", name);
        if (Line().starts_with(start)) {
            std::int32_t value = 0;
            const std::string_view digits = Line().substr(start.size());
            const char* const end = digits.data() + digits.size();
            // from_chars is independent of the locale and refuses what does not fit 32 bits.
            const auto [next, error] = std::from_chars(digits.data(), end, value);
            if (error == std::errc() && next == end) {
                Advance();
                return value;
            }
        }
        Refuse(fmt::format("\"{}\" and a number", start));
        return 0;
    }

    bool atEnd() const { return rest_.empty(); }

    void End() {
        if (!atEnd()) {
            Refuse("nothing more");
        }
    }

    // The first line that differs; those after it would only follow from it.
    const std::string& problem() const { return problem_; }

private:
    std::string_view Line() const { return rest_.substr(0, rest_.find('\n')); }

    void Advance() {
        rest_.remove_prefix(std::min(Line().size() + 1, rest_.size()));
        ++number_;
    }

    void Refuse(const std::string& expected) {
        if (problem_.empty()) {
            problem_ = fmt::format("line {}: expected {}, found {}", number_, expected,
                                   atEnd() ? "the end" : Quoted(Line()));
        }
    }

    std::string_view rest_;
    std::size_t number_ = 1; // of the line at the start of `rest_`
    std::string problem_;
};

std::string FaceHead(std::size_t face) {
    return fmt::format("[0_face_{}]", face);
}

std::string FaceText(const std::vector<DumpedFace>& faces, std::size_t index) {
    if (index >= faces.size()) {
        return "none";
    }
    const DumpedFace& face = faces[index];
    return fmt::format("{},{},{},{},{}", face.left, face.top, face.right, face.bottom, face.orient);
}

} // namespace

ParameterText ParseParameterText(const Bytes& bytes) {
    std::string text(bytes.begin(), bytes.end());
    ParameterText parsed;
    // Reported and then ignored, so that the values of a text that was copied in a text mode are
    // still read.
    if (text.find("\r\n") != std::string::npos) {
        parsed.problems.emplace_back("its lines end in CR LF: it was copied in a text mode");
        std::erase(text, '\r');
    }
    Reader reader(text);
    reader.Fixed("[0]");
    for (const Field& field : kFields) {
        parsed.values.*field.value = reader.Value(field.name);
    }
    reader.Fixed("");
    const std::int32_t count = reader.Value(kFaceCount);
    const bool possible = count >= 0 && count <= kFaceCapacity;
    // No more faces are read than the node can write, whatever a damaged text states.
    for (std::int32_t i = 0; i < std::clamp(count, 0, kFaceCapacity) && !reader.atEnd(); ++i) {
        reader.Fixed(FaceHead(parsed.values.faces.size()));
        DumpedFace& face = parsed.values.faces.emplace_back();
        for (const FaceField& field : kFaceFields) {
            face.*field.value = reader.Value(field.name);
        }
    }
    if (!possible) {
        parsed.problems.push_back(
            fmt::format("facenum: expected 0 to {}, found {}", kFaceCapacity, count));
    } else if (std::cmp_less(parsed.values.faces.size(), count) && reader.problem().empty()) {
        parsed.problems.push_back(
            fmt::format("facenum: expected {} faces, found {}", count, parsed.values.faces.size()));
    }
    if (!text.empty() && text.back() != '\n') {
        parsed.problems.emplace_back("the last line does not end in a newline");
    }
    reader.End();
    if (!reader.problem().empty()) {
        parsed.problems.insert(parsed.problems.begin(), reader.problem());
    }
    return parsed;
}

std::string FormatParameterText(const DumpParameters& parameters) {
    std::string text = "[0]\n";
    const auto add = [&text](const char* name, auto value) {
        text += fmt::format("{}={}\n", name, value);
    };
    for (const Field& field : kFields) {
        add(field.name, parameters.*field.value);
    }
    text += "\n";
    add(kFaceCount, parameters.faces.size());
    for (std::size_t i = 0; i < parameters.faces.size(); ++i) {
        text += FaceHead(i) + "\n";
        for (const FaceField& field : kFaceFields) {
            add(field.name, parameters.faces[i].*field.value);
        }
    }
    return text;
}

nlohmann::ordered_json ToJson(const DumpParameters& parameters) {
    nlohmann::ordered_json faces = nlohmann::ordered_json::array();
    for (const DumpedFace& face : parameters.faces) {
        nlohmann::ordered_json& entry = faces.emplace_back();
        for (const FaceField& field : kFaceFields) {
            entry[field.name] = face.*field.value;
        }
    }
    return {{"blur", parameters.blur},
            {"focus", {parameters.focusX, parameters.focusY}},
            {"mainCrop", {parameters.mainCropWidth, parameters.mainCropHeight}},
            {"auxCrop", {parameters.auxCropWidth, parameters.auxCropHeight}},
            {"rotation", parameters.degree},
            {"faces", faces}};
}

std::vector<std::string> DifferencesOf(const DumpParameters& before, const DumpParameters& after) {
    std::vector<std::string> differences;
    const auto compare = [&](const std::string& name, const auto& old, const auto& now) {
        if (old != now) {
            differences.push_back(fmt::format("{}: {} -> {}", name, old, now));
        }
    };
    // Named and grouped as in JSON.
    const auto two = [](int first, int second) { return fmt::format("{}, {}", first, second); };
    compare("blur", before.blur, after.blur);
    compare("focus", two(before.focusX, before.focusY), two(after.focusX, after.focusY));
    compare("mainCrop", two(before.mainCropWidth, before.mainCropHeight),
            two(after.mainCropWidth, after.mainCropHeight));
    compare("auxCrop", two(before.auxCropWidth, before.auxCropHeight),
            two(after.auxCropWidth, after.auxCropHeight));
    compare("rotation", before.degree, after.degree);
    for (std::size_t i = 0; i < std::max(before.faces.size(), after.faces.size()); ++i) {
        compare(fmt::format("face {}", i), FaceText(before.faces, i), FaceText(after.faces, i));
    }
    return differences;
}
