#include "host/pipeline/vendor_tags.h"

#include <iterator>

#include <fmt/format.h>

#include "platform/chi_metadata.h"

namespace host {
namespace {

// Android's numbering: vendor tags have the top bit, 16 bits below count the tags of a section.
constexpr std::uint32_t kFirstBase = 0x80000000;
constexpr std::uint32_t kBaseStep = 0x00010000;

struct PlatformTag {
    device::VendorTagName name;
    std::uint32_t count; // elements
};

// Records are counted in bytes, plain values in elements. The order within a section decides the
// ids.
constexpr PlatformTag kPlatformTags[] = {
    {device::tags::kInduceSleep, 1},
    {device::tags::kInputMetadata, sizeof(InputMetadataBokeh)},
    {device::tags::kOutputMetadata, sizeof(OutputMetadataBokeh)},
    {device::tags::kStatus, 1},
    {device::tags::kDepthPictureSize, 1},
    {device::tags::kSelectFaceIndex, 1},
    {device::tags::kPtFocus, 2},
    {device::tags::kPhysicalCameraConfigs, sizeof(PhysicalCameraConfigs)},
    {device::tags::kPhysicalCameraInputConfig, 1},
    {device::tags::kFaceResults, sizeof(OEMFDResults)},
    {device::tags::kStreamCropInfo, 1},
    {device::tags::kEnableStreamCrop, 1},
};

} // namespace

VendorTags& VendorTags::Instance() {
    static VendorTags instance;
    return instance;
}

VendorTags::VendorTags() {
    for (const PlatformTag& tag : kPlatformTags) {
        Section& section = SectionOf(tag.name.section);
        const std::uint32_t id = section.base + static_cast<std::uint32_t>(section.tags.size());
        section.tags.push_back({tag.name.tag, id, tag.count});
    }
}

void VendorTags::Register(const CHIVENDORTAGINFO& info) {
    const std::lock_guard lock(mutex_);
    for (std::uint32_t index = 0; index < info.numSections; ++index) {
        const CHIVENDORTAGSECTIONDATA& section = info.sections[index];
        Section& entry = SectionOf(section.name);
        // A node that is loaded again gets the ids that it had, since the section keeps its base.
        entry.tags.clear();
        for (std::uint32_t tag = 0; tag < section.numTags; ++tag) {
            entry.tags.push_back({section.tags[tag].name, entry.base + section.firstTag + tag,
                                  section.tags[tag].count});
        }
    }
}

VendorTags::Section& VendorTags::SectionOf(const std::string& name) {
    auto found = sections_.find(name);
    if (found == sections_.end()) {
        // No section is ever removed, so that a number is given once.
        const auto number = static_cast<std::uint32_t>(sections_.size() + 1);
        found = sections_.emplace(name, Section{kFirstBase + number * kBaseStep, {}}).first;
    }
    return found->second;
}

std::optional<std::uint32_t> VendorTags::Id(const device::VendorTagName& name) const {
    if (name.tag != nullptr) {
        const auto found = Find(name);
        return found ? std::optional(found->id) : std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    const auto found = sections_.find(name.section);
    return found != sections_.end() ? std::optional(found->second.base) : std::nullopt;
}

std::optional<VendorTag> VendorTags::Find(const device::VendorTagName& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = sections_.find(name.section);
    if (found != sections_.end()) {
        for (const VendorTag& candidate : found->second.tags) {
            if (candidate.name == name.tag) {
                return candidate;
            }
        }
    }
    return std::nullopt;
}

std::string VendorTags::Describe(std::uint32_t id) const {
    const std::lock_guard lock(mutex_);
    for (const auto& [name, section] : sections_) {
        for (const VendorTag& tag : section.tags) {
            if (tag.id == id) {
                return fmt::format("\"{}\"", tag.name);
            }
        }
    }
    return fmt::format("tag {:#x}", id);
}

} // namespace host
