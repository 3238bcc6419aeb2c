#include "tools/dumps/parameter_text.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "engine/refocus_engine.h"

namespace {

struct Field {
    const char* name;
    std::int32_t DumpParameters::*value;
};

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

std::vector<std::string> LinesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const auto end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

// A line as a message can show it.
std::string Shown(const std::string& line) {
    std::string shown = line.substr(0, 40);
    for (char& character : shown) {
        if (character < ' ' || character > '~') {
            character = '?';
        }
    }
    return "\"" + shown + "\"";
}

// Walks the lines; keeps to the order in which the node writes them.
class Reader {
public:
    Reader(std::string_view text, std::vector<std::string>& problems)
        : lines_(LinesOf(text)), problems_(problems) {}

    void Fixed(const std::string& expected) {
        if (at_ < lines_.size() && lines_[at_] == expected) {
            ++at_;
        } else {
            Refuse(expected.empty() ? "an empty line" : "\"" + expected + "\"");
        }
    }

    std::int32_t Value(const std::string& name) {
        std::int32_t value = 0;
        const std::string start = name + "=";
        if (at_ < lines_.size() && lines_[at_].starts_with(start)) {
            const std::string& line = lines_[at_];
            const char* const end = line.data() + line.size();
            const auto [next, error] = std::from_chars(line.data() + start.size(), end, value);
            if (error == std::errc() && next == end) {
                ++at_;
                return value;
            }
        }
        Refuse("\"" + start + "\" and a number");
        return 0;
    }

    bool AtEnd() const { return at_ >= lines_.size(); }

    void End() {
        if (!AtEnd()) {
            Refuse("nothing more");
        }
    }

private:
    // A line in the wrong place is passed over only where the one after it goes on as it should, so
    // that one fault is one problem.
    void Refuse(const std::string& expected) {
        if (failed_) {
            return;
        }
        failed_ = true;
        problems_.push_back("line " + std::to_string(at_ + 1) + ": expected " + expected +
                            ", found " + (AtEnd() ? "the end" : Shown(lines_[at_])));
    }

    std::vector<std::string> lines_;
    std::vector<std::string>& problems_;
    std::size_t at_ = 0;
    bool failed_ = false;
};

std::string FaceHead(std::int32_t face) {
    return "[0_face_" + std::to_string(face) + "]";
}

std::string FaceText(const DumpedFace& face) {
    std::string text;
    for (const FaceField& field : kFaceFields) {
        text += std::string(text.empty() ? "" : ",") + std::to_string(face.*field.value);
    }
    return text;
}

} // namespace

ParameterText ParseParameterText(std::string_view text) {
    ParameterText parsed;
    Reader reader(text, parsed.problems);
    reader.Fixed("[0]");
    for (const Field& field : kFields) {
        parsed.values.*field.value = reader.Value(field.name);
    }
    reader.Fixed("");
    const std::int32_t count = reader.Value(kFaceCount);
    if (count < 0 || count > kFaceCapacity) {
        parsed.problems.push_back("facenum: expected 0 to " + std::to_string(kFaceCapacity) +
                                  ", found " + std::to_string(count));
    }
    for (std::int32_t i = 0; i < std::clamp(count, 0, kFaceCapacity) && !reader.AtEnd(); ++i) {
        reader.Fixed(FaceHead(i));
        DumpedFace face;
        for (const FaceField& field : kFaceFields) {
            face.*field.value = reader.Value(field.name);
        }
        parsed.values.faces.push_back(face);
    }
    if (std::cmp_less(parsed.values.faces.size(), count) && parsed.problems.empty()) {
        parsed.problems.push_back("facenum says " + std::to_string(count) + " faces, found " +
                                  std::to_string(parsed.values.faces.size()));
    }
    if (!text.empty() && text.back() != '\n') {
        parsed.problems.emplace_back("the last line has no end");
    }
    reader.End();
    return parsed;
}

std::string FormatParameterText(const DumpParameters& parameters) {
    std::string text = "[0]\n";
    const auto add = [&text](const std::string& name, std::int32_t value) {
        text += name + "=" + std::to_string(value) + "\n";
    };
    for (const Field& field : kFields) {
        add(field.name, parameters.*field.value);
    }
    text += "\n";
    const auto count = static_cast<std::int32_t>(parameters.faces.size());
    add(kFaceCount, count);
    for (std::int32_t i = 0; i < count; ++i) {
        text += FaceHead(i) + "\n";
        for (const FaceField& field : kFaceFields) {
            add(field.name, parameters.faces[static_cast<std::size_t>(i)].*field.value);
        }
    }
    return text;
}

std::vector<std::string> DifferencesOf(const DumpParameters& before, const DumpParameters& after) {
    std::vector<std::string> differences;
    const auto compare = [&](const std::string& name, const std::string& old,
                             const std::string& now) {
        if (old != now) {
            differences.push_back(name + ": " + old + " -> " + now);
        }
    };
    for (const Field& field : kFields) {
        compare(field.name, std::to_string(before.*field.value),
                std::to_string(after.*field.value));
    }
    const std::size_t faces = std::max(before.faces.size(), after.faces.size());
    for (std::size_t i = 0; i < faces; ++i) {
        const auto text = [i](const std::vector<DumpedFace>& list) {
            return i < list.size() ? FaceText(list[i]) : std::string("none");
        };
        compare("face " + std::to_string(i), text(before.faces), text(after.faces));
    }
    return differences;
}
