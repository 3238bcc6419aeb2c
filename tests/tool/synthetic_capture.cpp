#include "tests/tool/synthetic_capture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <random>
#include <utility>

#include "host/filesystem/device_root.h"
#include "host/log/log_control.h"
#include "host/picture/nv12.h"
#include "host/properties/property_control.h"
#include "host/refocus/calibration.h"
#include "tests/tool/tool_runner.h"
#include "tools/dumps/dump_set.h"

namespace fs = std::filesystem;

// What the seed decides.
struct CaptureMaker::Plan {
    explicit Plan(std::uint32_t seed);

    std::mt19937 random;
    int width = 0;
    int height = 0;
    int pitch = 0;
    int auxWidth = 0;
    int auxHeight = 0;
    int auxPitch = 0;
    std::uint32_t sensorWidth = 0;
    std::uint32_t sensorHeight = 0;
    std::uint32_t auxSensorWidth = 0;
    std::uint32_t auxSensorHeight = 0;
    ChiRect crop{}; // of the main sensor
    ChiRect auxCrop{};
    std::uint32_t degree = 0;
    bool photo = false;

    // Of an already rectified pair of these sensors, mounted as the images stand.
    std::array<std::uint8_t, refocus::kCalibrationBytes> Calibration() const;

    int Below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
    int Between(int low, int high) { return low + Below(high - low + 1); }
};

namespace {

constexpr char kDumpFolder[] = "data/vendor/camera";

int Aligned(int width, int alignment) {
    return (width + alignment - 1) / alignment * alignment;
}

// The middle part of a sensor, after digital zoom.
ChiRect Zoomed(std::uint32_t width, std::uint32_t height, double zoom) {
    const auto w = static_cast<std::uint32_t>(width / zoom) / 2 * 2;
    const auto h = static_cast<std::uint32_t>(height / zoom) / 2 * 2;
    return {static_cast<std::int32_t>((width - w) / 2), static_cast<std::int32_t>((height - h) / 2),
            w, h};
}

RgbImage Part(const RgbImage& picture, int left, int top, int width, int height) {
    return Paint(width, height, [&](int x, int y) { return ColourAt(picture, left + x, top + y); });
}

void FillRequest(std::mt19937& random, host::Request& request) {
    const auto between = [&random](int low, int high) {
        return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
    };
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    const auto& sensor = camera.scalerCropRegion;
    const auto sensorWidth = static_cast<int>(sensor.width);
    const auto sensorHeight = static_cast<int>(sensor.height);
    const int x = between(sensorWidth / 10, sensorWidth * 9 / 10);
    const int y = between(sensorHeight / 10, sensorHeight * 9 / 10);
    const int reach = between(0, sensorWidth / 12);
    camera.focusRect = {x - reach, y - reach, x + reach, y + reach};
    camera.afMode = random() % 2 == 0 ? 1 : kAfModeContinuousPicture;
    const int faces = random() % 2 == 0 ? 0 : between(1, 4);
    for (int i = 0; i < faces; ++i) {
        const int w = between(1, sensorWidth / 4); // some too small to count
        const int h = between(1, sensorHeight / 4);
        camera.faces[i] = {between(0, sensorWidth - w), between(0, sensorHeight - h),
                           static_cast<std::uint32_t>(w), static_cast<std::uint32_t>(h)};
    }
    camera.faceCount = static_cast<std::uint8_t>(faces);
    if (faces > 0 && random() % 2 == 0) {
        request.selectedFace = static_cast<std::uint32_t>(between(0, faces - 1));
    }
    if (random() % 2 == 0) {
        request.faceRotation = between(-180, 360);
    }
    request.metadata.blurLevel = static_cast<std::uint32_t>(between(20, 100));
}

void Write(const fs::path& path, const auto& bytes) {
    fs::create_directories(path.parent_path());
    WriteBytes(path, {bytes.begin(), bytes.end()});
}

void FillPadding(host::Image& image, std::uint8_t value) {
    for (int plane = 0; plane < image.planeCount(); ++plane) {
        for (int row = 0; row < image.planeRows(plane); ++row) {
            std::uint8_t* at =
                image.plane(plane) + static_cast<std::ptrdiff_t>(row) * image.pitch();
            std::fill(at + image.rowBytes(plane), at + image.pitch(), value);
        }
    }
}

} // namespace

