#pragma once

#include <cstdint>

#include "platform/layout.h"

// The dual-camera refocus engine, libtessola_dualcam_refocus_image.so: its functions and records as
// the node uses them.
//
// Every function that returns a number returns 0 on success; anything else is a failure code of the
// engine's own. No pointer may be null, no argument overlaps another, and the engine keeps no
// pointer beyond the call, unless a function says otherwise. An instance is used by one thread at a
// time; different instances are independent.

constexpr std::uint32_t PLIM_PAF_NV12 = 0x801;

// An image by address; it owns no pixels. NV12: plane 0 holds i32Height rows of i32Width bytes of
// luma, plane 1 i32Height / 2 rows of i32Width / 2 pairs of chroma, U first; planes 2 and 3 are not
// used. The memory behind it lives as long as the request that brought it.
struct PLIM_OFFSCREEN {
    std::uint32_t u32Format; // PLIM_PAF_NV12
    std::int32_t i32Width;   // pixels
    std::int32_t i32Height;  // rows
    std::uint32_t padding;
    std::uint8_t* pu8Plane[4];
    std::int32_t i32Pitch[4]; // bytes from the start of one row to the next, at least the width
};
PIN_BINARY_RECORD(PLIM_OFFSCREEN);
PIN_SIZE(PLIM_OFFSCREEN, 64);
PIN_OFFSET(PLIM_OFFSCREEN, i32Width, 4);
PIN_OFFSET(PLIM_OFFSCREEN, i32Height, 8);
PIN_OFFSET(PLIM_OFFSCREEN, pu8Plane, 16);
PIN_OFFSET(PLIM_OFFSCREEN, i32Pitch, 48);

struct TSL_POINT {
    std::int32_t x;
    std::int32_t y;
};
PIN_BINARY_RECORD(TSL_POINT);
PIN_SIZE(TSL_POINT, 8);

// In image pixels. All four edges are part of the rectangle.
struct TSL_RECT {
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;
};
PIN_BINARY_RECORD(TSL_RECT);
PIN_SIZE(TSL_RECT, 16);

struct TSL_DCR_VERSION {
    std::uint8_t reserved[32];
    const char* pVersion; // zero-terminated
};
PIN_BINARY_RECORD(TSL_DCR_VERSION);
PIN_OFFSET(TSL_DCR_VERSION, pVersion, 32);

struct TSL_DCR_CALDATA {
    std::uint8_t* pCaliData; // the caller's; the engine copies what it needs
    std::int32_t i32CaliDataSize;
    std::uint32_t padding;
};
PIN_BINARY_RECORD(TSL_DCR_CALDATA);
PIN_SIZE(TSL_DCR_CALDATA, 16);
PIN_OFFSET(TSL_DCR_CALDATA, i32CaliDataSize, 8);

// Which part of each sensor the images show, in sensor pixels before any scaling. All zero before
// the first request.
struct TSL_DCR_CAMERAIMAGEINFO {
    std::int32_t i32MainWidth_CropNoScale;
    std::int32_t i32MainHeight_CropNoScale;
    std::int32_t i32AuxWidth_CropNoScale;
    std::int32_t i32AuxHeight_CropNoScale;
    std::int32_t i32ImageDegree; // rotation of the images: 0, 90, 180 or 270
};
PIN_BINARY_RECORD(TSL_DCR_CAMERAIMAGEINFO);
PIN_SIZE(TSL_DCR_CAMERAIMAGEINFO, 20);
PIN_OFFSET(TSL_DCR_CAMERAIMAGEINFO, i32MainHeight_CropNoScale, 4);
PIN_OFFSET(TSL_DCR_CAMERAIMAGEINFO, i32AuxWidth_CropNoScale, 8);
PIN_OFFSET(TSL_DCR_CAMERAIMAGEINFO, i32AuxHeight_CropNoScale, 12);
PIN_OFFSET(TSL_DCR_CAMERAIMAGEINFO, i32ImageDegree, 16);

// Room of the two face arrays, in entries.
constexpr std::int32_t kFaceCapacity = 10;

// The engine's code of a face's orientation, by clockwise quarter turns of the face.
constexpr std::int32_t kFaceOrients[4] = {1, 3, 4, 2};

// Clockwise degrees of an orientation code; 0 for a code that is none.
constexpr std::int32_t FaceDegrees(std::int32_t orient) {
    std::int32_t degrees = 0;
    for (std::int32_t turns = 0; turns < 4; ++turns) {
        degrees = kFaceOrients[turns] == orient ? turns * 90 : degrees;
    }
    return degrees;
}

