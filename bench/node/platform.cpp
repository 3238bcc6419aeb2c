#include "bench/node/platform.h"

#include <fcntl.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "engine/calibration_file.h"
#include "engine/refocus_engine.h"
#include "platform/camx_settings.h"
#include "platform/chi_node_utils.h"
#include "platform/log.h"
#include "platform/properties.h"

namespace bench {
namespace {

constexpr std::uint32_t kFirstTagId = 0x8100;
constexpr std::uint32_t kTagIdMask = 0xFFFF; // the rest of an id names the pool

constexpr const char* kTagNames[kOtherTags] = {
    "InputMetadataBokeh", "PhysicalCameraConfigs", "PhysicalCameraInputConfig",
    "OEMFDResults",       "SelectFaceIndex",
};

constexpr char kDumpFolder[] = "/data/vendor/camera";

CDKResult GetVendorTagBase(ChiVendorTagBaseQuery* query) {
    std::uint32_t tag = 0;
    while (tag < kOtherTags && std::strcmp(kTagNames[tag], query->tag) != 0) {
        ++tag;
    }
    query->tagId = kFirstTagId + tag;
    return CDKResultSuccess;
}

CDKResult SetMetadata(const ChiMetadataSet*) {
    return CDKResultSuccess;
}

CDKResult QueryRequestState(void*, ChiRequestStateQuery*) {
    return CDKResultSuccess;
}

} // namespace

Platform& platform() {
    static Platform instance;
    return instance;
}

ChiNodeInterface& Interface() {
    static ChiNodeInterface table = {.size = sizeof(table),
                                     .setMetadata = SetMetadata,
                                     .getVendorTagBase = GetVendorTagBase,
                                     .queryRequestState = QueryRequestState};
    return table;
}

std::string DevicePath(const std::string& path) {
    return platform().folder + path;
}

DeviceFolder::DeviceFolder() {
    const std::string name = std::filesystem::temp_directory_path() / "node-bench-XXXXXX";
    if (name.size() >= sizeof(platform().folder)) {
        throw std::runtime_error("the folder for temporary files has too long a name: " + name);
    }
    std::strcpy(platform().folder, name.c_str());
    if (mkdtemp(platform().folder) == nullptr) {
        throw std::runtime_error("cannot make the folder " + name);
    }
    const std::filesystem::path calibration = DevicePath(kCalibrationPaths[0]);
    std::filesystem::create_directories(calibration.parent_path());
    std::filesystem::create_directories(DevicePath(kDumpFolder));
    std::ofstream(calibration) << std::string(kCalibrationFileSize, 'c');
}

DeviceFolder::~DeviceFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(platform().folder, ignored);
}

} // namespace bench

using bench::platform;

// --- Platform functions ---

extern "C" int __android_log_print(int, const char*, const char*, ...) {
    ++platform().logged;
    return 0;
}

extern "C" int property_get(const char*, char* value, const char* default_value) {
    std::strcpy(value, default_value);
    return static_cast<int>(std::strlen(value));
}

CDKResult ChiNodeUtils::QueryVendorTag(ChiQueryVendorTag*, CHIVENDORTAGINFO*) {
    return CDKResultSuccess;
}

CDKResult ChiNodeUtils::SetNodeInterface(ChiNodeInterface* given, const char*,
                                         ChiNodeInterface* copy, unsigned int* vendorTagBase) {
    *copy = *given;
    *vendorTagBase = 0x9000;
    return CDKResultSuccess;
}

void* ChiNodeUtils::GetDataList(unsigned long, unsigned int tagId, ChiMetadataType,
                                ChiNodeInterface*, void*, unsigned int) {
    return platform().metadata[(tagId & bench::kTagIdMask) - bench::kFirstTagId];
}

CDKResult ChiNodeUtils::DefaultBufferNegotiation(ChiNodeQueryBufferInfo*) {
    return CDKResultSuccess;
}

namespace {

class Settings : public CamX::SettingsManager {
public:
    const CamX::StaticSettings* GetStaticSettings() override { return nullptr; }
};

} // namespace

CamX::SettingsManager::~SettingsManager() = default;

CamX::SettingsManager* CamX::SettingsManager::GetInstance() {
    static Settings settings;
    return &settings;
}

// --- An engine that does nothing ---

extern "C" {

const TSL_DCR_VERSION* TSL_DCIR_GetVersion() {
    return nullptr;
}

std::int64_t TSL_DCIR_Init(void** handle, std::int32_t) {
    if (!platform().engineStarts) {
        return 1;
    }
    *handle = &platform();
    return 0;
}

std::int64_t TSL_DCIR_Uninit(void** handle) {
    *handle = nullptr;
    return 0;
}

std::int64_t TSL_DCIR_Reset(void*) {
    return 0;
}

std::int64_t TSL_DCIR_SetCameraImageInfo(void*, TSL_DCR_CAMERAIMAGEINFO*) {
    return 0;
}

std::int64_t TSL_DCIR_SetCaliData(void*, TSL_DCR_CALDATA*) {
    return 0;
}

std::int64_t TSL_DCIR_GetImageSizeInCalibration(void*, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight) {
    *mainWidth = *auxWidth = platform().calibrationSize[0];
    *mainHeight = *auxHeight = platform().calibrationSize[1];
    return 0;
}

std::int64_t TSL_DCIR_CalcDisparityData(void*, PLIM_OFFSCREEN*, PLIM_OFFSCREEN*,
                                        TSL_DCR_FOCUSPARAM*) {
    return 0;
}

std::int64_t TSL_DCIR_GetDisparityDataSize(void*, std::int32_t* size) {
    *size = platform().disparityBytes;
    return 0;
}

std::int64_t TSL_DCIR_GetDisparityData(void*, void*, std::int32_t*) {
    return 0;
}

std::int64_t TSL_DCIR_Process(void*, PLIM_OFFSCREEN*, void*, std::int32_t, TSL_DCR_BLURPARAM*,
                              TSL_DCR_FOCUSPARAM*, PLIM_OFFSCREEN*) {
    ++platform().rendered;
    return 0;
}

// --- The device's files: the linker sends this program's calls here ---

int __real_open(const char* path, int flags, ...);
std::FILE* __real_fopen(const char* path, const char* mode);

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    char real[512];
    std::snprintf(real, sizeof(real), "%s%s", platform().folder, path);
    return __real_open(real, flags, mode);
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    char real[512];
    std::snprintf(real, sizeof(real), "%s%s", platform().folder, path);
    return __real_fopen(real, mode);
}

} // extern "C"
