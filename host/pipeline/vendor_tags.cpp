#include "host/pipeline/vendor_tags.h"

#include <iterator>

#include "host/pipeline/text.h"
#include "platform/chi_metadata.h"

namespace host {
namespace {

// Android's numbering: vendor tags have the top bit, 16 bits below count the tags of a section.
constexpr std::uint32_t kFirstBase = 0x80000000;
constexpr std::uint32_t kBaseStep = 0x00010000;

constexpr CHIVENDORTAGDATA kBokehInputTags[] = {
    {"InputMetadataBokeh", kTagTypeByte, sizeof(InputMetadataBokeh)}};
constexpr CHIVENDORTAGDATA kBokehOutputTags[] = {
    {"OutputMetadataBokeh", kTagTypeByte, sizeof(OutputMetadataBokeh)}};
constexpr CHIVENDORTAGDATA kControlTags[] = {{"status", kTagTypeByte, 1},
                                             {"depthpicturesize", kTagTypeInt32, 1},
                                             {"SelectFaceIndex", kTagTypeInt32, 1},
                                             {"PtFocus", kTagTypeInt32, 2}};
constexpr CHIVENDORTAGDATA kConfigurationTags[] = {
    {"PhysicalCameraConfigs", kTagTypeByte, sizeof(PhysicalCameraConfigs)},
    {"PhysicalCameraInputConfig", kTagTypeByte, 1}};
constexpr CHIVENDORTAGDATA kFaceResultsTags[] = {
    {"OEMFDResults", kTagTypeByte, sizeof(OEMFDResults)}};
constexpr CHIVENDORTAGDATA kStreamCropTags[] = {{"StreamCropInfo", kTagTypeByte, 1},
                                                {"EnableStreamCrop", kTagTypeByte, 1}};
constexpr CHIVENDORTAGDATA kSleepTags[] = {{"InduceSleep", kTagTypeInt32, 1}};

} // namespace

VendorTags& VendorTags::Instance() {
    static VendorTags instance;
    return instance;
}

VendorTags::VendorTags() {
    const auto add = [this](const char* section, const auto& sectionTags) {
        Add(section, 0, sectionTags, std::size(sectionTags));
    };
    add(tags::kSleep, kSleepTags);
    add(tags::kBokehInput, kBokehInputTags);
    add(tags::kBokehOutput, kBokehOutputTags);
    add(tags::kControl, kControlTags);
    add(tags::kConfiguration, kConfigurationTags);
    add(tags::kFaceResults, kFaceResultsTags);
    add(tags::kStreamCrop, kStreamCropTags);
}

void VendorTags::Register(const CHIVENDORTAGINFO& info) {
    const std::lock_guard lock(mutex_);
    for (std::uint32_t index = 0; index < info.numSections; ++index) {
        const CHIVENDORTAGSECTIONDATA& section = info.sections[index];
        Add(section.name, section.firstTag, section.tags, section.numTags);
    }
}

void VendorTags::Add(std::string_view name, std::uint32_t firstTag, const CHIVENDORTAGDATA* tags,
                     std::size_t count) {
    auto found = sections_.find(name);
    if (found == sections_.end()) {
        const auto number = static_cast<std::uint32_t>(sections_.size() + 1);
        found = sections_.emplace(name, Section{kFirstBase + number * kBaseStep, {}}).first;
    }
    Section& section = found->second;
    section.tags.clear();
    for (std::size_t index = 0; index < count; ++index) {
        const std::uint32_t id = section.base + firstTag + static_cast<std::uint32_t>(index);
        section.tags.push_back({std::string(name), tags[index].name, id, tags[index].count});
    }
}

std::optional<std::uint32_t> VendorTags::Id(std::string_view section, const char* tag) const {
    if (tag != nullptr) {
        const auto found = Find(section, tag);
        return found ? std::optional(found->id) : std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    const auto found = sections_.find(section);
    return found != sections_.end() ? std::optional(found->second.base) : std::nullopt;
}

std::optional<VendorTag> VendorTags::Find(std::string_view section, std::string_view tag) const {
    const std::lock_guard lock(mutex_);
    const auto found = sections_.find(section);
    if (found != sections_.end()) {
        for (const VendorTag& candidate : found->second.tags) {
            if (candidate.name == tag) {
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
                return Text("\"", tag.name, "\"");
            }
        }
    }
    return Text("tag ", Hex(id));
}

} // namespace host
