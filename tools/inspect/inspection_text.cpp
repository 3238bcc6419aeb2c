#include "tools/inspect/inspection_text.h"

#include <cstdio>

using Json = nlohmann::ordered_json;

namespace {

constexpr DumpRole kRoles[] = {DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                               DumpRole::kDisparity, DumpRole::kParameters};

std::string FileLine(const Inspection& inspection, const DumpFile& file) {
    char line[120];
    const auto& image = inspection.image(file.name.role);
    if (image) {
        std::snprintf(line, sizeof line, "  %-11s %dx%d, pitch %d, %ju bytes\n",
                      RoleName(file.name.role), image->width(), image->height(), image->pitch(),
                      file.bytes);
    } else {
        std::snprintf(line, sizeof line, "  %-11s %ju bytes\n", RoleName(file.name.role),
                      file.bytes);
    }
    return line;
}

std::string Text(const DumpParameters& values) {
    std::string text;
    const auto line = [&text](const char* name, const std::string& value) {
        char start[40];
        std::snprintf(start, sizeof start, "    %-17s ", name);
        text += start + value + "\n";
    };
    const auto pair = [](int first, const char* between, int second) {
        return std::to_string(first) + between + std::to_string(second);
    };
    line("blur", std::to_string(values.blur));
    line("focus", pair(values.focusX, ",", values.focusY));
    line("main crop", pair(values.mainCropWidth, "x", values.mainCropHeight));
    line("aux crop", pair(values.auxCropWidth, "x", values.auxCropHeight));
    line("rotation", std::to_string(values.degree));
    line("faces", std::to_string(values.faces.size()));
    for (const DumpedFace& face : values.faces) {
        line("", pair(face.left, ",", face.top) + " to " + pair(face.right, ",", face.bottom) +
                     ", orientation " + std::to_string(face.orient));
    }
    return text;
}

} // namespace

std::string InWords(const Inspection& inspection) {
    std::string text = inspection.set.name() + "\n";
    for (const DumpRole role : kRoles) {
        if (const auto& file = inspection.set.file(role)) {
            text += FileLine(inspection, *file);
        }
    }
    if (inspection.parameters) {
        text += Text(*inspection.parameters);
    }
    for (const Finding& finding : inspection.findings) {
        text += "  WRONG " + std::string(NameOf(finding.problem)) + ": " + finding.text + "\n";
    }
    for (const std::string& note : inspection.notes) {
        text += "  note: " + note + "\n";
    }
    return text + (inspection.findings.empty() ? "  nothing wrong found\n" : "");
}

Json ToJson(const Inspection& inspection) {
    Json files = Json::object();
    for (const DumpRole role : kRoles) {
        const auto& file = inspection.set.file(role);
        if (!file) {
            continue;
        }
        Json entry{{"file", file->path.string()}, {"bytes", file->bytes}};
        if (const auto& image = inspection.image(role)) {
            entry.update({{"width", image->width()},
                          {"height", image->height()},
                          {"pitch", image->pitch()}});
        }
        files[RoleName(role)] = entry;
    }
    Json findings = Json::array();
    for (const Finding& finding : inspection.findings) {
        findings.push_back({{"problem", NameOf(finding.problem)},
                            {"file", finding.file ? Json(RoleName(*finding.file)) : Json(nullptr)},
                            {"text", finding.text}});
    }
    return {{"set", inspection.set.name()},
            {"files", files},
            {"parameters", inspection.parameters ? ToJson(*inspection.parameters) : Json(nullptr)},
            {"findings", findings},
            {"notes", inspection.notes}};
}
