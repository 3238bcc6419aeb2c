#include "tools/replay/replay_text.h"

using Json = nlohmann::ordered_json;

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

Json OrNull(const std::optional<PictureDifference>& difference) {
    return difference ? ToJson(*difference) : Json(nullptr);
}

} // namespace

std::string InWords(const DumpSet& set, const Replayed& replayed) {
    std::string text = set.name() + "\n";
    for (const std::string& change : DifferencesOf(replayed.dumped, replayed.asked)) {
        text += "  changed: " + change + "\n";
    }
    text += "  calibration: " + replayed.calibration + "\n";
    for (const std::string& complaint : replayed.result.complaints) {
        text += "  the node broke the interface's rules: " + complaint + "\n";
    }
    if (!replayed.result.published) {
        text += "  FAILED: the node published nothing, its result is " +
                std::to_string(replayed.result.code) + "\n";
    }
    if (replayed.copied) {
        text += "  FAILED: the output is a copy of the main picture\n";
    }
    for (const std::string& reason : replayed.reasons) {
        text += "  because: " + reason + "\n";
    }
    for (const std::string& note : replayed.notes) {
        text += "  note: " + note + "\n";
    }
    AddDifference(text, "output", replayed.outputDifference);
    AddDifference(text, "disparity", replayed.disparityDifference);
    return text;
}

Json ToJson(const DumpSet& set, const Replayed& replayed) {
    return {{"set", set.name()},
            {"equal", replayed.equal()},
            {"result", replayed.result.code},
            {"published", replayed.result.published.has_value()},
            {"copiedMainImage", replayed.copied},
            {"reasons", replayed.reasons},
            {"complaints", replayed.result.complaints},
            {"notes", replayed.notes},
            {"calibration", replayed.calibration},
            {"parameters", ToJson(replayed.asked)},
            {"changed", DifferencesOf(replayed.dumped, replayed.asked)},
            {"output", OrNull(replayed.outputDifference)},
            {"disparity", OrNull(replayed.disparityDifference)}};
}
