#pragma once

#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace quality {

// Made-up scenes of flat, textured surfaces in front of a pair of identical, rectified cameras.
//
// All lengths are in widths of the main image: x and y from its upper left corner, y down;
// disparity too, so that a scene has any size in pixels. A plane in space has a disparity that is
// linear in the image's coordinates.
struct Plane {
    float atOrigin = 0.0f;
    float perX = 0.0f;
    float perY = 0.0f;

    float At(float x, float y) const { return atOrigin + perX * x + perY * y; }
};

// Linear light (red, green, blue; 1 is the brightest that a picture holds) and cover, 0 or 1.
using Paint = std::function<cv::Vec4f(float x, float y)>;

// What a plane shows where the main camera would see it if nothing hid it: also behind nearer
// surfaces and beyond the image's border.
class Surface {
public:
    // Clear everywhere. `bounds` is what it may cover; texels per width of the image: of a texture
    // that is sampled by the nearest texel.
    Surface(const Plane& plane, const cv::Rect2f& bounds, int texelsPerWidth);

    // Paints where the paint covers.
    void Fill(const Paint& paint);
    // Paints along a line, from one width at its first to another at its last point.
    void Stroke(const std::vector<cv::Point2f>& line, float widthFrom, float widthTo,
                const Paint& paint);

    const Plane& plane() const { return plane_; }
    const cv::Mat& texels() const { return texels_; } // CV_32FC4, as Paint gives them
    cv::Point2f origin() const { return origin_; }    // of texel (0, 0)'s outer corner
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
    std::vector<Surface> surfaces; // in any order: the nearest at each place hides the others
    cv::Point2f focus;
};

constexpr float kSceneHeight = 0.75f; // in widths

// The same scene for the same number, whatever the machine.
constexpr int kSceneCount = 6;
Scene MakeScene(int number, int imageWidth);

} // namespace quality
