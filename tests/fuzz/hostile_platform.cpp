#include "tests/fuzz/hostile_platform.h"

#include <dlfcn.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <new>

#include "platform/camx_settings.h"
#include "platform/chi_node_utils.h"
#include "platform/log.h"
#include "platform/properties.h"
#include "tests/fuzz/guarded_memory.h"
#include "tests/support/import_patch.h"

namespace fuzz {

World world;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "node_fuzzer: %s\n", what);
        std::abort();
    }
}

namespace {

// Reads memory as a consumer would. The copy is kept where the compiler cannot see it unused.
void ReadBytes(const void* data, std::size_t bytes) {
    static char sink[1 << 16];
    for (const char* from = static_cast<const char*>(data); bytes > 0;) {
        const std::size_t part = std::min(bytes, sizeof(sink));
        std::memcpy(sink, from, part);
        asm volatile("" : : "r"(sink) : "memory");
        from += part;
        bytes -= part;
    }
}

// --- Vendor tags and metadata ---

const char* const kTags[] = {"InputMetadataBokeh",
                             "OutputMetadataBokeh",
                             "depthpicturesize",
                             "PhysicalCameraConfigs",
                             "PhysicalCameraInputConfig",
                             "OEMFDResults",
                             "StreamCropInfo",
                             "EnableStreamCrop",
                             "status",
                             "SelectFaceIndex",
                             "PtFocus",
                             "InduceSleep"};
constexpr std::uint32_t kFirstTagId = 0x8100;

CDKResult GetVendorTagBase(ChiVendorTagBaseQuery* query) {
    Require(query->size == sizeof(*query) && query->tagId == 0, "tag query");
    std::uint32_t index = 0;
    while (index < std::size(kTags) && std::strcmp(kTags[index], query->tag) != 0) {
        ++index;
    }
    Require(index < std::size(kTags) && std::strlen(query->section) > 0, "tag name");
    if (static_cast<int>(index) == world.failingTag && world.result != 0) {
        return world.result;
    }
    query->tagId = kFirstTagId + index;
    return CDKResultSuccess;
}

CDKResult QueryRequestState(void* session, ChiRequestStateQuery* query) {
    Require(session == world.session, "session of the state query");
    query->stop = world.stop;
    return world.result; // the node does not look at it
}

CDKResult SetMetadata(const ChiMetadataSet* set) {
    constexpr std::size_t kBytes[] = {64, 1, 8, 8, 4, 12, 8};
    Require(set->size == sizeof(*set) && set->numTags == std::size(kBytes), "metadata set");
    Require(set->hChiSession == world.session, "session of the metadata set");
    for (std::size_t i = 0; i < std::size(kBytes); ++i) {
        const ChiTagData& entry = set->tagData[i];
        ReadBytes(&set->tagIds[i], sizeof(set->tagIds[i]));
        ReadBytes(entry.data, kBytes[i]);
        Require(entry.size == sizeof(entry) && entry.requestId == world.calls.frameNumber,
                "tag entry");
    }
    world.calls.depthEffect =
        static_cast<const OutputMetadataBokeh*>(set->tagData[5].data)->depthEffectInfo;
    ++world.calls.published;
    return world.result;
}

// --- Files ---

bool IsDump(const char* path) {
    return std::strncmp(path, "/data/vendor/camera/", 20) == 0;
}

// A dump's text goes nowhere; a calibration file has its size's worth of bytes.
std::FILE* OpenStream(const char* path, const char* mode) {
    static char bytes[1 << 14];
    const int shared = std::strncmp(path, "/vendor/", 8) == 0 ? 1 : 0;
    if ((world.missing & (IsDump(path) ? kDumpFolder : 1 << shared)) != 0) {
        return nullptr;
    }
    const std::size_t size = IsDump(path) ? sizeof(bytes) : world.calibrationFileSizes[shared];
    world.openedSize = static_cast<std::uint32_t>(size);
    return fmemopen(bytes, std::min(size, sizeof(bytes)), mode);
}

constexpr int kDescriptor = 4711;

int OpenFile(const char* path, int, ...) {
    Require(IsDump(path), "path of a dump");
    if ((world.missing & kDumpFolder) != 0) {
        return -1;
    }
    ++world.openDumps;
    return kDescriptor;
}

// As the kernel does, it answers an address that cannot be read instead of dying of it. Only images
// that the node must not touch have such an address.
ssize_t WriteFile(int file, const void* data, std::size_t bytes) {
    Require(file == kDescriptor, "descriptor written to");
    if (data == nullptr || GuardedMemory::IsForbidden(data)) {
        return -1;
    }
    ReadBytes(data, bytes);
    return static_cast<ssize_t>(bytes) - world.writeCut;
}

int CloseFile(int file) {
    Require(file == kDescriptor && world.openDumps > 0, "descriptor closed");
    --world.openDumps;
    return 0;
}

int GetTime(timeval* time, void*) {
    *time = {.tv_sec = static_cast<time_t>(world.seconds), .tv_usec = 0};
    return 0;
}

// --- Memory ---

void* Allocate(std::size_t bytes) {
    constexpr std::size_t kLimit = 1 << 16;
    return (world.missing & fuzz::kMemory) != 0 || bytes > kLimit ? nullptr : std::malloc(bytes);
}

bool NewFails() {
    return world.newFails > 0 && --world.newFails == 0;
}

void* New(std::size_t bytes) {
    if (NewFails()) {
        throw std::bad_alloc();
    }
    return ::operator new(bytes);
}

void* NewArray(std::size_t bytes, const std::nothrow_t& nothrow) {
    return NewFails() ? nullptr : ::operator new[](bytes, nothrow);
}

} // namespace

