#include "tests/contract/fixture.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace contract {
namespace {

constexpr std::uint8_t kBlank = 0x11;

std::string g_root;

std::FILE* OpenStream(const char* path, const char* mode) {
    return platform().calls.Fails("fopen") ? nullptr : std::fopen((g_root + path).c_str(), mode);
}

int OpenFile(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return platform().calls.Fails("open") ? -1 : open((g_root + path).c_str(), flags, mode);
}

} // namespace

Image::Image(int imageWidth, int imageHeight, int imagePitch, std::uint8_t seed,
             std::uint32_t portIndex, std::uint32_t format)
    : width(imageWidth), height(imageHeight), pitch(imagePitch),
      bytes(static_cast<std::size_t>(imagePitch * (imageHeight + imageHeight / 2))) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251 + seed * 61);
    }
    list.SetWords(8, {width, height, static_cast<std::int32_t>(format)});
    list.SetWords(24, {width, height, pitch});
    list.Set<std::uint32_t>(232, 2);
    list.Set<std::uint64_t>(240, static_cast<std::uint64_t>(pitch * height));
    list.Set(336, bytes.data());
    list.Set(344, bytes.data() + pitch * height);
    list.Set(824, portIndex);
}

std::string Image::Pixels(int columns, int rows) const {
    std::string pixels;
    for (int plane = 0; plane < 2; ++plane) {
        for (int row = 0; row < rows / (plane + 1); ++row) {
            const std::uint8_t* start = bytes.data() + (plane * height + row) * pitch;
            pixels.append(start, start + columns);
        }
    }
    return pixels;
}

std::string Image::Padding() const {
    std::string padding;
    for (int row = 0; row < height + height / 2; ++row) {
        const std::uint8_t* start = bytes.data() + row * pitch;
        padding.append(start + width, start + pitch);
    }
    return padding;
}

NodeTest::NodeTest() {
    platform() = {};
    setenv("TZ", "XXX-5:30", 1); // the node reads it at its first dump
    char folder[] = "/tmp/node-contract-XXXXXX";
    root_ = mkdtemp(folder);
    g_root = root_.string();
    for (const std::filesystem::path path : {kFirstCalibration, kSecondCalibration}) {
        std::filesystem::create_directories(root_ / path.parent_path().relative_path());
    }
    std::filesystem::create_directories(root_ / std::filesystem::path(kDumpFolder).relative_path());
    WriteCalibration(kFirstCalibration, 2048);

    library_ = dlopen(NODE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) {
        throw std::runtime_error(dlerror());
    }
    fopen_ = std::make_unique<support::ImportPatch>(library_, "fopen",
                                                    reinterpret_cast<void*>(&OpenStream));
    open_ = std::make_unique<support::ImportPatch>(library_, "open",
                                                   reinterpret_cast<void*>(&OpenFile));
    callbacks_.Set<std::uint32_t>(0, 248);
    reinterpret_cast<void (*)(void*)>(dlsym(library_, "ChiNodeEntry"))(callbacks_.data());
    Call(104, Interface().data());

    EXPECT_TRUE(platform().log.empty()) << "no node has switched debug lines on";

    createInfo_.Set<std::uint32_t>(0, 112);
    createInfo_.Set<void*>(8, &platform());
    createInfo_.SetWords(24, {501, 0, 0x1203, 0, 2});
    destroyInfo_.Set<std::uint32_t>(0, 16);

    cameraConfigs_.Set<std::uint32_t>(0, 2);
    for (std::size_t i = 0; i < 8; ++i) {
        cameraConfigs_.Set(8 + 2056 * i, static_cast<std::uint32_t>(10 * (i + 1)));
        cameraConfigs_.Set(12 + 2056 * i, static_cast<float>(8 - i));
    }
    cameraConfigs_.Set<std::uint32_t>(16456, 20);
    platform().metadata[TagId("PhysicalCameraConfigs") | 0x04000000] = cameraConfigs_.data();
    platform().metadata[TagId("PhysicalCameraInputConfig") | 0x20000000] = inputConfig_.data();
    platform().metadata[TagId("InputMetadataBokeh") | 0x08000000] = metadata_.data();

    metadata_.Set<std::uint32_t>(4, 37);
    metadata_.Set<std::uint32_t>(16, 10);
    DescribeCamera(0, {8, 6, 32, 24}, {32, 24, 192, 144}, {14, 11, 20, 18}, {0, 0, 128, 96});
    DescribeCamera(1, {3, 5, 28, 10}, {42, 30, 252, 180}, {4, 9, 21, 17}, {0, 0, 168, 120});

    inputs_ = {main_.list.data(), aux_.list.data()};
    outputs_ = {output_.list.data()};
    request_.Set<std::uint32_t>(0, 128);
    request_.Set<std::uint64_t>(16, 77);
}

