#pragma once

#include <opencv2/core.hpp>

// How much alike two pictures are. Both of one size and type, 8 bits a sample; `mask`: CV_8UC1, the
// pixels to compare are not 0; empty: all of them. At least one pixel is compared.

// Peak signal-to-noise ratio over all channels, in dB against a peak of 255; infinite where all
// compared samples are equal. cv::PSNR takes no mask.
double Psnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask);

// The mean structural similarity index of pictures of one channel, with the window and the
// constants of Wang, Bovik, Sheikh and Simoncelli, "Image quality assessment", 2004.
double MeanSsim(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask);
