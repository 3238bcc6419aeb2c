#pragma once

#include <optional>
#include <string>
#include <string_view>

// Names of the files that the node dumps, for instance
//
//   IMG_20240131_235959_0_4096x3000.nv12          main image, pitch x height
//   IMG_20240131_235959_1_4096x3000.nv12          aux image, pitch x height
//   IMG_20240131_235959_res_4096x3000.nv12        output image, pitch x height
//   IMG_20240131_235959_0_4000x3000_metadata.txt  parameters; the main image's width x height
//   IMG_20240131_235959_0_4096x3000.Y8            disparity; the main image's pitch x height

// A file name that ends in a size: "<base>_<first>x<second><ending>".
struct SizedName {
    std::string base;
    int first = 0; // 1 to 999999, and so is `second`
    int second = 0;
    std::string ending; // ".nv12", ".Y8", "_metadata.txt" or any other extension

    std::string FileName() const;
};

std::optional<SizedName> ParseSizedName(std::string_view fileName);

enum class DumpRole { kMain, kAux, kOutput, kParameters, kDisparity };

struct DumpName {
    std::string stem; // prefix and time stamp, which all files of a capture share
    DumpRole role = DumpRole::kMain;
    int first = 0; // pitch in bytes; of the parameters the main image's width in pixels
    int height = 0;
};

// Nothing for a name that the node does not give.
std::optional<DumpName> ParseDumpName(std::string_view fileName);

std::string DumpFileName(const DumpName& name);

// "main", "aux", "output", "parameters", "disparity".
const char* RoleName(DumpRole role);
