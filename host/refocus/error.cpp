#include "host/refocus/error.h"

namespace refocus {

ErrorText Describe(std::int64_t result) {
    switch (static_cast<Error>(result)) {
    case Error::kNone:
        return {"None", "The call succeeded."};
    case Error::kNullArgument:
        return {"NullArgument", "A handle or a record is a null pointer."};
    case Error::kUnknownMode:
        return {"UnknownMode", "The engine supports capture mode (1) only."};
    case Error::kOutOfMemory:
        return {"OutOfMemory", "There is not enough memory for the picture."};
    case Error::kInternal:
        return {"Internal", "A step of the engine failed unexpectedly."};
    case Error::kCalibrationSize:
        return {"CalibrationSize", "Calibration data is not 2048 bytes long."};
    case Error::kCalibrationMagic:
        return {"CalibrationMagic", "The bytes are no calibration data of this engine."};
    case Error::kCalibrationVersion:
        return {"CalibrationVersion",
                "The calibration data has a version this engine cannot read."};
    case Error::kCalibrationChecksum:
        return {"CalibrationChecksum", "The calibration data is damaged: its checksum is wrong."};
    case Error::kCalibrationValues:
        return {"CalibrationValues", "The calibration describes no possible pair of cameras."};
    case Error::kNoCalibration:
        return {"NoCalibration", "The call needs calibration data, which was not set."};
    case Error::kCalibrationGeometry:
        return {"CalibrationGeometry", "The calibrated pair cannot be rectified for these images."};
    case Error::kImageFormat:
        return {"ImageFormat", "An image is not NV12."};
    case Error::kImageSize:
        return {"ImageSize", "An image is smaller than 16x16 or larger than the engine handles."};
    case Error::kImagePlane:
        return {"ImagePlane", "An image lacks its luma or its chroma plane."};
    case Error::kImagePitch:
        return {"ImagePitch", "A plane's pitch is shorter than its rows, or beyond all bounds."};
    case Error::kImageMismatch:
        return {"ImageMismatch", "The image differs in size from the one of the disparity data."};
    case Error::kImageInfoValues:
        return {"ImageInfoValues",
                "Crop sizes or image degree of the camera image info are invalid."};
    case Error::kImageInfoMismatch:
        return {"ImageInfoMismatch",
                "A crop of the camera image info exceeds the calibrated size."};
    case Error::kNoDepth:
        return {"NoDepth", "The images do not match: both cameras must show the same scene at the "
                           "same moment."};
    case Error::kNoStructure:
        return {"NoStructure", "An image has too little structure to match: uncover both cameras, "
                               "add light, or choose a scene with texture."};
    case Error::kNoParallax:
        return {"NoParallax",
                "The images show no difference in depth: check that they come from two "
                "cameras, and choose a scene with near and far objects."};
    case Error::kReversedPair:
        return {"ReversedPair", "The pair matches with left and right reversed: swap main and aux "
                                "image, or correct the image degree by 180."};
    case Error::kRotatedPair:
        return {"RotatedPair", "The pair matches along the columns: correct the image degree by 90 "
                               "or 270."};
    case Error::kBeyondSearch:
        return {"BeyondSearch",
                "The pair matches beyond the search range: move away from the nearest "
                "object, or correct the nearest distance of the calibration."};
    case Error::kNoDisparity:
        return {"NoDisparity", "The call needs disparity data, which was not calculated."};
    case Error::kDisparitySize:
        return {"DisparitySize", "The disparity buffer has another size than the disparity data."};
    case Error::kBlurIntensity:
        return {"BlurIntensity", "The blur intensity is not 0 to 100."};
    case Error::kFaceList:
        return {"FaceList", "The face count is not 0 to 10 or its rectangles are missing."};
    }
    return {"Unknown", "This code is none of the refocus engine's own."};
}

} // namespace refocus
