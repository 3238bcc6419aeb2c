#include "tests/support/platform.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>

struct ChiQueryVendorTag;
struct CHIVENDORTAGINFO;
struct ChiNodeInterface;
struct ChiNodeQueryBufferInfo;
enum ChiMetadataType : unsigned int {};

class ChiNodeUtils {
public:
    static std::uint32_t QueryVendorTag(ChiQueryVendorTag*, CHIVENDORTAGINFO*);
    static std::uint32_t SetNodeInterface(ChiNodeInterface*, const char*, ChiNodeInterface*,
                                          unsigned int*);
    static void* GetDataList(unsigned long, unsigned int, ChiMetadataType, ChiNodeInterface*, void*,
                             unsigned int);
    static std::uint32_t DefaultBufferNegotiation(ChiNodeQueryBufferInfo*);
};

namespace CamX {
class SettingsManager {
public:
    static SettingsManager* GetInstance();
    virtual ~SettingsManager() = default;
    virtual void* Settings();
};
} // namespace CamX

namespace support {
namespace {

bool Fails(const char* function) {
    return !platform().idle && platform().calls.Fails(function);
}

constexpr std::uint32_t kFirstTagId = 0x8100;

struct Tag {
    std::string_view section;
    std::string_view name;
};

constexpr Tag kTags[] = {
    {"com.qti.chi.multicamerainputmetadata", "InputMetadataBokeh"},
    {"com.qti.chi.multicameraoutputmetadata", "OutputMetadataBokeh"},
    {"com.qti.chi.multicameracontrol", "depthpicturesize"},
    {"com.qti.chi.cameraconfiguration", "PhysicalCameraConfigs"},
    {"com.qti.chi.cameraconfiguration", "PhysicalCameraInputConfig"},
    {"org.quic.camera2.oemfdresults", "OEMFDResults"},
    {"com.qti.camera.streamCropInfo", "StreamCropInfo"},
    {"com.qti.camera.streamCropInfo", "EnableStreamCrop"},
    {"com.qti.chi.multicameracontrol", "status"},
    {"com.qti.chi.multicameracontrol", "SelectFaceIndex"},
    {"com.qti.chi.multicameracontrol", "PtFocus"},
    {"org.quic.camera.induceSleepInChiNode", "InduceSleep"},
};

std::uint32_t GetVendorTagBase(void* query) {
    const char* section;
    const char* tag;
    std::memcpy(&section, static_cast<char*>(query) + 8, sizeof(section));
    std::memcpy(&tag, static_cast<char*>(query) + 16, sizeof(tag));
    if (Fails("GetVendorTagBase")) {
        return 6;
    }
    const auto failure = platform().tagResults.find(tag);
    if (failure != platform().tagResults.end()) {
        return failure->second;
    }
    const std::uint32_t id = TagId(tag);
    if (id == 0 || kTags[id - kFirstTagId].section != section) {
        return 6;
    }
    std::memcpy(static_cast<char*>(query) + 4, &id, sizeof(id));
    return 0;
}

// "NAME: 123: …", perhaps behind the usual prefix, with "#" in place of the line number.
std::string WithoutLine(std::string text) {
    constexpr char kPrefix[] = "TSL_CTB: ";
    const std::size_t name = text.starts_with(kPrefix) ? sizeof(kPrefix) - 1 : 0;
    const std::size_t line = text.find(": ", name) + 2;
    std::size_t end = line;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
        ++end;
    }
    return text.replace(line, end - line, "#");
}

template <typename T>
T At(const void* record, std::size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(record) + offset, sizeof(T));
    return value;
}

std::uint32_t SetMetadata(const void* set) {
    if (platform().idle) {
        return 1;
    }
    Fails("SetMetadata"); // its answer is 1 in any case
    constexpr std::size_t kDataBytes[] = {64, 1, 8, 8, 4, 12, 8};
    Published published;
    published.session = At<std::uint64_t>(set, 8);
    const auto* ids = At<const std::uint32_t*>(set, 24);
    const auto* entries = At<const char*>(set, 32);
    for (std::uint32_t i = 0; i < At<std::uint32_t>(set, 16); ++i) {
        const char* entry = entries + 48 * i;
        published.ids.push_back(ids[i]);
        published.requestIds.push_back(At<std::uint64_t>(entry, 8));
        published.sizes.push_back(At<std::uint64_t>(entry, 24));
        published.data.emplace_back(At<const char*>(entry, 16), kDataBytes[i]);
    }
    platform().published.push_back(published);
    return 1; // the node does not look at it
}

