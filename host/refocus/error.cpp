#include "host/refocus/error.h"

#include <algorithm>
#include <iterator>

namespace refocus {

namespace {

struct Row {
    Error error;
    ErrorText text;
};

constexpr Row kRows[] = {
    {Error::kNone, {"None", "The call succeeded."}},
    {Error::kNullArgument, {"NullArgument", "A handle or a record is a null pointer."}},
    {Error::kUnknownMode, {"UnknownMode", "The engine supports capture mode (1) only."}},
    {Error::kOutOfMemory, {"OutOfMemory", "There is not enough memory for the picture."}},
    {Error::kInternal, {"Internal", "A step of the engine failed unexpectedly."}},
    {Error::kCalibrationSize, {"CalibrationSize", "Calibration data is not 2048 bytes long."}},
    {Error::kCalibrationMagic,
     {"CalibrationMagic", "The bytes are no calibration data of this engine."}},
    {Error::kCalibrationVersion,
     {"CalibrationVersion", "The calibration data has a version this engine cannot read."}},
    {Error::kCalibrationChecksum,
     {"CalibrationChecksum", "The calibration data is damaged: its checksum is wrong."}},
    {Error::kCalibrationValues,
     {"CalibrationValues", "The calibration describes no possible pair of cameras."}},
    {Error::kNoCalibration,
     {"NoCalibration", "The call needs calibration data, which was not set."}},
    {Error::kCalibrationGeometry,
     {"CalibrationGeometry", "The calibrated pair cannot be rectified for these images."}},
    {Error::kImageFormat, {"ImageFormat", "An image is not NV12."}},
    {Error::kImageSize,
     {"ImageSize", "An image is smaller than 16x16 or larger than the engine handles."}},
    {Error::kImagePlane, {"ImagePlane", "An image lacks its luma or its chroma plane."}},
    {Error::kImagePitch,
     {"ImagePitch", "A plane's pitch is shorter than its rows, or beyond all bounds."}},
    {Error::kImageMismatch,
     {"ImageMismatch", "The image differs in size from the one of the disparity data."}},
    {Error::kImageInfoValues,
     {"ImageInfoValues", "Crop sizes or image degree of the camera image info are invalid."}},
    {Error::kImageInfoMismatch,
     {"ImageInfoMismatch", "A crop of the camera image info exceeds the calibrated size."}},
    {Error::kNoDepth,
     {"NoDepth", "The images do not match: both cameras must show the same scene at the "
                 "same moment."}},
    {Error::kNoStructure,
     {"NoStructure", "An image has too little structure to match: uncover both cameras, "
                     "add light, or choose a scene with texture."}},
    {Error::kNoParallax,
     {"NoParallax", "The images show no difference in depth: check that they come from two "
                    "cameras, and choose a scene with near and far objects."}},
    {Error::kReversedPair,
     {"ReversedPair", "The pair matches with left and right reversed: swap main and aux "
                      "image, or correct the image degree by 180."}},
    {Error::kRotatedPair,
     {"RotatedPair", "The pair matches along the columns: correct the image degree by 90 "
                     "or 270."}},
    {Error::kBeyondSearch,
     {"BeyondSearch", "The pair matches beyond the search range: move away from the nearest "
                      "object, or correct the nearest distance of the calibration."}},
    {Error::kNoDisparity,
     {"NoDisparity", "The call needs disparity data, which was not calculated."}},
    {Error::kDisparitySize,
     {"DisparitySize", "The disparity buffer has another size than the disparity data."}},
    {Error::kBlurIntensity, {"BlurIntensity", "The blur intensity is not 0 to 100."}},
    {Error::kFaceList,
     {"FaceList", "The face count is not 0 to 10 or its rectangles are missing."}},
};

} // namespace

ErrorText Describe(std::int64_t result) {
    const auto* const row = std::ranges::find(kRows, static_cast<Error>(result), &Row::error);
    return row != std::end(kRows)
               ? row->text
               : ErrorText{"Unknown", "This code is none of the refocus engine's own."};
}

} // namespace refocus
