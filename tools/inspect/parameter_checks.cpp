// Checks whether the parameters can be those of the images.

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

#include <fmt/format.h>

#include "host/picture/geometry.h"
#include "tools/dumps/dump_image.h"
#include "tools/inspect/checks.h"

namespace {

template <typename... Values>
void Report(Inspection& inspection, fmt::format_string<Values...> format, Values&&... values) {
    inspection.Report(Problem::kParameters, DumpRole::kParameters,
                      fmt::format(format, std::forward<Values>(values)...));
}

// The part of the sensor that an image shows has the image's aspect, up to rounding.
void CheckCrop(Inspection& inspection, const char* camera, Size crop, Size image) {
    if (crop.width <= 0 || crop.height <= 0) {
        Report(inspection, "{}_CropNoScale {}x{}: expected a part of the sensor", camera,
               crop.width, crop.height);
        return;
    }
    const double ratio = (1.0 * crop.width / crop.height) / (1.0 * image.width / image.height);
    // The node rounds the part's sides to whole pixels at both ends, which changes the aspect of a
    // small part or image by much.
    const double tolerance =
        0.004 + 3.0 / std::min({crop.width, crop.height, image.width, image.height});
    if (std::abs(std::log(ratio)) > tolerance) {
        Report(inspection, "{}_CropNoScale {}x{}: expected the aspect of the image, {}x{}", camera,
               crop.width, crop.height, image.width, image.height);
    }
}

// The width of an aux image of another size was concluded from its crop. The crop is checked by
// itself: with its aspect the rows must be a little shorter than the pitch.
void CheckAuxCrop(Inspection& inspection) {
    const auto& image = inspection.image(DumpRole::kAux);
    if (!image) {
        return;
    }
    const DumpParameters& values = *inspection.parameters;
    const double byAspect =
        1.0 * image->height() * values.auxCropWidth / std::max(values.auxCropHeight, 1);
    const bool fits = byAspect < image->pitch() + 4 && byAspect > image->pitch() - kMostPadding &&
                      byAspect > image->pitch() * 0.7;
    const int width = fits && image->width() != WidthOf(inspection.set, DumpRole::kMain)
                          ? static_cast<int>(std::lround(byAspect))
                          : image->width();
    CheckCrop(inspection, "i32Aux", {values.auxCropWidth, values.auxCropHeight},
              {width, image->height()});
}

void CheckFace(Inspection& inspection, std::size_t index, Size image) {
    const DumpedFace& face = inspection.parameters->faces[index];
    const auto report = [&](const std::string& expected) {
        Report(inspection, "face {} {},{} to {},{}: expected {}", index, face.left, face.top,
               face.right, face.bottom, expected);
    };
    // A face of less than a pixel is dumped with its right edge one before its left one.
    if (face.left < 0 || face.top < 0 || face.right < face.left - 1 || face.bottom < face.top - 1) {
        report("left, top, right, bottom");
    } else if (std::midpoint(face.left, face.right) >= image.width ||
               std::midpoint(face.top, face.bottom) >= image.height) {
        // A face may reach over an edge, since the node clips none: only its middle counts.
        report(fmt::format("it in the image, {}x{}", image.width, image.height));
    }
    // A request has one rotation for all its faces.
    const bool possible = face.orient >= 1 && face.orient <= 4;
    if (!possible || face.orient != inspection.parameters->faces.front().orient) {
        Report(inspection, "face {} orient: expected {}, found {}", index,
               possible ? "that of the first face" : "1 to 4", face.orient);
    }
}

} // namespace

void CheckParameters(Inspection& inspection) {
    if (!inspection.parameters) {
        return; // missing or damaged, which has been reported
    }
    const DumpParameters& values = *inspection.parameters;
    if (values.blur < 0 || values.blur > 100) {
        Report(inspection, "i32BlurIntensity: expected 0 to 100, found {}", values.blur);
    }
    if (values.degree < 0 || values.degree > 270 || values.degree % 90 != 0) {
        Report(inspection, "i32ImageDegree: expected 0, 90, 180 or 270, found {}", values.degree);
    }
    // The parameters' own name gives the main image's size.
    const DumpName& name = inspection.set.file(DumpRole::kParameters)->name;
    const Size image{name.first, name.height};
    if (values.focusX < 0 || values.focusY < 0 || values.focusX >= image.width ||
        values.focusY >= image.height) {
        Report(inspection, "ptFocus: expected a point of the image, {}x{}, found {},{}",
               image.width, image.height, values.focusX, values.focusY);
    }
    CheckCrop(inspection, "i32Main", {values.mainCropWidth, values.mainCropHeight}, image);
    CheckAuxCrop(inspection);
    for (std::size_t i = 0; i < values.faces.size(); ++i) {
        CheckFace(inspection, i, image);
    }
}
