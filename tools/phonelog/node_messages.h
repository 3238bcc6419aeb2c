#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// The node's messages, as far as a history of its work is read from them.
namespace phonelog {

// Both tags of the node begin and end alike: "TSL_CTB" of the node class, "TSL_BTB" of its base.
constexpr std::string_view kTagStart = "TSL_";
constexpr std::size_t kTagSize = 7;
constexpr bool IsNodeTag(std::string_view tag) {
    return tag == "TSL_CTB" || tag == "TSL_BTB";
}

enum class Message {
    // A node's creation and end.
    CreateIn,
    CreateOut,
    CreateTooSmall,
    CreateStopped, // a step of it
    CreateFailed,
    LogMask,
    InitializeIn,
    EngineVersion,
    CalibrationMissing,
    CalibrationLength,
    CalibrationShort,
    CalibrationRefused,
    CalibrationUsed,
    CalibrationNone,
    EngineStartFailed,
    EngineInfoFailed,
    TagMissing,
    NoCameraConfiguration,
    TooManyCameras,
    Cameras,
    NoInputConfiguration,
    DestroyIn,
    Destroyed,
    // A request, in the order in which its messages come.
    RequestIn,
    RequestTooSmall,
    RequestStopped, // a step of it
    RequestFailed,  // the last of its errors
    Frame,
    Faces,
    FaceChosen,
    MainInconsistent,
    AuxInconsistent,
    FormatUnsupported,
    Parameters,
    EngineParametersIn,
    EngineParameters,
    ImageUnusable,
    NoCalibrationCopy,
    RenderIn,
    EngineFailed,
    NoDisparity,
    DisparityRead,
    Rendered,
    Copied,
    RenderOut,
    DumpsIn,
    DumpFailed,
    DumpsOut,
    Processed,
    RequestOut,
    // Of another operation: a required pointer was null or a step failed.
    NullPointer,
    Other, // has a place of the node, and no text that is known
};

struct NodeMessage {
    Message message;
    const char* operation; // that prints it; null: any
    const char* format;    // as the node passes it to the log, place included
};

// All that are recognised. Each format is one of the node's own; a test compares them with the
// built library.
std::span<const NodeMessage> NodeMessages();

// A recognised message and the values in it, in the order of the format's conversions; those of the
// place are left out. Of Other the whole text.
struct Recognised {
    Message message;
    std::string_view operation;
    std::array<std::string_view, 10> values;
    std::size_t count = 0;

    // 0 where the value is no number, or one that the type cannot hold.
    template <typename Integer = std::int64_t>
    Integer Number(std::size_t index) const {
        Integer number = 0;
        const std::string_view digits = values[index];
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
        return number;
    }
};

// Nothing for a text without a place, and for a known message that was cut.
std::optional<Recognised> Recognise(std::string_view text);

// The failure that a message tells, in words; empty for all that tell of none. Of Other the text.
std::string Failure(const Recognised& found);

// Whether the failure follows from another one, where one has been told.
bool IsConsequence(const Recognised& found);

} // namespace phonelog