std::uint32_t QueryRequest(void*, void* record) {
    if (!Fails("QueryRequest")) {
        std::memcpy(static_cast<char*>(record) + 24, &platform().stop, 4);
    }
    return 1; // nor at this one
}

} // namespace

void Record::SetWords(std::size_t offset, const std::vector<std::int32_t>& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        Set(offset + 4 * i, values[i]);
    }
}

Platform& platform() {
    static Platform instance;
    return instance;
}

std::vector<std::string> Platform::Texts(int priority) const {
    std::vector<std::string> texts;
    for (const LogLine& line : log) {
        if (line.priority == priority) {
            texts.push_back(line.tag + ": " + line.text);
        }
    }
    return texts;
}

std::uint32_t TagId(std::string_view tag) {
    for (std::uint32_t i = 0; i < std::size(kTags); ++i) {
        if (tag == kTags[i].name) {
            return kFirstTagId + i;
        }
    }
    return 0;
}

Record& Interface() {
    static Record table = [] {
        Record bytes(160);
        bytes.Set<std::uint32_t>(0, 160);
        bytes.Set(24, &SetMetadata);
        bytes.Set(32, &GetVendorTagBase);
        bytes.Set(144, &QueryRequest);
        return bytes;
    }();
    return table;
}

} // namespace support

using support::Fails;
using support::platform;

// --- Platform functions ---

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    if (platform().idle || Fails("__android_log_print")) {
        return -1;
    }
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    platform().log.push_back({priority, tag, format, support::WithoutLine(text)});
    return 0;
}

extern "C" int property_get(const char* key, char* value, const char* fallback) {
    const auto found = platform().properties.find(key);
    if (Fails("property_get")) {
        return 0; // and leaves the buffer as it was
    }
    return std::snprintf(value, 92, "%s",
                         found == platform().properties.end() ? fallback : found->second.c_str());
}

std::uint32_t ChiNodeUtils::QueryVendorTag(ChiQueryVendorTag* query, CHIVENDORTAGINFO* info) {
    Fails("QueryVendorTag");
    std::memcpy(static_cast<void*>(query), &info, sizeof(info));
    return 17;
}

std::uint32_t ChiNodeUtils::SetNodeInterface(ChiNodeInterface* given, const char* name,
                                             ChiNodeInterface* copy, unsigned int* base) {
    if (Fails("SetNodeInterface")) {
        return 1;
    }
    std::memcpy(static_cast<void*>(copy), static_cast<void*>(given), 160);
    *base = std::strcmp(name, "com.qav.node.capturebokeh") == 0 ? support::kVendorTagBase : 0;
    return 0;
}

void* ChiNodeUtils::GetDataList(unsigned long requestId, unsigned int tag, ChiMetadataType type,
                                ChiNodeInterface*, void* session, unsigned int camera) {
    if (!platform().idle) {
        platform().readRequestIds.push_back(requestId);
    }
    if (Fails("GetDataList")) {
        return nullptr;
    }
    const bool known = type == 2 && session == &platform() && camera == 0;
    const auto found = platform().metadata.find(tag);
    return known && found != platform().metadata.end() ? found->second : nullptr;
}

std::uint32_t ChiNodeUtils::DefaultBufferNegotiation(ChiNodeQueryBufferInfo* query) {
    if (Fails("DefaultBufferNegotiation")) {
        return 1;
    }
    std::memset(reinterpret_cast<char*>(query) + 16, 0x5A, 40);
    return platform().negotiationResult;
}

namespace {
char g_settings[25760];
}

void* CamX::SettingsManager::Settings() {
    std::memcpy(g_settings + 25756, &platform().imageDegree, 4);
    const bool fails = Fails("GetStaticSettings");
    return platform().hasSettings && !fails ? g_settings : nullptr;
}

CamX::SettingsManager* CamX::SettingsManager::GetInstance() {
    static SettingsManager manager;
    return Fails("GetInstance") ? nullptr : &manager;
}

// --- Engine ---