ChiNodeInterface WholeInterface() {
    ChiNodeInterface table = {};
    table.size = sizeof(table);
    table.setMetadata = SetMetadata;
    table.getVendorTagBase = GetVendorTagBase;
    table.queryRequestState = QueryRequestState;
    return table;
}

NodeEntry LoadNode() {
    setenv("TZ", "UTC0", 1); // a zone by name is read from the disk at every use
    void* library = dlopen(NODE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        Require(false, dlerror());
    }
    const auto patch = [library](const char* symbol, auto* replacement) {
        static std::list<support::ImportPatch> patches; // until a profiler writes at the exit
        patches.emplace_back(library, symbol, reinterpret_cast<void*>(replacement));
    };
    patch("fopen", OpenStream);
    patch("open", OpenFile);
    patch("write", WriteFile);
    patch("close", CloseFile);
    patch("gettimeofday", GetTime);
    patch("malloc", Allocate);
    if (!support::HoldsCppRuntime(library)) {
        patch("_Znwm", New);
        patch("_ZnamRKSt9nothrow_t", NewArray);
    }
    return reinterpret_cast<NodeEntry>(dlsym(library, "ChiNodeEntry"));
}

} // namespace fuzz

using fuzz::Require;
using fuzz::world;

// --- Platform functions ---

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    Require(priority == ANDROID_LOG_DEBUG || priority == ANDROID_LOG_ERROR, "priority");
    Require(std::strcmp(tag, "TSL_CTB") == 0 || std::strcmp(tag, "TSL_BTB") == 0, "tag");
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    Require(std::strstr(text, "(null)") == nullptr, "a null text was printed");
    return 0;
}

extern "C" int property_get(const char* key, char* value, const char* fallback) {
    const char* text = std::strstr(key, ".log") != nullptr         ? world.logMask
                       : std::strstr(key, ".dumpimg") != nullptr   ? world.dumpImage
                       : std::strstr(key, ".debugview") != nullptr ? world.debugView
                                                                   : nullptr;
    Require(text != nullptr, "property");
    // As long a text as the interface allows.
    const std::size_t length = std::min(std::strlen(text), std::size_t{kPropertyValueMax - 1});
    std::memset(value, 0, kPropertyValueMax);
    std::memcpy(value, length > 0 ? text : fallback, length > 0 ? length : std::strlen(fallback));
    return static_cast<int>(length);
}

CDKResult ChiNodeUtils::QueryVendorTag(ChiQueryVendorTag*, CHIVENDORTAGINFO* info) {
    Require(std::strlen(info->sections[0].tags[info->sections[0].numTags - 1].name) > 0, "tags");
    return world.result;
}