std::string StemOf(std::uint32_t seed) {
    char stem[40];
    std::snprintf(stem, sizeof stem, "IMG_2024%02u%02u_%02u%02u%02u", 1 + seed / 2419200 % 12,
                  1 + seed / 86400 % 28, seed / 3600 % 24, seed / 60 % 60, seed % 60);
    return stem;
}

CaptureMaker::Plan::Plan(std::uint32_t seed) : random(seed * 7919u + 17u) {
    constexpr std::array<std::pair<int, int>, 5> kAspects{
        {{4, 3}, {16, 9}, {1, 1}, {3, 4}, {3, 2}}};
    constexpr std::array<int, 6> kAlignments{2, 16, 32, 64, 128, 256};
    constexpr std::array<std::uint32_t, 4> kDegrees{0, 90, 180, 270};
    const auto [across, down] = kAspects[static_cast<std::size_t>(Below(5))];
    const auto alignment = [this, kAlignments] {
        return kAlignments[static_cast<std::size_t>(Below(6))];
    };
    width = Between(160, 320) * 2;
    height = width * down / across / 2 * 2;
    pitch = Aligned(width, alignment());
    auxWidth = width;
    auxHeight = height;
    auxPitch = pitch;
    if (Below(3) == 0) {
        auxHeight = height * Between(60, 110) / 100 / 2 * 2;
        auxWidth = auxHeight * width / height / 2 * 2;
        auxPitch = Aligned(auxWidth, alignment());
    }
    // Sensors of 4:3, at least as fine as the images and of the same field of view.
    const double fine = Between(100, 250) / 100.0;
    const int longer = std::max(width, height * 4 / 3);
    sensorWidth = static_cast<std::uint32_t>(longer * fine) / 8 * 8 + 8;
    sensorHeight = sensorWidth * 3 / 4;
    auxSensorWidth = Below(2) == 0 ? sensorWidth : sensorWidth * 3 / 4 / 8 * 8;
    auxSensorHeight = auxSensorWidth * 3 / 4;
    const double zoom = Below(2) == 0 ? 1.0 : Between(100, 190) / 100.0;
    crop = Zoomed(sensorWidth, sensorHeight, zoom);
    auxCrop = Zoomed(auxSensorWidth, auxSensorHeight, zoom);
    degree = kDegrees[static_cast<std::size_t>(Below(4))];
}

std::array<std::uint8_t, refocus::kCalibrationBytes> CaptureMaker::Plan::Calibration() const {
    refocus::Calibration calibration = refocus::CalibrationOfRectifiedPair(
        {static_cast<int>(sensorWidth), static_cast<int>(sensorHeight),
         static_cast<int>(auxSensorWidth), static_cast<int>(auxSensorHeight), 1.0 * sensorWidth,
         12.0, 0.0});
    calibration.mountAngle = static_cast<std::int32_t>(degree);
    return refocus::WriteCalibration(calibration);
}

CaptureMaker::CaptureMaker(const fs::path& node, const fs::path& engine, RgbImage photoLeft,
                           RgbImage photoRight)
    : library_(node, engine), photoLeft_(std::move(photoLeft)), photoRight_(std::move(photoRight)) {
    host::SetLogSink([](const host::LogRecord&) {}); // it is the dumps that are wanted
}

void CaptureMaker::PaintPair(const Plan& plan, SyntheticCapture& capture, host::Image& main,
                             host::Image& aux) {
    RgbImage left;
    RgbImage right;
    if (plan.photo) {
        std::mt19937 random = plan.random;
        const auto below = [&random](int limit) {
            return static_cast<int>(random() % static_cast<unsigned>(limit));
        };
        // As large a part of the picture's aspect as fits, or a somewhat smaller one.
        const double fit =
            std::min(1.0 * photoLeft_.width / plan.width, 1.0 * photoLeft_.height / plan.height) *
            (70 + below(31)) / 100;
        const int w = static_cast<int>(plan.width * fit) / 2 * 2;
        const int h = static_cast<int>(plan.height * fit) / 2 * 2;
        const int x = below(photoLeft_.width - w + 1);
        const int y = below(photoLeft_.height - h + 1);
        left = Part(photoLeft_, x, y, w, h);
        right = Part(photoRight_, x, y, w, h);
    } else {
        const SyntheticScene& scene = *capture.scene;
        left = scene.Paint(plan.width, plan.height, {});
        right = scene.Paint(plan.auxWidth, plan.auxHeight, {.aux = true});
    }
    main = ScaleNv12(RgbToNv12(left, 0), plan.width, plan.height, plan.pitch);
    aux = ScaleNv12(RgbToNv12(right, 0), plan.auxWidth, plan.auxHeight, plan.auxPitch);
}