void NodeTest::DescribeCamera(int slot, const std::vector<std::int32_t>& scalerCrop,
                              const std::vector<std::int32_t>& appliedCrop,
                              const std::vector<std::int32_t>& focus,
                              const std::vector<std::int32_t>& activeArray) {
    const std::size_t start = Slot(slot);
    metadata_.Set(start + 4, 10 * (slot + 1));
    metadata_.SetWords(start + 8, scalerCrop);
    metadata_.SetWords(start + 88, appliedCrop);
    metadata_.SetWords(start + 104, {1 + slot, 2, 100, 75}); // the sensor's applied crop
    metadata_.SetWords(start + 136, focus);
    metadata_.SetWords(start + 160, {120 + slot, 2 + slot}); // focus distance, state
    metadata_.SetWords(start + 384, activeArray);
}

NodeTest::~NodeTest() {
    if (createInfo_.Get<void*>(16) != nullptr) {
        Destroy();
    }
    EXPECT_EQ(platform().engine.instances, 0) << "an engine instance outlived its node";
    std::filesystem::remove_all(root_);
}

std::uint32_t NodeTest::Create() {
    return Call(32, createInfo_.data());
}

std::uint32_t NodeTest::Destroy() {
    destroyInfo_.Set(8, createInfo_.Get<void*>(16));
    createInfo_.Set<void*>(16, nullptr);
    return Call(40, destroyInfo_.data());
}

std::uint32_t NodeTest::Process() {
    Blank();
    request_.Set(8, createInfo_.Get<void*>(16));
    request_.Set(32, static_cast<std::uint32_t>(inputs_.size()));
    request_.Set(40, inputs_.data());
    request_.Set(48, static_cast<std::uint32_t>(outputs_.size()));
    request_.Set(56, outputs_.data());
    return Call(88, request_.data());
}

void NodeTest::CreateAndProcess() {
    ASSERT_EQ(Create(), 0u);
    platform().log.clear();
    platform().engine.calls.clear();
    ASSERT_EQ(Process(), 0u);
}

void NodeTest::WriteCalibration(const std::string& path, std::size_t size, char value) {
    std::ofstream(root_.string() + path) << std::string(size, value);
}

std::string NodeTest::ReadDeviceFile(const std::filesystem::path& path) const {
    std::ostringstream text;
    text << std::ifstream(root_ / path.relative_path()).rdbuf();
    return text.str();
}

std::vector<std::string> NodeTest::DumpNames() const {
    std::vector<std::string> names;
    const std::filesystem::path folder = kDumpFolder;
    for (const auto& entry : std::filesystem::directory_iterator(root_ / folder.relative_path())) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::uint32_t NodeTest::DepthEffect() const {
    std::uint32_t value;
    std::memcpy(&value, LastPublished().data[5].data() + 8, sizeof(value));
    return value;
}

bool NodeTest::OutputIsRendered() const {
    const auto value = static_cast<char>(platform().engine.renderValue);
    return output_.Pixels() == std::string(output_.Pixels().size(), value);
}

void NodeTest::Blank() {
    std::fill(output_.bytes.begin(), output_.bytes.end(), kBlank);
}

bool NodeTest::OutputIsBlank() const {
    return std::all_of(output_.bytes.begin(), output_.bytes.end(),
                       [](std::uint8_t byte) { return byte == kBlank; });
}

} // namespace contract
