#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <limits>

#include "bokehbase/bokeh_base.h"
#include "bokehbase/log.h"
#include "platform/device_names.h"

namespace {

constexpr std::size_t kPathSize = 256;
constexpr std::size_t kTimeStampSize = 64;

// The time's second in local time. Two nodes may dump at the same moment, so nothing is shared but
// the zone, which the C library takes from the system once a process: localtime_r may rely on that.
void FormatTimeStamp(const timeval& time, char (&text)[kTimeStampSize]) {
    [[maybe_unused]] static const bool zoneIsSet = (tzset(), true);
    const std::time_t seconds = time.tv_sec;
    std::tm local = {};
    localtime_r(&seconds, &local);
    std::strftime(text, sizeof(text), "%Y%m%d_%H%M%S", &local);
}

void FormatName(char (&name)[kPathSize], const char* prefix, const timeval& time,
                const char* suffix) {
    char stamp[kTimeStampSize] = {};
    FormatTimeStamp(time, stamp);
    std::snprintf(name, sizeof(name), "%s%s%s", prefix, stamp, suffix);
}

// A longer path is cut.
void FormatPath(char (&path)[kPathSize], const char* name, std::uint32_t width,
                std::uint32_t height, const char* extension) {
    std::snprintf(path, sizeof(path), "%s/%s_%dx%d%s", device::kDumpFolder, name, width, height,
                  extension);
}

// An existing file keeps whatever is longer than the new content.
int OpenDump(const char* path) {
    return open(path, O_RDWR | O_CREAT, 0777);
}

// Bytes of `rows` rows; 0 for a descriptor that describes no image, or one of more bytes than a
// plane of a real image has.
std::size_t PlaneBytes(std::int32_t pitch, std::int32_t rows) {
    const std::int64_t bytes = static_cast<std::int64_t>(pitch) * rows;
    return pitch <= 0 || rows <= 0 || bytes > std::numeric_limits<std::int32_t>::max()
               ? 0
               : static_cast<std::size_t>(bytes);
}

} // namespace

void ChiNodeBokehBase::DumpAndSaveYUV(frame_params_t params, timeval time, const char* prefix) {
    BASE_DEBUG(kTextIn);
    char auxName[kPathSize];
    char mainName[kPathSize];
    char outputName[kPathSize];
    FormatName(auxName, prefix, time, device::kAuxDumpSuffix);
    FormatName(mainName, prefix, time, device::kMainDumpSuffix);
    FormatName(outputName, prefix, time, device::kOutputDumpSuffix);
    DumpYUVData(&params.stAuxImage, auxName);
    DumpYUVData(&params.stMainImage, mainName);
    DumpYUVData(&params.stOutputImage, outputName);

    // Named after the image rather than its pitch: what reads the dumps takes the width from here.
    const ChiPlaneFormat& plane = params.pMainBuffer->format.plane[0];
    char path[kPathSize];
    FormatPath(path, mainName, plane.width, plane.height, device::kParameterDumpEnding);
    saveFile(path, params);
    BASE_DEBUG(kTextOut);
}

void ChiNodeBokehBase::saveFile(const char* path, const frame_params_t& params) {
    std::FILE* file = std::fopen(path, "wt+");
    if (file == nullptr) {
        BASE_ERROR("TSL_CTB: %s: %d: Failed to open file: %s\n", path);
        return;
    }
    // One value a line, in the order in which a replay reads them back.
    const TSL_DCR_CAMERAIMAGEINFO& info = params.cameraImageInfo;
    std::fwrite("[0]\n", 1, 4, file);
    std::fprintf(file, "i32BlurIntensity=%d\n", params.i32BlurIntensity);
    std::fprintf(file, "ptFocus_x=%d\n", params.ptFocus.x);
    std::fprintf(file, "ptFocus_y=%d\n", params.ptFocus.y);
    std::fprintf(file, "i32MainWidth_CropNoScale=%d\n", info.i32MainWidth_CropNoScale);
    std::fprintf(file, "i32MainHeight_CropNoScale=%d\n", info.i32MainHeight_CropNoScale);
    std::fprintf(file, "i32AuxWidth_CropNoScale=%d\n", info.i32AuxWidth_CropNoScale);
    std::fprintf(file, "i32AuxHeight_CropNoScale=%d\n", info.i32AuxHeight_CropNoScale);
    std::fprintf(file, "i32ImageDegree=%d\n\n", info.i32ImageDegree);
    std::fprintf(file, "facenum=%d\n", params.i32FaceNum);
    for (std::int32_t i = 0; i < params.i32FaceNum; ++i) {
        const TSL_RECT& face = params.pFaceRects[i];
        std::fprintf(file, "[0_face_%d]\n", i);
        std::fprintf(file, "left=%d\n", face.left);
        std::fprintf(file, "top=%d\n", face.top);
        std::fprintf(file, "right=%d\n", face.right);
        std::fprintf(file, "bottom=%d\n", face.bottom);
        std::fprintf(file, "orient=%d\n", params.pFaceOrients[i]);
    }
    std::fclose(file);
    BASE_DEBUG("TSL_CTB: %s: %d: File saved: %s\n", path);
}

void ChiNodeBokehBase::DumpYUVData(PLIM_OFFSCREEN* image, const char* name) {
    const std::int32_t pitch = image->i32Pitch[0];
    const std::int32_t height = image->i32Height;
    char path[kPathSize];
    FormatPath(path, name, static_cast<std::uint32_t>(pitch), static_cast<std::uint32_t>(height),
               device::kImageDumpEnding);
    BASE_DEBUG("TSL_CTB: %s: %d:  try to open file : %s (IN)\n", path);
    if (const int file = OpenDump(path); file >= 0) {
        BASE_DEBUG("TSL_CTB: %s: %d:  : DumpYUVData open success\n");
        // A plane goes out whole, row padding included; what cannot be written is not tried again.
        ssize_t written = write(file, image->pu8Plane[0], PlaneBytes(pitch, height));
        BASE_DEBUG("TSL_CTB: %s: %d:   plane[0] bytes_read: %u\n",
                   static_cast<unsigned int>(written));
        written = write(file, image->pu8Plane[1], PlaneBytes(pitch, height / 2));
        BASE_DEBUG("TSL_CTB: %s: %d:   plane[1] bytes_read: %u\n",
                   static_cast<unsigned int>(written));
        close(file);
    }
    BASE_DEBUG(kTextColonOut);
}

void ChiNodeBokehBase::DumpDepthData(unsigned char* data, int size, unsigned int width,
                                     unsigned int height, timeval time, const char* prefix) {
    char name[kPathSize];
    FormatName(name, prefix, time, device::kMainDumpSuffix);
    char path[kPathSize];
    FormatPath(path, name, width, height, device::kDisparityDumpEnding);
    BASE_DEBUG("TSL_CTB: %s: %d:  try to open file : %s\n", path);
    if (const int file = OpenDump(path); file >= 0) {
        const ssize_t written = write(file, data, PlaneBytes(size, 1));
        BASE_DEBUG("TSL_CTB: %s: %d:  bytes_write: %u\n", static_cast<unsigned int>(written));
        close(file);
    }
    BASE_DEBUG(kTextColonOut);
}