std::vector<SyntheticCapture> CaptureMaker::MakeAll(std::uint32_t firstSeed, int count,
                                                    const fs::path& folder) {
    std::vector<SyntheticCapture> captures;
    for (std::uint32_t seed = firstSeed; std::cmp_less(captures.size(), count); ++seed) {
        if (auto capture = Make(seed, folder)) {
            captures.push_back(std::move(*capture));
        }
    }
    return captures;
}

std::optional<SyntheticCapture> CaptureMaker::Make(std::uint32_t seed, const fs::path& folder) {
    Plan plan(seed);
    plan.photo = photoLeft_.width > 0 && plan.Below(3) == 0;
    SyntheticCapture capture{
        seed,        folder,      StemOf(seed),  folder / (StemOf(seed) + ".calibration"),
        plan.width,  plan.height, plan.auxWidth, plan.auxHeight,
        std::nullopt};
    if (!plan.photo) {
        capture.scene.emplace(seed);
    }
    host::Image main;
    host::Image aux;
    PaintPair(plan, capture, main, aux);
    host::Image output(host::Image::Format::Nv12, plan.width, plan.height, plan.pitch);
    host::Image depth(host::Image::Format::Y8, plan.width, plan.height, plan.pitch);
    const auto padding = static_cast<std::uint8_t>(plan.Below(2) == 0 ? 0 : plan.Below(256));
    for (host::Image* image : {&main, &aux, &output}) {
        FillPadding(*image, padding);
    }

    const auto sensor = [](std::uint32_t width, std::uint32_t height) {
        return Size{static_cast<int>(width), static_cast<int>(height)};
    };
    const host::UseCase useCase{sensor(plan.sensorWidth, plan.sensorHeight),
                                sensor(plan.auxSensorWidth, plan.auxSensorHeight),
                                {plan.width, plan.height},
                                plan.degree};
    host::Request request = host::PlainRequest(useCase, seed);
    request.metadata.cameraMetadata[0].ifeAppliedCrop = plan.crop;
    request.metadata.cameraMetadata[1].ifeAppliedCrop = plan.auxCrop;
    FillRequest(plan.random, request);
    request.inputs = {&main, &aux};
    request.output = &output;
    request.depth = &depth;
    Write(capture.calibration, plan.Calibration());

    const fs::path root = folder / (capture.stem + ".device");
    const bool rendered = RunOnDevice(root, plan, useCase, request);
    if (rendered) {
        for (const auto& entry : fs::directory_iterator(root / kDumpFolder)) {
            DumpName name = ParseDumpName(entry.path().filename().string()).value();
            name.stem = capture.stem;
            fs::rename(entry.path(), folder / DumpFileName(name));
        }
    }
    fs::remove_all(root);
    return rendered ? std::optional(capture) : std::nullopt;
}

// True where the engine made the output; the dumps lie in the device's folder.
bool CaptureMaker::RunOnDevice(const fs::path& root, const Plan& plan, const host::UseCase& useCase,
                               host::Request& request) {
    Write(root / "mnt/vendor/persist/camera/dualcam_cali.bin", plan.Calibration());
    fs::create_directories(root / kDumpFolder);
    host::SetDeviceRoot(root);
    property_set("persist.vendor.camera.tessola.cb.dumpimg", "1");
    host::RequestResult result;
    {
        host::Node node(library_, useCase);
        result = node.Process(request);
    }
    host::SetDeviceRoot({});
    return result.published && result.published->result.depthEffectInfo == 0;
}
