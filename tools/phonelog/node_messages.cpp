#include "tools/phonelog/node_messages.h"

#include <algorithm>
#include <map>
#include <vector>

#include <fmt/core.h>

namespace phonelog {

namespace {

using enum Message;

constexpr char kIn[] = "TSL_CTB: %s: %d:  (IN)\n";
constexpr char kNull[] = "%s: %d: NULL POINTER!";
constexpr char kNullCode[] = "%s: %d: errCode = %d: NULL POINTER!";
constexpr char kNullResult[] = "%s: %d: res: %d NULL POINTER!";
constexpr char kNullResultWide[] = "%s: %d:  res: %d NULL POINTER!";

constexpr NodeMessage kMessages[] = {
    {CreateIn, "NodeCreate", kIn},
    {CreateOut, "NodeCreate", "TSL_CTB: %s: %d: (OUT) res = %d\n"},
    {CreateTooSmall, "NodeCreate", "TSL_CTB: %s: %d: CHINODECREATEINFO is smaller than expected\n"},
    {CreateStopped, "GetCalibrationBinData", kNullResult},
    {CreateStopped, "IniEngine", kNullResult},
    {CreateStopped, "FillVendorTagIds", kNullCode},
    {CreateStopped, "BaseInitialize", kNullCode},
    {CreateStopped, "BaseInitialize", kNullResultWide},
    {CreateStopped, "Initialize", kNullResultWide},
    {CreateFailed, "NodeCreate", kNull},
    {CreateFailed, "NodeCreate", kNullResult},
    {LogMask, "ChiNodeBokehBase", "TSL_CTB: %s: %d:  g_enableNodeLogs %d\n"},
    {InitializeIn, "Initialize", kIn},
    {EngineVersion, "IniEngine", "TSL_CTB: %s: %d: pVersion: %s\n"},
    {CalibrationMissing, "GetCalibrationBinData", "TSL_CTB: %s: %d: : %s readCaliData fail\n"},
    {CalibrationLength, "GetCalibrationBinData", "TSL_CTB: %s: %d: : %s, size: %d  != %d\n"},
    {CalibrationShort, "GetCalibrationBinData",
     "TSL_CTB: %s: %d: : %s readCaliData read file size error!\n"},
    {CalibrationRefused, "GetCalibrationBinData",
     "TSL_CTB: %s: %d:  : Initialize SetCaliData res = %ld\n"},
    {CalibrationUsed, "GetCalibrationData",
     "TSL_CTB: %s: %d: : read  cali data success, path: %s length:%d\n"},
    {CalibrationNone, "GetCalibrationData", "TSL_CTB: %s: %d: : read  cali data fail\n"},
    {EngineStartFailed, "IniEngine", "TSL_CTB: %s: %d: Initialize TSL_DCIR_Init res = %ld\n"},
    {EngineInfoFailed, "IniEngine",
     "TSL_CTB: %s: %d: TSL_DCIR_SetCameraImageInfo failed res = %ld\n"},
    {TagMissing, "operator()", "TSL_CTB: %s: %d: Error: %s during GetVendorTagBase for: %s %s\n"},
    {NoCameraConfiguration, "ConfigureCameraInfo",
     "TSL_CTB: %s: %d: pPhysicalCameraConfigs not updated for BOKEH\n"},
    {TooManyCameras, "ConfigureCameraInfo",
     "TSL_CTB: %s: %d: Number of linked cameras %d, exceeds max supported linked cameras %d \n"},
    {Cameras, "ConfigureCameraInfo",
     "TSL_CTB: %s: %d:  Number of linked cameras %d, primary camera id %d \n"},
    {NoInputConfiguration, "ConfigureInputBufferMapping",
     "TSL_CTB: %s: %d: pCameraInputConfig not updated for BOKEH\n"},
    {DestroyIn, "NodeDestroy", kIn},
    {Destroyed, "~ChiNodeCaptureBokeh", "TSL_CTB: %s: %d:  (OUT)\n"},

    {RequestIn, "NodeProcRequest", kIn},
    {RequestTooSmall, "NodeProcRequest",
     "TSL_CTB: %s: %d: CHINODEPROCESSREQUESTINFO is smaller than expected\n"},
    {RequestStopped, "GetBokehParams", kNullCode},
    {RequestStopped, "BaseProcessRequest", kNullCode},
    {RequestStopped, "BaseProcessRequest", kNullResultWide},
    {RequestFailed, "ProcessRequest", kNullResultWide},
    {RequestFailed, "NodeProcRequest", kNull},
    {RequestFailed, "NodeProcRequest", kNullCode},
    {Frame, "GetFrameParams", "TSL_CTB: %s: %d: (IN ) %lu\n"},
    {Faces, "UpdateFocusROIBasedFace",
     "TSL_CTB: %s: %d: afMode %d, numFaces %d, maxFaceIndex %d\n"},
    {FaceChosen, "UpdateFocusROIBasedFace",
     "TSL_CTB: %s: %d: MaxFaceInfo[Index:%d]: (l,t,r,b)[%d,%d,%d,%d], Angles: %d, "
     "ptFocus:[%d,%d]\n"},
    {MainInconsistent, "CheckParamConsistency",
     "TSL_CTB: %s: %d: Master camera parameter inconsistency!Calibration [w, h]: [%d, %d], "
     "ActiveArraySize [w, h]: [%d, %d]\n"},
    {AuxInconsistent, "CheckParamConsistency",
     "TSL_CTB: %s: %d: Aux camera parameter inconsistency!Calibration [w, h]: [%d, %d], "
     "ActiveArraySize [w, h]: [%d, %d]\n"},
    {FormatUnsupported, "PrepareImage", "TSL_CTB: %s: %d:  format is not supported!\n"},
    {Parameters, "GetBokehParams",
     "TSL_CTB: %s: %d: MasterCam[w, h]:[%d %d], AuxCam[w, h]:[%d %d],BlurIntensity %d, "
     "ImageDegree %d, ptFocus:[%d,%d], afStatus %d, focusDistance %d\n"},
    {EngineParametersIn, "UpdataCTBParam", kIn},
    {EngineParameters, "UpdataCTBParam",
     "TSL_CTB: %s: %d:  m_BokehProcess %d, i32BlurIntensity %d, ptFocus[%d %d]\n"},
    {ImageUnusable, "ProcessRequest",
     "TSL_CTB: %s: %d: %s image cannot be used! Format %d, [w, h]: [%d, %d], pitch %d, planes %d, "
     "addresses [%p, %p], %s\n"},
    {NoCalibrationCopy, "ProcessRequest", "TSL_CTB: %s: %d: CalibDataSuccess falil, copy image!\n"},
    {RenderIn, "DoProcess", kIn},
    {EngineFailed, "DoProcess", "%s: %d: %s failed res = %ld"},
    {NoDisparity, "DoProcess", "TSL_CTB: %s: %d: m_pDisparityData == nullptr\n"},
    {DisparityRead, "DoProcess",
     "TSL_CTB: %s: %d:  DoProcess TSL_DCIR_GetDisparityData res = %ld  "
     "m_i32DisparityDataActiveSize %d\n"},
    {Rendered, "DoProcess", "TSL_CTB: %s: %d:  DoProcess TSL_DCIR_Process result = %ld\n"},
    {Copied, "DoProcess",
     "TSL_CTB: %s: %d:  Process failed, copy the main image, m_resultDataCTB.depthEffectInfo = "
     "%d\n"},
    {RenderOut, "DoProcess", "TSL_CTB: %s: %d:  (OUT) \n"},
    {DumpsIn, "DumpAndSaveYUV", kIn},
    {DumpFailed, "saveFile", "TSL_CTB: %s: %d: Failed to open file: %s\n"},
    {DumpsOut, "DumpAndSaveYUV", "TSL_CTB: %s: %d:  (OUT)\n"},
    {Processed, "ProcessRequest", "TSL_CTB: %s: %d: ProcessRequest m_processedFrame = %lu\n"},
    {RequestOut, "NodeProcRequest", "TSL_CTB: %s: %d:  (OUT) res = %d\n"},

    {NullPointer, nullptr, kNull},
    {NullPointer, nullptr, kNullCode},
    {NullPointer, nullptr, kNullResult},
    {NullPointer, nullptr, kNullResultWide},
};

constexpr std::string_view kPrefix = "TSL_CTB: ";
constexpr std::string_view kPlace = "%s: %d:";

// Bug reports drop the spaces at the end of a line.
std::string_view WithoutTrailingSpace(std::string_view text) {
    return text.substr(0, text.find_last_not_of(" \n") + 1);
}

// A format without its place and its newline: literal pieces, and the conversions between them.
struct Pattern {
    const NodeMessage* message;
    bool prefixed;
    std::vector<std::string_view> pieces; // one more than there are conversions
    std::vector<char> conversions;
};

Pattern Compile(const NodeMessage& message) {
    Pattern pattern{&message, false, {}, {}};
    std::string_view rest = message.format;
    if (rest.starts_with(kPrefix)) {
        pattern.prefixed = true;
        rest.remove_prefix(kPrefix.size());
    }
    rest.remove_prefix(kPlace.size());
    rest = WithoutTrailingSpace(rest);
    for (std::size_t at = 0; (at = rest.find('%')) != std::string_view::npos;) {
        pattern.pieces.push_back(rest.substr(0, at));
        const std::size_t end = rest.find_first_of("dups", at); // "%d", "%lu", "%p", "%s"
        pattern.conversions.push_back(rest[end]);
        rest.remove_prefix(end + 1);
    }
    pattern.pieces.push_back(rest);
    return pattern;
}

// The end of a value: of a number its last digit, of a text the literal piece behind it.
std::size_t ValueEnd(std::string_view text, char conversion, std::string_view behind) {
    if (conversion == 's' || conversion == 'p') {
        return behind.empty() ? text.size() : text.find(behind);
    }
    const std::size_t end = text.find_first_not_of("0123456789", text.starts_with('-') ? 1 : 0);
    return std::min(end, text.size());
}

// `cut` becomes true where the text ends before the pattern does.
bool Match(const Pattern& pattern, std::string_view text, Recognised& found, bool& cut) {
    found.count = 0;
    for (std::size_t i = 0; i < pattern.pieces.size(); ++i) {
        if (!text.starts_with(pattern.pieces[i])) {
            cut = cut || pattern.pieces[i].starts_with(text);
            return false;
        }
        text.remove_prefix(pattern.pieces[i].size());
        if (i == pattern.conversions.size()) {
            break;
        }
        const std::size_t end = ValueEnd(text, pattern.conversions[i], pattern.pieces[i + 1]);
        if (end == 0 || end == std::string_view::npos) {
            cut = cut || text.empty() || end == std::string_view::npos;
            return false;
        }
        if (found.count < found.values.size()) {
            found.values[found.count++] = text.substr(0, end);
        }
        text.remove_prefix(end);
    }
    return text.empty();
}

struct Patterns {
    std::map<std::string_view, std::vector<Pattern>> ofOperation;
    std::vector<Pattern> ofAny;