namespace {

std::int64_t Called(const char* function) {
    support::Engine& engine = platform().engine;
    if (!platform().idle) {
        engine.calls.emplace_back(function);
    }
    if (Fails(function)) {
        return -77;
    }
    const auto found = engine.results.find(function);
    return found == engine.results.end() ? 0 : found->second;
}

void FillRows(const void* image, int plane, std::uint8_t value) {
    const auto width = support::At<std::int32_t>(image, 4);
    const auto height = support::At<std::int32_t>(image, 8);
    auto* row = support::At<std::uint8_t*>(image, 16 + 8 * static_cast<std::size_t>(plane));
    const auto pitch = support::At<std::int32_t>(image, 48 + 4 * static_cast<std::size_t>(plane));
    for (int r = 0; r < height / (plane + 1); ++r) {
        std::memset(row + r * pitch, value, static_cast<std::size_t>(width));
    }
}

void RecordFocus(const void* focus) {
    support::Engine& engine = platform().engine;
    const auto count = support::At<std::int32_t>(focus, 48);
    engine.focus = {support::At<std::int32_t>(focus, 0), support::At<std::int32_t>(focus, 4),
                    count};
    const auto* rects = support::At<const std::int32_t*>(focus, 32);
    const auto* orients = support::At<const std::int32_t*>(focus, 40);
    for (int i = 0; i < count; ++i) {
        engine.focus.insert(engine.focus.end(), rects + 4 * i, rects + 4 * i + 4);
        engine.focus.push_back(orients[i]);
    }
}

} // namespace

extern "C" {

const void* TSL_DCIR_GetVersion() {
    static support::Record record(40);
    record.Set<const char*>(32, platform().engine.versionText);
    return Called("TSL_DCIR_GetVersion") == 0 && platform().engine.hasVersion ? record.data()
                                                                              : nullptr;
}

std::int64_t TSL_DCIR_Init(void** handle, std::int32_t mode) {
    const std::int64_t result = Called("TSL_DCIR_Init");
    if (result == 0 && mode == 1) {
        *handle = &platform().engine;
        ++platform().engine.instances;
    }
    return result;
}

std::int64_t TSL_DCIR_Uninit(void** handle) {
    --platform().engine.instances;
    *handle = nullptr;
    return Called("TSL_DCIR_Uninit");
}

std::int64_t TSL_DCIR_Reset(void*) {
    return Called("TSL_DCIR_Reset");
}

std::int64_t TSL_DCIR_SetCameraImageInfo(void*, void* info) {
    const auto* words = static_cast<const std::int32_t*>(info);
    if (!platform().idle) {
        platform().engine.imageInfos.emplace_back(words, words + 5);
    }
    return Called("TSL_DCIR_SetCameraImageInfo");
}

std::int64_t TSL_DCIR_SetCaliData(void*, void* data) {
    platform().engine.calibration.assign(
        support::At<const char*>(data, 0),
        static_cast<std::size_t>(support::At<std::int32_t>(data, 8)));
    return Called("TSL_DCIR_SetCaliData");
}

std::int64_t TSL_DCIR_GetImageSizeInCalibration(void*, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight) {
    const auto& sizes = platform().engine.calibrationSizes;
    *mainWidth = sizes[0];
    *mainHeight = sizes[1];
    *auxWidth = sizes[2];
    *auxHeight = sizes[3];
    return Called("TSL_DCIR_GetImageSizeInCalibration");
}

std::int64_t TSL_DCIR_CalcDisparityData(void*, void* main, void* aux, void* focus) {
    if (!platform().idle) {
        platform().engine.images = {support::At<void*>(main, 16), support::At<void*>(aux, 16)};
        RecordFocus(focus);
    }
    return Called("TSL_DCIR_CalcDisparityData");
}

std::int64_t TSL_DCIR_GetDisparityDataSize(void*, std::int32_t* size) {
    const std::int64_t result = Called("TSL_DCIR_GetDisparityDataSize");
    if (result == 0 || platform().engine.sizesDespiteFailure) {
        *size = platform().engine.size;
    }
    return result;
}

std::int64_t TSL_DCIR_GetDisparityData(void*, void* data, std::int32_t* size) {
    platform().engine.room = *size;
    if (*size > 0 && !platform().idle) {
        std::memset(data, platform().engine.depthValue, static_cast<std::size_t>(*size));
    }
    *size = platform().engine.activeSize;
    return Called("TSL_DCIR_GetDisparityData");
}

std::int64_t TSL_DCIR_Process(void*, void* main, void* disparity, std::int32_t size, void* blur,
                              void* focus, void* output) {
    support::Engine& engine = platform().engine;
    engine.processSize = size;
    engine.blur = support::At<std::int32_t>(blur, 0);
    if (!platform().idle) {
        engine.images.push_back(support::At<void*>(main, 16));
        engine.images.push_back(support::At<void*>(output, 16));
        engine.processData = *static_cast<const std::uint8_t*>(disparity);
        RecordFocus(focus);
        FillRows(output, 0, engine.renderValue);
        FillRows(output, 1, engine.renderValue);
    }
    return Called("TSL_DCIR_Process");
}

} // extern "C"
