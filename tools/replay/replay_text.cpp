#include <fmt/core.h>

#include "tools/replay/replay.h"

namespace {

std::string Indented(const std::string& lines) {
    std::string text = "    ";
    for (const char character : lines.substr(0, lines.find_last_not_of('\n') + 1)) {
        text += character;
        if (character == '\n') {
            text += "    ";
        }
    }
    return text + "\n";
}

void AddDifference(std::string& text, const char* what,
                   const std::optional<PictureDifference>& difference) {
    if (!difference) {
        return;
    }
    text += std::string("  ") + what + ":";
    text += difference->identical() ? " identical\n" : "\n" + Indented(ToText(*difference));
}

} // namespace

std::string InWords(const DumpSet& set, const Replayed& replayed) {
    std::string text = set.name() + "\n";
    for (const std::string& change : replayed.changes) {
        text += fmt::format("  changed: {}\n", change);
    }
    text += fmt::format("  calibration: {}\n", replayed.calibration);
    for (const std::string& line : Lines(replayed)) {
        text += fmt::format("  {}\n", line);
    }
    if (replayed.status() == "rendered") {
        text += "  rendered, nothing to compare\n";
    }
    AddDifference(text, "output", replayed.outputDifference);
    AddDifference(text, "disparity", replayed.disparityDifference);
    return text;
}

Json ToJson(const DumpSet& set, const Replayed& replayed) {
    const auto difference = [](const std::optional<PictureDifference>& value) {
        return value ? ToJson(*value) : Json();
    };
    Json json{{"set", set.name()},
              {"status", replayed.status()},
              {"equal", replayed.status() == "rendered" ? Json() : Json(replayed.equal())}};
    json.update(ToJson(static_cast<const Outcome&>(replayed)));
    json["calibration"] = replayed.calibration;
    json["parameters"] = ToJson(replayed.asked);
    json["changed"] = replayed.changes;
    json["asDumped"] = replayed.asDumped();
    json["output"] = difference(replayed.outputDifference);
    json["disparity"] = difference(replayed.disparityDifference);
    return json;
}