    Patterns() {
        for (const NodeMessage& message : kMessages) {
            std::vector<Pattern>& patterns =
                message.operation == nullptr ? ofAny : ofOperation[message.operation];
            patterns.push_back(Compile(message));
        }
    }
};

constexpr char kNoFittingCalibration[] = "there is no fitting calibration";

// Its sizes are 0 then.
bool HasNoCalibration(const Recognised& found) {
    return found.Number(0) == 0;
}

std::string SizeMismatch(const char* camera, const Recognised& found) {
    if (HasNoCalibration(found)) {
        return kNoFittingCalibration;
    }
    return fmt::format("the {} camera's active array is {}x{}, its calibration {}x{}", camera,
                       found.values[2], found.values[3], found.values[0], found.values[1]);
}

} // namespace

std::span<const NodeMessage> NodeMessages() {
    return kMessages;
}

std::optional<Recognised> Recognise(std::string_view text) {
    static const Patterns patterns;
    const std::string_view whole = WithoutTrailingSpace(text);
    const bool prefixed = text.starts_with(kPrefix);
    text.remove_prefix(prefixed ? kPrefix.size() : 0);
    // The place: "OPERATION: LINE:".
    const std::size_t end = text.find(": ");
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    Recognised found{};
    found.operation = text.substr(0, end);
    text.remove_prefix(end + 2);
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string_view::npos || text[digits] != ':') {
        return std::nullopt;
    }
    text.remove_prefix(digits + 1);
    text = WithoutTrailingSpace(text);
    bool cut = false;
    const auto matches = [&](const Pattern& pattern) {
        return pattern.prefixed == prefixed && Match(pattern, text, found, cut);
    };
    const auto byOperation = patterns.ofOperation.find(found.operation);
    if (byOperation != patterns.ofOperation.end()) {
        for (const Pattern& pattern : byOperation->second) {
            if (matches(pattern)) {
                found.message = pattern.message->message;
                return found;
            }
        }
    }
    for (const Pattern& pattern : patterns.ofAny) {
        if (matches(pattern)) {
            found.message = pattern.message->message;
            return found;
        }
    }
    if (cut) {
        return std::nullopt;
    }
    found.message = Other;
    found.values[0] = whole;
    found.count = 1;
    return found;
}

