#include "tests/pipeline/capture_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <span>

#include "host/filesystem/device_root.h"
#include "host/properties/property_control.h"
#include "host/refocus/calibration.h"
#include "host/settings/settings_control.h"
#include "platform/log.h"
#include "tests/refocus/stereo_scene.h"

namespace capture {
namespace {

constexpr int kPadding = 32;

// Each sample the mean of those that it covers; the pair's chroma is that of its surroundings.
void ReducePlanes(stereo_scene::GuardedImage& from, host::Image& to) {
    const int scale = from.width() / to.width();
    for (int y = 0; y < to.height(); ++y) {
        for (int x = 0; x < to.width(); ++x) {
            int sum = 0;
            for (int i = 0; i < scale * scale; ++i) {
                sum += from.luma(x * scale + i % scale, y * scale + i / scale);
            }
            to.row(0, y)[x] = static_cast<std::uint8_t>(sum / (scale * scale));
            if (y < to.height() / 2) {
                to.row(1, y)[x] = from.chroma(x / 2 * 2 * scale + x % 2, y * scale);
            }
        }
    }
}

void WriteFile(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

} // namespace

CaptureTest::CaptureTest(int width, int height)
    : useCase_{{width, height}, {width / 2, height / 2}, {width, height}},
      main_(host::Image::Format::Nv12, width, height, width + kPadding),
      aux_(host::Image::Format::Nv12, width / 2, height / 2, width / 2 + 2 * kPadding),
      output_(main_), depth_(host::Image::Format::Y8, width + kPadding, height, width + kPadding) {
    stereo_scene::Pair pair = stereo_scene::Render({.width = width, .height = height});
    ReducePlanes(pair.main, main_);
    ReducePlanes(pair.aux, aux_);

    char folder[] = "/tmp/capture-test-XXXXXX";
    root_ = mkdtemp(folder);
    std::filesystem::create_directories(root_ / "data/vendor/camera");
    const auto calibration = refocus::WriteCalibration(refocus::CalibrationOfRectifiedPair(
        {width, height, width / 2, height / 2, 300.0, 12.0, 0.0}));
    WriteFile(root_ / "mnt/vendor/persist/camera/dualcam_cali.bin", calibration);
    WriteFile(root_ / "vendor/etc/camera/dualcam_cali.bin", calibration);
    Library();
    host::SetDeviceRoot(root_);
    host::ClearProperties();
    host::SetImageDegree(0);
    host::Faults::Reset();
    Errors();
}

CaptureTest::~CaptureTest() {
    host::Faults::Reset();
    EXPECT_TRUE(host::OpenDeviceFiles().empty());
    EXPECT_TRUE(host::TakeStrayComplaints().empty());
    std::filesystem::remove_all(root_);
}

const host::NodeLibrary& CaptureTest::Library() {
    static const host::NodeLibrary library(NODE_LIBRARY, ENGINE_LIBRARY);
    return library;
}

host::RequestResult CaptureTest::Capture(host::Node& node) {
    std::fill(output_.bytes().begin(), output_.bytes().end(), std::uint8_t{0x55});
    host::Request request = host::PlainRequest(useCase_, ++frame_);
    request.inputs = {&main_, &aux_};
    request.output = &output_;
    request.depth = &depth_;
    return node.Process(request);
}

const host::Image& CaptureTest::Rendered() {
    if (!rendered_) {
        host::Node node(Library(), useCase_);
        Capture(node);
        EXPECT_FALSE(OutputIsMain()) << "the picture cannot be told from a copy";
        rendered_ = output_;
    }
    return *rendered_;
}

std::vector<std::string> CaptureTest::Errors() {
    std::vector<std::string> formats;
    for (const host::LogRecord& record : log_.Take()) {
        // The line that tells which calibration is in use is no error, whatever its priority.
        const bool news = record.format.find("read  cali data success") != std::string::npos;
        if (record.priority == ANDROID_LOG_ERROR && !news) {
            formats.push_back(record.format);
        }
    }
    return formats;
}

} // namespace capture
