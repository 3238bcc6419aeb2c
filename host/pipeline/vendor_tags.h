#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/chi_node.h"
#include "platform/device_names.h"

// The platform's vendor tags. Ids are given out while the process runs, as on the device, and
// differ from one set of loaded sections to another. Thread-safe.
namespace host {

// Bits of a tag id that name a pool; no tag's own id has one of them.
constexpr std::uint32_t kTagPoolBits = kTagPoolCameraConfig | kTagPoolRequest | kTagPoolUseCase;

struct VendorTag {
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
    std::optional<std::uint32_t> Id(const device::VendorTagName& name) const;
    std::optional<VendorTag> Find(const device::VendorTagName& name) const;

    // The tag's name in quotation marks, or its number if it has none; for complaints.
    std::string Describe(std::uint32_t id) const;

private:
    struct Section {
        std::uint32_t base = 0;
        std::vector<VendorTag> tags;
    };

    VendorTags();
    // Made with the next base where it is not known yet.
    Section& SectionOf(const std::string& name);

    mutable std::mutex mutex_;
    std::map<std::string, Section, std::less<>> sections_;
};

} // namespace host