CDKResult ChiNodeUtils::SetNodeInterface(ChiNodeInterface* platform, const char* nodeName,
                                         ChiNodeInterface* copy, unsigned int* vendorTagBase) {
    Require(std::strcmp(nodeName, "com.qav.node.capturebokeh") == 0, "node name");
    if (world.interfaceResult == 0) {
        *copy = *platform;
        *vendorTagBase = 0x9000;
    }
    return world.interfaceResult;
}

void* ChiNodeUtils::GetDataList(unsigned long requestId, unsigned int tagId, ChiMetadataType type,
                                ChiNodeInterface* platform, void* session, unsigned int cameraId) {
    Require(type == kChiMetadataTypeNode && platform != nullptr && session == world.session &&
                cameraId == 0,
            "arguments of a metadata read");
    constexpr std::uint32_t kPools = kTagPoolCameraConfig | kTagPoolRequest | kTagPoolUseCase;
    const std::uint32_t pool = tagId & kPools;
    Require(requestId == (pool == kTagPoolRequest || pool == 0 ? world.calls.frameNumber : 0),
            "request id of a metadata read");
    switch ((tagId & ~kPools) - fuzz::kFirstTagId) {
    case 0:
        return pool == kTagPoolRequest ? world.metadata : nullptr;
    case 3:
        return pool == kTagPoolCameraConfig ? world.cameraConfigs : nullptr;
    case 4:
        return pool == kTagPoolUseCase ? world.inputConfig : nullptr;
    case 5:
        return pool == kTagPoolRequest ? world.faceResults : nullptr;
    case 9:
    case 11:
        return world.word;
    default:
        return nullptr;
    }
}

CDKResult ChiNodeUtils::DefaultBufferNegotiation(ChiNodeQueryBufferInfo* query) {
    std::memset(query->negotiation, 0x5A, sizeof(query->negotiation));
    return world.result;
}

CamX::SettingsManager::~SettingsManager() = default;

CamX::SettingsManager* CamX::SettingsManager::GetInstance() {
    struct Manager : SettingsManager {
        const StaticSettings* GetStaticSettings() override {
            static StaticSettings settings = {};
            settings.imageDegree = world.imageDegree;
            return (world.missing & fuzz::kSettings) == 0 ? &settings : nullptr;
        }
    };
    static Manager manager;
    return (world.missing & fuzz::kSettingsManager) == 0 ? &manager : nullptr;
}

// --- Engine ---

namespace {

struct Instance {
    bool live = false;
};
Instance g_instances[4];

std::int64_t Answer(fuzz::EngineCall call, const void* handle) {
    const auto* instance = static_cast<const Instance*>(handle);
    Require(instance >= g_instances && instance < std::end(g_instances) && instance->live,
            "engine call without a live instance");
    const std::int64_t result = world.results[call];
    world.calls.engineRan = true;
    world.calls.engineFailed |= result != 0;
    return result;
}

template <typename Visit>
void ForEachRow(const PLIM_OFFSCREEN& image, const Visit& visit) {
    Require(image.u32Format == PLIM_PAF_NV12, "image format");
    for (int plane = 0; plane < 2; ++plane) {
        for (std::int64_t row = 0; row < image.i32Height / (plane + 1); ++row) {
            visit(image.pu8Plane[plane] + row * image.i32Pitch[plane],
                  static_cast<std::size_t>(image.i32Width));
        }
    }
}

void ReadFocus(const TSL_DCR_FOCUSPARAM& focus) {
    Require(focus.i32FaceNum >= 0 && focus.i32FaceNum <= kFaceCapacity, "face count");
    fuzz::ReadBytes(focus.pFaceRects, kFaceCapacity * sizeof(TSL_RECT));
    fuzz::ReadBytes(focus.pFaceOrients, kFaceCapacity * sizeof(std::int32_t));
}

} // namespace

