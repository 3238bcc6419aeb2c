#pragma once

#include <opencv2/core.hpp>

namespace refocus {

// Memory of the large images that the steps make. A released image's memory is kept for the images
// of the next picture: new pages from the system would cost a third of a picture's time. All
// instances and threads share it.

// An image with undefined content.
cv::Mat NewImage(cv::Size size, int type);

// Frees the memory that no image has used since the last call, as after a change of size.
void FreeUnusedImageMemory();

// Frees all memory that no image uses now.
void FreeImageMemory();

} // namespace refocus
