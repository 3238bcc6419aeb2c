#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace quality {

// Synthetic scenes of flat, textured surfaces in front of a pair of identical, rectified cameras.
//
// All lengths are in widths of the main image, disparities included, so that a scene can be traced
// at any size: x and y from the image's upper left corner, y down. The disparity of a plane in
// space is linear in these coordinates.
struct Plane {
    float atOrigin = 0.0f;
    float perX = 0.0f;
    float perY = 0.0f;

    float At(float x, float y) const { return atOrigin + perX * x + perY * y; }
};

// Linear light (red, green, blue; 1 is white) and opacity, 0 or 1.
using Paint = std::function<cv::Vec4f(float x, float y)>;

// A textured plane, in the coordinates of the main image, including what nearer surfaces hide and
// what lies beyond the image's border.
class Surface {
public:
    // Transparent everywhere. `bounds` limits what can be painted. The texture has `texelsPerWidth`
    // texels per width of the image and is sampled at the nearest one.
    Surface(const Plane& plane, const cv::Rect2f& bounds, int texelsPerWidth);

    // Paints the texels for which the paint is opaque.
    void Fill(const Paint& paint);
    // Paints a line whose width changes evenly from its first to its last point.
    void Stroke(const std::vector<cv::Point2f>& line, float widthFrom, float widthTo,
                const Paint& paint);

    const Plane& plane() const { return plane_; }
    const cv::Mat& texels() const { return texels_; } // CV_32FC4, as Paint gives them
    cv::Point2f origin() const { return origin_; }    // upper left corner of texel (0, 0)
    float texelsPerWidth() const { return density_; }

private:
    cv::Point2f CentreOf(int column, int row) const;

    Plane plane_;
    float density_;
    cv::Point2f origin_;
    cv::Mat texels_;
};

struct Scene {
    std::string name;
    std::vector<Surface> surfaces; // in any order: the nearest at each position hides the others
    cv::Point2f focus;
    float exposure = 1.0f; // factor of all light; what exceeds 1 is clipped
    int noise = 2;         // of the photos, code values
};

constexpr float kSceneHeight = 0.75f; // in widths

// A scene of random surfaces, textures, depths, thin objects, hair, lamps, windows, gradients,
// noise, exposure and focus (near, middle, far). The same scene for the same seed on every machine.
// `imageWidth`, in pixels, decides the textures' resolution.
Scene RandomScene(std::uint32_t seed, int imageWidth);

} // namespace quality
