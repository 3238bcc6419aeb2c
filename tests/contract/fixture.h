#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/import_patch.h"
#include "tests/support/platform.h"

namespace contract {

using namespace support;

// An image in the platform's memory with a pattern of its own, and the image list that names it.
class Image {
public:
    Image(int width, int height, int pitch, std::uint8_t seed, std::uint32_t portIndex,
          std::uint32_t format = 3);

    Record list{832};
    int width;
    int height;
    int pitch;
    std::vector<std::uint8_t> bytes; // both planes, padding included

    // Both planes at this size of the top-left corner, without padding.
    std::string Pixels(int columns, int rows) const;
    std::string Pixels() const { return Pixels(width, height); }
    // Everything between the rows.
    std::string Padding() const;
};

// Loads the node and drives it by the documented byte offsets. Each test has a platform of its own:
// two linked cameras (ids 10 and 20, the second one the primary), a calibration file and a working
// engine. Whatever main and aux camera, width and height, or two rectangles could be mixed up for
// has different values.
class NodeTest : public ::testing::Test {
protected:
    NodeTest();
    ~NodeTest() override;

    template <typename... Arguments>
    std::uint32_t Call(std::size_t slot, Arguments... arguments) {
        return callbacks_.Get<std::uint32_t (*)(Arguments...)>(slot)(arguments...);
    }

    // Rectangles as left, top, width, height, of the focus as two corners.
    void DescribeCamera(int slot, const std::vector<std::int32_t>& scalerCrop,
                        const std::vector<std::int32_t>& appliedCrop,
                        const std::vector<std::int32_t>& focus,
                        const std::vector<std::int32_t>& activeArray);

    std::uint32_t Create();
    std::uint32_t Destroy();
    // Runs the request of the members below; the output is blank before it.
    std::uint32_t Process();
    // Creates a node and runs one request that must succeed.
    void CreateAndProcess();

    void WriteCalibration(const std::string& path, std::size_t size, char value = 'c');
    std::string ReadDeviceFile(const std::filesystem::path& path) const;
    std::vector<std::string> DumpNames() const;

    const Published& LastPublished() const { return platform().published.back(); }
    std::uint32_t DepthEffect() const;
    // The output holds this image, which is not larger, in its top-left corner.
    bool OutputShows(const Image& image) const {
        return output_.Pixels(image.width, image.height) == image.Pixels();
    }
    bool OutputIsMain() const { return OutputShows(main_); }
    bool OutputIsRendered() const;
    void Blank();
    bool OutputIsBlank() const; // padding included

    Record callbacks_{248};
    Record createInfo_{112};
    Record destroyInfo_{16};
    Record request_{128};
    Record metadata_{3308};
    Record cameraConfigs_{16464};
    Record inputConfig_{8 + 3 * 48};
    Image main_{64, 48, 80, 1, 0};
    Image aux_{56, 40, 96, 2, 1};
    Image output_{64, 48, 72, 3, 7};
    std::vector<void*> inputs_;
    std::vector<void*> outputs_;
    std::filesystem::path root_;
    void* library_;

private:
    std::unique_ptr<ImportPatch> fopen_;
    std::unique_ptr<ImportPatch> open_;
};

// Byte offset of a metadata slot.
constexpr std::size_t Slot(int index) {
    return 24 + 408 * static_cast<std::size_t>(index);
}

// 2024-01-31 23:59:59 in the fixture's zone.
constexpr std::int64_t kDumpTime = 1706745599 - 5 * 3600 - 1800;

constexpr char kFirstCalibration[] = "/mnt/vendor/persist/camera/dualcam_cali.bin";
constexpr char kSecondCalibration[] = "/vendor/etc/camera/dualcam_cali.bin";
constexpr char kDumpFolder[] = "/data/vendor/camera";

} // namespace contract
