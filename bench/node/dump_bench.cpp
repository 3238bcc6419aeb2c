#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "bench/node/comparison.h"
#include "bench/node/scene.h"
#include "host/filesystem/device_root.h"

namespace bench {
namespace {

constexpr char kFlatFile[] = "/data/vendor/camera/flat";

std::string RealPath(const std::string& path) {
    return host::DeviceRoot().string() + path;
}

// As the dumps open their files; from the second time on it is there and keeps its pages.
void WriteFlat(const std::uint8_t* bytes, std::size_t count) {
    const int file = open(kFlatFile, O_RDWR | O_CREAT, 0777);
    const ssize_t written = write(file, bytes, count);
    close(file);
    if (written != static_cast<ssize_t>(count)) {
        throw std::runtime_error("no room for the dumps' files");
    }
}

std::string BytesOf(const std::string& path) {
    std::ifstream file(RealPath(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Of all dumped images of requests.
std::uintmax_t DumpedImageBytes() {
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(RealPath(kDumpFolder))) {
        const std::string name = entry.path().filename();
        if (name.starts_with("IMG_2") && name.ends_with(".nv12")) {
            bytes += entry.file_size();
        }
    }
    return bytes;
}

Comparison DumpImage(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, 0);
    const auto probe = std::make_shared<Probe>();
    const auto dump = [=] {
        PLIM_OFFSCREEN image = scene->Main();
        probe->DumpYUVData(&image, "IMG_bench");
    };
    const auto flat = [=] { WriteFlat(scene->Bytes(), shape.Bytes()); };
    const std::string path = "/data/vendor/camera/IMG_bench_" + std::to_string(shape.pitch) + "x" +
                             std::to_string(shape.height) + ".nv12";
    return {.measured = {"", dump}, .peers = {{{"one write", flat}, 1.1}}, .works = [=] {
                std::ofstream(RealPath(kFlatFile)); // emptied: another benchmark's is longer
                flat();
                dump();
                return BytesOf(path) == BytesOf(kFlatFile);
            }};
}

Comparison DumpRequest(const Shape& shape) {
    const auto scene = std::make_shared<Scene>(shape, 10);
    const auto probe = std::make_shared<Probe>();
    const frame_params_t params = probe->Collect(*scene);
    // At a fixed time, so that every call writes the same files and the disk does not fill.
    const auto dump = [=] { probe->DumpAndSaveYUV(params, timeval{1'700'000'000, 0}, "IMG_"); };
    const auto flat = [=] { WriteFlat(scene->Bytes(), 3 * shape.Bytes()); };
    return {.measured = {"", dump}, .peers = {{{"one write", flat}, 1.1}}, .works = [=] {
                dump();
                return DumpedImageBytes() == 3 * shape.Bytes();
            }};
}

} // namespace

void RegisterDumps(const Plan& plan) {
    const Shape photo = plan.shapes[0];
    Register(plan, "DumpYUVData/" + photo.Name(), [=] { return DumpImage(photo); });
    Register(plan, "DumpAndSaveYUV/" + photo.Name(), [=] { return DumpRequest(photo); });
}

} // namespace bench
