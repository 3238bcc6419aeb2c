#pragma once

#include <cstdint>

// Results of the refocus engine's functions: 0 or one of these codes. The engine prints nothing;
// Describe gives the text of a code.
namespace refocus {

enum class Error : std::int64_t {
    kNone = 0,

    kNullArgument = -1,
    kUnknownMode = -2,
    kOutOfMemory = -3,
    kInternal = -4,

    kCalibrationSize = -10,
    kCalibrationMagic = -11,
    kCalibrationVersion = -12,
    kCalibrationChecksum = -13,
    kCalibrationValues = -14,
    kNoCalibration = -15,
    kCalibrationGeometry = -16,

    kImageFormat = -20,
    kImageSize = -21,
    kImagePlane = -22,
    kImagePitch = -23,
    kImageMismatch = -24,
    kImageInfoValues = -25,
    kImageInfoMismatch = -26,

    kNoDepth = -30,
    kNoDisparity = -31,
    kDisparitySize = -32,
    kBlurIntensity = -33,
    kFaceList = -34,

    // Like kNoDepth, with a known reason.
    kNoStructure = -40,
    kNoParallax = -41,
    kReversedPair = -42,
    kRotatedPair = -43,
    kBeyondSearch = -44,
};

struct ErrorText {
    const char* name;     // "NoDepth"
    const char* sentence; // what is wrong, for a log line
};

// Name and sentence of a result; both strings are static. The name of an unknown code is "Unknown".
ErrorText Describe(std::int64_t result);

inline std::int64_t Result(Error error) {
    return static_cast<std::int64_t>(error);
}

} // namespace refocus
