#include <algorithm>
#include <cstring>
#include <iterator>

#include <fmt/format.h>

#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/vendor_tags.h"

namespace host {
namespace {

using Complaints = std::vector<std::string>;

// The node's own tag table counts so many bytes of "SupportedFeature".
constexpr std::size_t kFeatureBytes = 64;

// The bytes are copied, since nothing promises that the node's data is aligned for its type.
template <typename Value>
Value Read(const void* data) {
    Value value;
    std::memcpy(&value, data, sizeof(value));
    return value;
}

void ReadFeature(const void* data, Published& published, Complaints& complaints) {
    const char* const text = static_cast<const char*>(data);
    const std::size_t length = strnlen(text, kFeatureBytes);
    published.supportedFeature.assign(text, length);
    const auto isZero = [](char byte) { return byte == '\0'; };
    if (length == kFeatureBytes || !std::all_of(text + length, text + kFeatureBytes, isZero)) {
        complaints.push_back("\"SupportedFeature\" is not padded with zeros");
    }
}

// A tag that every successful request publishes, and where its value goes.
struct ExpectedTag {
    device::VendorTagName name;
    // Bytes or elements, as the tag's owner counts; 0: as the node's own tag table says.
    std::uint64_t dataSize;
    void (*read)(const void* data, Published& published, Complaints& complaints);
};

// In the order in which the node publishes them.
constexpr ExpectedTag kExpectedTags[] = {
    {device::tags::kSupportedFeature, 0, ReadFeature},
    {device::tags::kCurrentMode, 0,
     [](const void* data, Published& published, Complaints&) {
         published.currentMode = Read<std::uint8_t>(data);
     }},
    {device::tags::kProcessedFrameNumber, 0,
     [](const void* data, Published& published, Complaints&) {
         published.processedFrameNumber = Read<std::uint64_t>(data);
     }},
    {device::tags::kFrameDimension, 0,
     [](const void* data, Published& published, Complaints&) {
         published.frameDimension = Read<std::array<std::uint32_t, 2>>(data);
     }},
    {device::tags::kDepthPictureSize, 4,
     [](const void* data, Published& published, Complaints&) {
         published.depthPictureSize = Read<std::int32_t>(data);
     }},
    {device::tags::kOutputMetadata, 12,
     [](const void* data, Published& published, Complaints&) {
         published.result = Read<OutputMetadataBokeh>(data);
     }},
    {device::tags::kPtFocus, 2,
     [](const void* data, Published& published, Complaints&) {
         published.focusPoint = Read<std::array<std::int32_t, 2>>(data);
     }},
};

// What a record holds in one field, against what belongs there.
template <typename Value>
void Compare(const std::string& what, Value actual, Value expected, Complaints& complaints) {
    if (actual != expected) {
        complaints.push_back(fmt::format("{} is {}, not {}", what, actual, expected));
    }
}

template <std::size_t size>
bool AllZero(const std::uint8_t (&bytes)[size]) {
    return std::all_of(std::begin(bytes), std::end(bytes), [](auto byte) { return byte == 0; });
}

void CheckSet(const ChiMetadataSet& set, const void* session, Complaints& complaints) {
    Compare<std::uint32_t>("the size of the metadata set", set.size, sizeof(set), complaints);
    Compare<const void*>("the session of the metadata set", set.hChiSession, session, complaints);
    if (set.reserved4 != 0 || set.reserved20 != 0 || !AllZero(set.reserved40)) {
        complaints.push_back("reserved bytes of the metadata set are not zero");
    }
}

void CheckEntry(const ExpectedTag& expected, const VendorTag& tag, std::uint32_t id,
                const ChiTagData& entry, std::uint64_t frameNumber, Complaints& complaints) {
    const std::string name = fmt::format("\"{}\"", expected.name.tag);
    if (id != tag.id) {
        complaints.push_back(fmt::format("in the place of {} ({:#x}) stands {} ({:#x})", name,
                                         tag.id, VendorTags::Instance().Describe(id), id));
    }
    Compare<std::uint32_t>("the entry size of " + name, entry.size, sizeof(entry), complaints);
    Compare("the request id of " + name, entry.requestId, frameNumber, complaints);
    Compare("the data size of " + name, entry.dataSize,
            expected.dataSize != 0 ? expected.dataSize : tag.count, complaints);
    if (entry.reserved4 != 0 || !AllZero(entry.reserved32)) {
        complaints.push_back("reserved bytes in the entry of " + name + " are not zero");
    }
}

} // namespace

std::optional<Published> ReadMetadataSet(const ChiMetadataSet& set, const void* session,
                                         std::uint64_t frameNumber, Complaints& complaints) {
    CheckSet(set, session, complaints);
    Compare<std::size_t>("the number of published tags", set.numTags, std::size(kExpectedTags),
                         complaints);
    // Entries are checked by their position. With another number of them, all behind the missing
    // one would be reported as wrong.
    if (set.numTags != std::size(kExpectedTags) || set.tagIds == nullptr ||
        set.tagData == nullptr) {
        complaints.push_back("the metadata set cannot be read");
        return std::nullopt;
    }
    Published published;
    for (std::size_t index = 0; index < std::size(kExpectedTags); ++index) {
        const ExpectedTag& expected = kExpectedTags[index];
        const auto tag = VendorTags::Instance().Find(expected.name);
        if (!tag) {
            complaints.push_back(fmt::format("nobody registered \"{}\"", expected.name.tag));
            continue;
        }
        const ChiTagData& entry = set.tagData[index];
        CheckEntry(expected, *tag, set.tagIds[index], entry, frameNumber, complaints);
        if (entry.data == nullptr) {
            complaints.push_back(fmt::format("\"{}\" has no data", expected.name.tag));
            continue;
        }
        expected.read(entry.data, published, complaints);
    }
    return published;
}

} // namespace host
