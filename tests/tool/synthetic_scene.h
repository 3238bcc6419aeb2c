#pragma once

#include <cstdint>
#include <vector>

#include "host/picture/rgb_image.h"

// A synthetic scene with structure at every scale, colours and depth: a far wall and objects in
// front of it. Lengths are shares of the picture's width.
class SyntheticScene {
public:
    explicit SyntheticScene(std::uint32_t seed);

    struct View {
        bool aux = false;
        double panX = 0; // how far the camera has turned
        double panY = 0;
        double walkX = 0; // how far the nearest object has moved
        double walkY = 0;
    };

    RgbImage Paint(int width, int height, const View& view) const;

private:
    struct Layer {
        double disparity = 0;
        bool ellipse = false;
        double x = 0, y = 0, radiusX = 0, radiusY = 0; // middle and extent; unused by the wall
        std::uint32_t texture = 0;
        double scale = 0; // periods of the coarsest structure across the picture
        double first[3] = {};
        double second[3] = {};

        bool Covers(double px, double py) const;
    };

    const Layer& LayerAt(double x, double y, const View& view, double& u, double& v) const;
    static Colour ColourOf(const Layer& layer, double u, double v, double grain);

    std::vector<Layer> layers_; // nearest first, the wall last
    double gain_[3] = {};       // of the aux camera's colours, relative to the main camera's
    std::uint32_t seed_;
};
