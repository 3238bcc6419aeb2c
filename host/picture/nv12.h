#pragma once

#include "host/picture/image.h"
#include "host/picture/rgb_image.h"

// Between pictures and the pipeline's NV12 images. Colours are full-range BT.601, as in JPEG files.

// An odd last column or row is left out. `pitch` 0: as wide as the picture.
host::Image RgbToNv12(const RgbImage& picture, int pitch);

RgbImage Nv12ToRgb(const host::Image& image);

host::Image ScaleNv12(const host::Image& image, int width, int height, int pitch);
