#include "host/picture/similarity.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace {

constexpr double kPeak = 255.0;

double Compared(const cv::Mat& picture, const cv::Mat& mask) {
    return mask.empty() ? static_cast<double>(picture.total()) : cv::countNonZero(mask);
}

// The index around each pixel.
cv::Mat SsimMap(const cv::Mat& first, const cv::Mat& second) {
    // K1 = 0.01, K2 = 0.03 and a Gaussian window of 11 pixels with a deviation of 1.5, as in the
    // paper.
    constexpr double kC1 = 0.01 * kPeak * 0.01 * kPeak;
    constexpr double kC2 = 0.03 * kPeak * 0.03 * kPeak;
    const auto windowMean = [](const cv::Mat& values) {
        cv::Mat mean;
        cv::GaussianBlur(values, mean, {11, 11}, 1.5);
        return mean;
    };
    cv::Mat a;
    cv::Mat b;
    first.convertTo(a, CV_32F);
    second.convertTo(b, CV_32F);
    const cv::Mat meanA = windowMean(a);
    const cv::Mat meanB = windowMean(b);
    const cv::Mat meansSquared = meanA.mul(meanA) + meanB.mul(meanB);
    const cv::Mat meansProduct = meanA.mul(meanB);
    // The index needs only the sum of the two variances, which one filter gives.
    const cv::Mat variances = windowMean(a.mul(a) + b.mul(b)) - meansSquared;
    const cv::Mat covariance = windowMean(a.mul(b)) - meansProduct;
    const cv::Mat similar = (2 * meansProduct + kC1).mul(2 * covariance + kC2);
    const cv::Mat all = (meansSquared + kC1).mul(variances + kC2);
    return similar / all;
}

} // namespace

double Psnr(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask) {
    const double samples = Compared(a, mask) * a.channels();
    // Equal pictures divide by 0, which gives the infinity that the header promises.
    return 10.0 * std::log10(kPeak * kPeak * samples / cv::norm(a, b, cv::NORM_L2SQR, mask));
}

// In strips, since a large picture's maps would fill the memory.
double MeanSsim(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask) {
    // A strip has so many rows and is computed with those around it that its windows reach.
    constexpr int kStrip = 128;
    constexpr int kReach = 5; // of the window
    double sum = 0;
    for (int top = 0; top < a.rows; top += kStrip) {
        const cv::Range rows(top, std::min(top + kStrip, a.rows));
        const cv::Range seen(std::max(top - kReach, 0), std::min(rows.end + kReach, a.rows));
        const cv::Mat map = SsimMap(a.rowRange(seen), b.rowRange(seen))
                                .rowRange(rows.start - seen.start, rows.end - seen.start);
        const cv::Mat compared = mask.empty() ? cv::Mat() : mask.rowRange(rows);
        sum += cv::mean(map, compared)[0] * Compared(map, compared);
    }
    return sum / Compared(a, mask);
}
