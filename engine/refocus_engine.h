#pragma once

#include <cstdint>

#include "platform/layout.h"

// The dual-camera refocus engine, libtessola_dualcam_refocus_image.so: its functions and records as
// the node uses them.
//
// Every function that returns a number returns 0 on success; anything else is a failure code of the
// engine's own. An instance is used by one thread at a time; different instances are independent.

constexpr std::uint32_t PLIM_PAF_NV12 = 0x801;

// An image by address; it owns no pixels. NV12: plane 0 holds i32Height rows of i32Width bytes of
// luma, plane 1 i32Height / 2 rows of i32Width / 2 pairs of chroma, U first. Pitches are the bytes
// from the start of one row to the next.
struct PLIM_OFFSCREEN {
    std::uint32_t u32Format;
    std::int32_t i32Width;
    std::int32_t i32Height;
    std::uint32_t padding;
    std::uint8_t* pu8Plane[4];
    std::int32_t i32Pitch[4];
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

// All four edges are part of the rectangle.
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

// Which part of each sensor the images show, in sensor pixels before any scaling.
struct TSL_DCR_CAMERAIMAGEINFO {
    std::int32_t i32MainWidth_CropNoScale;
    std::int32_t i32MainHeight_CropNoScale;
    std::int32_t i32AuxWidth_CropNoScale;
    std::int32_t i32AuxHeight_CropNoScale;
    std::int32_t i32ImageDegree;
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

extern "C" {

// Owned by the engine, valid as long as the library is loaded. May be null.
const TSL_DCR_VERSION* TSL_DCIR_GetVersion();

// Stores the new instance's handle at `handle`; TSL_DCIR_Uninit ends it.
std::int64_t TSL_DCIR_Init(void** handle, std::int32_t mode);
std::int64_t TSL_DCIR_Uninit(void** handle);

// Forgets the images and the disparity of the last picture; calibration and image info stay.
std::int64_t TSL_DCIR_Reset(void* handle);

std::int64_t TSL_DCIR_SetCameraImageInfo(void* handle, TSL_DCR_CAMERAIMAGEINFO* info);
std::int64_t TSL_DCIR_SetCaliData(void* handle, TSL_DCR_CALDATA* data);

// The image sizes that the calibration was made for, in hundredths of a pixel.
std::int64_t TSL_DCIR_GetImageSizeInCalibration(void* handle, std::int32_t* mainWidth,
                                                std::int32_t* mainHeight, std::int32_t* auxWidth,
                                                std::int32_t* auxHeight);

std::int64_t TSL_DCIR_CalcDisparityData(void* handle, PLIM_OFFSCREEN* mainImage,
                                        PLIM_OFFSCREEN* auxImage, TSL_DCR_FOCUSPARAM* focus);

// Size in bytes of the disparity data of the last TSL_DCIR_CalcDisparityData.
std::int64_t TSL_DCIR_GetDisparityDataSize(void* handle, std::int32_t* size);

// `size` holds the room at `data` on entry and the valid bytes afterwards.
std::int64_t TSL_DCIR_GetDisparityData(void* handle, void* data, std::int32_t* size);

std::int64_t TSL_DCIR_Process(void* handle, PLIM_OFFSCREEN* mainImage, void* disparity,
                              std::int32_t disparitySize, TSL_DCR_BLURPARAM* blur,
                              TSL_DCR_FOCUSPARAM* focus, PLIM_OFFSCREEN* outputImage);

} // extern "C"