std::string Failure(const Recognised& found) {
    const auto& values = found.values;
    switch (found.message) {
    case CreateTooSmall:
        return "the creation's record is smaller than expected";
    case RequestTooSmall:
        return "the request's record is smaller than expected";
    case CalibrationMissing:
        return fmt::format("{} cannot be opened", values[0]);
    case CalibrationLength:
        return fmt::format("{} has {} bytes, not {}", values[0], values[1], values[2]);
    case CalibrationShort:
        return fmt::format("{} cannot be read", values[0]);
    case CalibrationRefused:
        return fmt::format("TSL_DCIR_SetCaliData failed ({})", values[0]);
    case CalibrationNone:
        return "no calibration file was usable";
    case EngineStartFailed:
        return fmt::format("TSL_DCIR_Init failed ({})", values[0]);
    case EngineInfoFailed:
        return fmt::format("TSL_DCIR_SetCameraImageInfo failed at creation ({})", values[0]);
    case TagMissing:
        return fmt::format("the platform does not know the tag {} {} ({})", values[1], values[2],
                           values[0]);
    case NoCameraConfiguration:
        return "the platform gave no camera configuration";
    case TooManyCameras:
        return fmt::format("{} linked cameras, at most {} are supported", values[0], values[1]);
    case NoInputConfiguration:
        return "the platform gave no input configuration";
    case MainInconsistent:
        return SizeMismatch("main", found);
    case AuxInconsistent:
        return SizeMismatch("aux", found);
    case FormatUnsupported:
        return "an image's format is not NV12";
    case ImageUnusable:
        return fmt::format("{} image cannot be used (format {}, {}x{}, pitch {}, {} planes)",
                           values[0], values[1], values[2], values[3], values[4], values[5]);
    case NoCalibrationCopy:
        return kNoFittingCalibration;
    case EngineFailed:
        return fmt::format("{} failed ({})", values[0], values[1]);
    case NoDisparity:
        return "the engine gave no disparity";
    case DumpFailed:
        return fmt::format("{} could not be written", values[0]);
    case CreateStopped:
    case CreateFailed:
    case RequestStopped:
    case RequestFailed:
    case NullPointer:
        return fmt::format("{} stopped: a pointer was null or a step had failed", found.operation);
    case Other:
        return std::string(values[0]);
    default:
        return {};
    }
}

bool IsConsequence(const Recognised& found) {
    switch (found.message) {
    case CreateStopped:
    case CreateFailed:
    case RequestStopped:
    case RequestFailed:
    case NullPointer:
        return true;
    case MainInconsistent:
    case AuxInconsistent:
        return HasNoCalibration(found);
    default:
        return false;
    }
}

} // namespace phonelog
