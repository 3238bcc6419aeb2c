// Whether the parameters can be those of the images.

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"

namespace {

void ReportProblem(Inspection& inspection, const std::string& text) {
    inspection.findings.push_back({Problem::kParameters, DumpRole::kParameters, text});
}

std::string Pair(int first, int second, char separator) {
    return std::to_string(first) + separator + std::to_string(second);
}

struct PictureSize {
    int width;
    int height;
};

// The part of a sensor that an image shows has the image's aspect, but for whole pixels.
void CheckCrop(Inspection& inspection, const char* camera, int width, int height,
               PictureSize image) {
    const std::string found = std::string(camera) + "_CropNoScale " + Pair(width, height, 'x');
    if (width <= 0 || height <= 0) {
        ReportProblem(inspection, found + ": expected a part of the sensor");
        return;
    }
    const double ratio = (1.0 * width / height) / (1.0 * image.width / image.height);
    const double tolerance = 0.004 + 3.0 / std::min({width, height, image.width, image.height});
    if (std::abs(std::log(ratio)) > tolerance) {
        ReportProblem(inspection, found + ": expected the aspect of the image, " +
                                      Pair(image.width, image.height, 'x'));
    }
}

void CheckFace(Inspection& inspection, std::size_t index, const DumpedFace& face,
               PictureSize image) {
    const std::string found = "face " + std::to_string(index) + " " +
                              Pair(face.left, face.top, ',') + " to " +
                              Pair(face.right, face.bottom, ',');
    if (face.left < 0 || face.top < 0 || face.right < face.left - 1 || face.bottom < face.top - 1) {
        ReportProblem(inspection, found + ": expected left, top, right, bottom");
    } else if (std::midpoint(face.left, face.right) >= image.width ||
               std::midpoint(face.top, face.bottom) >= image.height) {
        ReportProblem(inspection, found + ": expected it in the image, " +
                                      Pair(image.width, image.height, 'x'));
    }
    if (face.orient < 1 || face.orient > 4) {
        ReportProblem(inspection, "face " + std::to_string(index) +
                                      " orient: expected 1 to 4, found " +
                                      std::to_string(face.orient));
    } else if (face.orient != inspection.parameters->faces.front().orient) {
        ReportProblem(inspection, "face " + std::to_string(index) +
                                      " orient: expected that of the first face, found " +
                                      std::to_string(face.orient));
    }
}

// Of an aux image of another size the width is known from the same numbers; then it must leave a
// plausible padding.
void CheckAuxCrop(Inspection& inspection) {
    const auto& image = inspection.image(DumpRole::kAux);
    if (!image) {
        return;
    }
    constexpr int kMostPadding = 256;
    const DumpParameters& values = *inspection.parameters;
    const double byAspect =
        1.0 * image->height() * values.auxCropWidth / std::max(values.auxCropHeight, 1);
    const bool fits = byAspect < image->pitch() + 4 && byAspect > image->pitch() - kMostPadding &&
                      byAspect > image->pitch() * 0.7;
    const int width = fits && image->width() != WidthOf(inspection.set, DumpRole::kMain)
                          ? static_cast<int>(std::lround(byAspect))
                          : image->width();
    CheckCrop(inspection, "i32Aux", values.auxCropWidth, values.auxCropHeight,
              {width, image->height()});
}

} // namespace

void CheckParameters(Inspection& inspection) {
    if (!inspection.parameters) {
        return; // missing or damaged, which is said already
    }
    const DumpParameters& values = *inspection.parameters;
    if (values.blur < 0 || values.blur > 100) {
        ReportProblem(inspection,
                      "i32BlurIntensity: expected 0 to 100, found " + std::to_string(values.blur));
    }
    if (values.degree < 0 || values.degree > 270 || values.degree % 90 != 0) {
        ReportProblem(inspection, "i32ImageDegree: expected 0, 90, 180 or 270, found " +
                                      std::to_string(values.degree));
    }
    // The parameters' own name tells the main image's size.
    const DumpName& name = inspection.set.file(DumpRole::kParameters)->name;
    const PictureSize image{name.first, name.height};
    if (values.focusX < 0 || values.focusY < 0 || values.focusX >= image.width ||
        values.focusY >= image.height) {
        ReportProblem(inspection, "ptFocus: expected a point of the image, " +
                                      Pair(image.width, image.height, 'x') + ", found " +
                                      Pair(values.focusX, values.focusY, ','));
    }
    CheckCrop(inspection, "i32Main", values.mainCropWidth, values.mainCropHeight, image);
    CheckAuxCrop(inspection);
    for (std::size_t i = 0; i < values.faces.size(); ++i) {
        CheckFace(inspection, i, values.faces[i], image);
    }
}
