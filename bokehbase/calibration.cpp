#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/log.h"
#include "platform/device_names.h"

using device::kCalibrationFileSize;

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

} // namespace

CDKResult ChiNodeBokehBase::GetCalibrationBinData(TSL_DCR_CALDATA* data, const char* path) {
    const std::lock_guard lock(m_mutex);
    char name[256] = {};
    std::strncpy(name, path, sizeof(name) - 1);
    BASE_DEBUG("TSL_CTB: %s: %d:  : try to open file : %s\n", name);

    // Stays open until the engine has taken the data.
    const FileHandle file(std::fopen(name, "rb"));
    if (file == nullptr) {
        BASE_ERROR("TSL_CTB: %s: %d: : %s readCaliData fail\n", name);
        return CDKResultEFailed;
    }
    // The length tells a calibration from any other file before a byte of it is read.
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    if (size != kCalibrationFileSize) {
        BASE_DEBUG("TSL_CTB: %s: %d: : %s, size: %d  != %d\n", name, static_cast<int>(size),
                   kCalibrationFileSize);
        return CDKResultEFailed;
    }
    std::fseek(file.get(), 0, SEEK_SET);
    std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[kCalibrationFileSize]);
    if (bytes == nullptr) {
        BASE_ERROR(kTextResult, CDKResultEFailed);
        return CDKResultEFailed;
    }
    if (std::fread(bytes.get(), 1, kCalibrationFileSize, file.get()) < kCalibrationFileSize) {
        BASE_ERROR("TSL_CTB: %s: %d: : %s readCaliData read file size error!\n", name);
        return CDKResultEFailed;
    }
    delete[] data->pCaliData; // left by a file that the engine refused
    data->pCaliData = bytes.release();
    data->i32CaliDataSize = kCalibrationFileSize;
    if (!HandCalibrationToEngine(data)) {
        return CDKResultEFailed;
    }
    BASE_DEBUG("TSL_CTB: %s: %d: : %s readCaliData read cali data success, size: %d\n", name,
               data->i32CaliDataSize);
    return CDKResultSuccess;
}

bool ChiNodeBokehBase::HandCalibrationToEngine(TSL_DCR_CALDATA* data) {
    constexpr char kOperation[] = "GetCalibrationBinData";
    if (const std::int64_t result = SetCaliData(data); result != 0) {
        BASE_ERROR_AS(kOperation, "TSL_CTB: %s: %d:  : Initialize SetCaliData res = %ld\n", result);
        return false;
    }
    if (GetImageSizeInCalibration(&m_caliMainWidth, &m_caliMainHeight, &m_caliAuxWidth,
                                  &m_caliAuxHeight) == 0) {
        BASE_DEBUG_AS(kOperation,
                      "TSL_CTB: %s: %d: : the size in cali is: main [w, h]: [%d, %d], aux [w, h]: "
                      "[%d, %d]\n",
                      m_caliMainWidth / kCalibrationUnitsPerPixel,
                      m_caliMainHeight / kCalibrationUnitsPerPixel,
                      m_caliAuxWidth / kCalibrationUnitsPerPixel,
                      m_caliAuxHeight / kCalibrationUnitsPerPixel);
    }
    // Sizes that are still 0 say that the engine took the bytes but found no calibration in them.
    return m_caliMainWidth != 0 && m_caliMainHeight != 0 && m_caliAuxWidth != 0 &&
           m_caliAuxHeight != 0;
}

CDKResult ChiNodeBokehBase::GetCalibrationData(TSL_DCR_CALDATA* data) {
    for (const char* path : device::kCalibrationPaths) {
        if (GetCalibrationBinData(data, path) == CDKResultSuccess) {
            // At error priority, so that a field log always tells which file is in use.
            BASE_ERROR("TSL_CTB: %s: %d: : read  cali data success, path: %s length:%d\n", path,
                       static_cast<int>(std::size(device::kCalibrationPaths)));
            return CDKResultSuccess;
        }
    }
    BASE_ERROR("TSL_CTB: %s: %d: : read  cali data fail\n");
    return CDKResultEFailed;
}

void ChiNodeBokehBase::ReleaseCalibrationData(TSL_DCR_CALDATA* data) {
    BASE_DEBUG("TSL_CTB: %s: %d:  ReleaseCalibrationData E\n");
    delete[] data->pCaliData;
    data->pCaliData = nullptr;
}