// Where the subject is. The arrays are the caller's.
struct TSL_DCR_FOCUSPARAM {
    TSL_POINT ptFocus; // main image pixels
    std::uint8_t reserved8[24];
    TSL_RECT* pFaceRects;       // kFaceCapacity entries, main image pixels
    std::int32_t* pFaceOrients; // kFaceCapacity entries, of kFaceOrients
    std::int32_t i32FaceNum;    // valid entries in both arrays
    std::uint32_t reserved52;
};
PIN_BINARY_RECORD(TSL_DCR_FOCUSPARAM);
PIN_SIZE(TSL_DCR_FOCUSPARAM, 56);
PIN_OFFSET(TSL_DCR_FOCUSPARAM, pFaceRects, 32);
PIN_OFFSET(TSL_DCR_FOCUSPARAM, pFaceOrients, 40);
PIN_OFFSET(TSL_DCR_FOCUSPARAM, i32FaceNum, 48);

struct TSL_DCR_BLURPARAM {
    std::int32_t i32BlurIntensity; // 0 to 100
};
PIN_BINARY_RECORD(TSL_DCR_BLURPARAM);
PIN_SIZE(TSL_DCR_BLURPARAM, 4);

// Sizes in a calibration are counted in hundredths of a pixel.
constexpr std::int32_t kCalibrationUnitsPerPixel = 100;

// The only mode the node starts an instance in.
constexpr std::int32_t kEngineModeCapture = 1;

// The calls in the order of an instance's life:
//
//   TSL_DCIR_Init
//   TSL_DCIR_SetCameraImageInfo, TSL_DCIR_SetCaliData, TSL_DCIR_GetImageSizeInCalibration
//   for each picture: TSL_DCIR_Reset, TSL_DCIR_SetCameraImageInfo, TSL_DCIR_CalcDisparityData,
//       TSL_DCIR_GetDisparityDataSize, TSL_DCIR_GetDisparityData, TSL_DCIR_Process
//   TSL_DCIR_Uninit
//
// A failed call does not end the instance: later calls may follow, and TSL_DCIR_Uninit must. The
// images of a picture stay as they are from TSL_DCIR_CalcDisparityData until TSL_DCIR_Process has
// returned.
extern "C" {

// The library's version, owned by the engine and valid as long as the library is loaded. Needs no
// instance. May be null, and so may the text in it.
const TSL_DCR_VERSION* TSL_DCIR_GetVersion();

// Starts an instance and stores its handle at `handle`, which holds null before. `mode`:
// kEngineModeCapture.
std::int64_t TSL_DCIR_Init(void** handle, std::int32_t mode);

// Ends the instance. `handle` is where its handle is stored; its value is of no use afterwards.
std::int64_t TSL_DCIR_Uninit(void** handle);

// Forgets the images and the disparity of the last picture; calibration and image info stay.
std::int64_t TSL_DCIR_Reset(void* handle);

// Copies the record.
std::int64_t TSL_DCIR_SetCameraImageInfo(void* handle, TSL_DCR_CAMERAIMAGEINFO* info);

// Copies what it needs of the bytes; the caller frees them right after.
std::int64_t TSL_DCIR_SetCaliData(void* handle, TSL_DCR_CALDATA* data);

// The image sizes that the calibration was made for, in hundredths of a pixel. Follows a successful
// TSL_DCIR_SetCaliData; a failure may leave the four numbers as they were.
std::int64_t TSL_DCIR_GetImageSizeInCalibration(void* handle, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight);

// Computes the disparity of two images of the same moment. Reads the images and `focus`.
std::int64_t TSL_DCIR_CalcDisparityData(void* handle, PLIM_OFFSCREEN* mainImage,
                                        PLIM_OFFSCREEN* auxImage, TSL_DCR_FOCUSPARAM* focus);

// Size in bytes of the disparity data of the last TSL_DCIR_CalcDisparityData; below 1 where there
// is none.
std::int64_t TSL_DCIR_GetDisparityDataSize(void* handle, std::int32_t* size);

// Copies the disparity data to `data`. `size` holds the room there on entry, in bytes, and how many
// of them are valid afterwards.
std::int64_t TSL_DCIR_GetDisparityData(void* handle, void* data, std::int32_t* size);

// Renders the picture into `outputImage`, which may be written in part where the call fails.
// `disparity` holds `disparitySize` bytes as TSL_DCIR_GetDisparityData gave them. The image sizes
// need not agree.
std::int64_t TSL_DCIR_Process(void* handle, PLIM_OFFSCREEN* mainImage, void* disparity,
                              std::int32_t disparitySize, TSL_DCR_BLURPARAM* blur,
                              TSL_DCR_FOCUSPARAM* focus, PLIM_OFFSCREEN* outputImage);

} // extern "C"
