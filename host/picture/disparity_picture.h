#pragma once

#include <cstdint>
#include <optional>

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// A depth output with room for the disparity data of a main image like this.
host::Image DepthImage(const host::Image& main);

// The engine's disparity data, of which `size` bytes are valid, in false colours: the values as
// they are, larger is nearer. Nothing where there is no data, or not one byte for each byte of the
// main image's rows.
std::optional<RgbImage> DisparityPicture(const host::Image& depth, std::int32_t size);
