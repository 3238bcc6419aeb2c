#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/chi_node.h"

// The platform's vendor tags. Ids are given out while the process runs, as on the device, and
// differ from one set of loaded sections to another. Thread-safe.
namespace host {

// Names that the pipeline serves data for.
namespace tags {
constexpr const char* kBokehInput = "com.qti.chi.multicamerainputmetadata";
constexpr const char* kBokehOutput = "com.qti.chi.multicameraoutputmetadata";
constexpr const char* kControl = "com.qti.chi.multicameracontrol";
constexpr const char* kConfiguration = "com.qti.chi.cameraconfiguration";
constexpr const char* kFaceResults = "org.quic.camera2.oemfdresults";
constexpr const char* kStreamCrop = "com.qti.camera.streamCropInfo";
constexpr const char* kSleep = "org.quic.camera.induceSleepInChiNode";
constexpr const char* kNode = "com.qav.node.capturebokeh";
} // namespace tags

// Bits of a tag id that name a pool; no tag's own id has one of them.
constexpr std::uint32_t kTagPoolBits = kTagPoolCameraConfig | kTagPoolRequest | kTagPoolUseCase;

struct VendorTag {
    std::string section;
    std::string name;
    std::uint32_t id = 0;
    std::uint32_t count = 0; // elements
};

class VendorTags {
public:
    // The process's registry; it knows the platform's own sections from the start.
    static VendorTags& Instance();

    // Adds the sections of a node's table, or replaces those of the same names.
    void Register(const CHIVENDORTAGINFO& info);

    // A null tag name asks for the base of the section.
    std::optional<std::uint32_t> Id(std::string_view section, const char* tag) const;
    std::optional<VendorTag> Find(std::string_view section, std::string_view tag) const;

    // The tag's name and section in words, for complaints.
    std::string Describe(std::uint32_t id) const;

private:
    struct Section {
        std::uint32_t base = 0;
        std::vector<VendorTag> tags;
    };

    VendorTags();
    void Add(std::string_view name, std::uint32_t firstTag, const CHIVENDORTAGDATA* tags,
             std::size_t count);

    mutable std::mutex mutex_;
    std::map<std::string, Section, std::less<>> sections_;
};

} // namespace host