extern "C" {

const TSL_DCR_VERSION* TSL_DCIR_GetVersion() {
    static TSL_DCR_VERSION version;
    version.pVersion = (world.missing & fuzz::kVersionText) == 0 ? "hostile engine" : nullptr;
    return (world.missing & fuzz::kVersion) == 0 ? &version : nullptr;
}

std::int64_t TSL_DCIR_Init(void** handle, std::int32_t) {
    Instance* instance = std::find_if(std::begin(g_instances), std::end(g_instances),
                                      [](const Instance& one) { return !one.live; });
    Require(instance != std::end(g_instances), "too many engine instances");
    if (world.results[fuzz::kInit] == 0) {
        instance->live = true;
        *handle = instance;
        ++world.engineInstances;
    }
    return world.results[fuzz::kInit];
}

std::int64_t TSL_DCIR_Uninit(void** handle) {
    Answer(fuzz::kInit, *handle);
    static_cast<Instance*>(*handle)->live = false;
    --world.engineInstances;
    return 1; // nobody looks at it
}

std::int64_t TSL_DCIR_Reset(void* handle) {
    return Answer(fuzz::kReset, handle);
}

std::int64_t TSL_DCIR_SetCameraImageInfo(void* handle, TSL_DCR_CAMERAIMAGEINFO* info) {
    fuzz::ReadBytes(info, sizeof(*info));
    return Answer(fuzz::kSetCameraImageInfo, handle);
}

std::int64_t TSL_DCIR_SetCaliData(void* handle, TSL_DCR_CALDATA* data) {
    Require(data->i32CaliDataSize == 2048 && world.openedSize == 2048, "calibration size");
    fuzz::ReadBytes(data->pCaliData, 2048);
    return Answer(fuzz::kSetCaliData, handle);
}

std::int64_t TSL_DCIR_GetImageSizeInCalibration(void* handle, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight) {
    *mainWidth = world.calibrationSizes[0];
    *mainHeight = world.calibrationSizes[1];
    *auxWidth = world.calibrationSizes[2];
    *auxHeight = world.calibrationSizes[3];
    return Answer(fuzz::kGetImageSize, handle);
}

std::int64_t TSL_DCIR_CalcDisparityData(void* handle, PLIM_OFFSCREEN* mainImage,
                                        PLIM_OFFSCREEN* auxImage, TSL_DCR_FOCUSPARAM* focus) {
    ForEachRow(*mainImage, fuzz::ReadBytes);
    ForEachRow(*auxImage, fuzz::ReadBytes);
    ReadFocus(*focus);
    return Answer(fuzz::kCalc, handle);
}

std::int64_t TSL_DCIR_GetDisparityDataSize(void* handle, std::int32_t* size) {
    *size = world.dataSize;
    return Answer(fuzz::kGetDataSize, handle);
}

std::int64_t TSL_DCIR_GetDisparityData(void* handle, void* data, std::int32_t* size) {
    if (*size > 0) {
        std::memset(data, fuzz::kDepth, static_cast<std::size_t>(*size));
    }
    world.calls.dataRead = true;
    *size = world.activeSize;
    return Answer(fuzz::kGetData, handle);
}

std::int64_t TSL_DCIR_Process(void* handle, PLIM_OFFSCREEN* mainImage, void* disparity,
                              std::int32_t disparitySize, TSL_DCR_BLURPARAM* blur,
                              TSL_DCR_FOCUSPARAM* focus, PLIM_OFFSCREEN* outputImage) {
    // An engine knows how much it gave; the count that it gets back is its own.
    Require(disparitySize == world.activeSize, "disparity byte count");
    Require(blur->i32BlurIntensity >= 0 && blur->i32BlurIntensity <= 100, "blur intensity");
    ReadFocus(*focus);
    ForEachRow(*mainImage, fuzz::ReadBytes);
    fuzz::ReadBytes(disparity, static_cast<std::size_t>(std::clamp(
                                   world.dataSize, 0, disparitySize > 0 ? disparitySize : 0)));
    ForEachRow(*outputImage, [](std::uint8_t* row, std::size_t bytes) {
        std::memset(row, fuzz::kRendered, bytes);
    });
    const std::int64_t result = Answer(fuzz::kProcess, handle);
    world.calls.processed = result == 0;
    return result;
}

} // extern "C"
