#include "tests/tool/corruption.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

#include "host/picture/nv12.h"
#include "tests/tool/tool_runner.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_set.h"

namespace fs = std::filesystem;

namespace {

// One corruption under way.
struct Work {
    const SyntheticCapture& capture;
    const SyntheticCapture& other;
    std::mt19937 random;
    fs::path folder;
    DumpSet set;

    int Below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
    int Between(int low, int high) { return low + Below(high - low + 1); }
    DumpRole AnyImage() {
        constexpr std::array<DumpRole, 3> kImages{DumpRole::kMain, DumpRole::kAux,
                                                  DumpRole::kOutput};
        return kImages[static_cast<std::size_t>(Below(3))];
    }
    const DumpFile& File(DumpRole role) const { return *set.file(role); }
    Bytes Read(DumpRole role) const { return ReadFileBytes(File(role).path); }
    void Write(DumpRole role, const Bytes& bytes) const { WriteBytes(File(role).path, bytes); }
    void Rename(DumpRole role, int first, int height) const {
        DumpName name = File(role).name;
        name.first = first;
        name.height = height;
        fs::rename(File(role).path, folder / DumpFileName(name));
    }
};

host::Image ImageOf(const Work& work, DumpRole role) {
    const DumpFile& file = work.File(role);
    const int width = role == DumpRole::kAux ? work.capture.auxWidth : work.capture.width;
    return ReadImageDump(file, width);
}

Corrupted Truncate(Work& work) {
    const DumpRole role = work.AnyImage();
    Bytes bytes = work.Read(role);
    const int size = static_cast<int>(bytes.size());
    bytes.resize(static_cast<std::size_t>(
        size - work.Between(1, work.Below(2) == 0 ? size * 6 / 10 : 4000)));
    work.Write(role, bytes);
    return {"truncated to " + std::to_string(bytes.size()), Problem::kTruncated, role};
}

Corrupted Grow(Work& work) {
    const DumpRole role = work.Below(4) == 0 ? DumpRole::kDisparity : work.AnyImage();
    Bytes bytes = work.Read(role);
    const int size = static_cast<int>(bytes.size());
    const int more = work.Between(1, work.Below(2) == 0 ? size * 3 / 10 : 4000);
    const Bytes tail(bytes.end() - more, bytes.end()); // as of a longer file before it
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    work.Write(role, bytes);
    return {"grown by " + std::to_string(more), Problem::kGrown, role};
}

// The name says another pitch or height; the file keeps its length or has the one that the name
// says.
void Misname(Work& work, DumpRole role, int pitch, int height) {
    if (work.Below(2) == 0) {
        Bytes bytes = work.Read(role);
        bytes.resize(ImageBytes(host::Image::Format::Nv12, pitch, height));
        work.Write(role, bytes);
    }
    work.Rename(role, pitch, height);
}

Corrupted MisnamePitch(Work& work) {
    const DumpRole role = work.AnyImage();
    const DumpName& name = work.File(role).name;
    constexpr std::array<int, 5> kSteps{16, 32, 48, 64, 128};
    const int step = kSteps[static_cast<std::size_t>(work.Below(5))];
    const int pitch = name.first + (work.Below(2) == 0 ? step : -step);
    if (role == DumpRole::kMain) { // the disparity's name says the main image's pitch, too
        work.Rename(DumpRole::kDisparity, pitch, name.height);
    }
    Misname(work, role, pitch, name.height);
    return {fmt::format("pitch {} named {}", name.first, pitch), Problem::kPitch, role};
}

Corrupted MisnameHeight(Work& work) {
    const DumpRole role = work.AnyImage();
    const DumpName& name = work.File(role).name;
    const int step = 2 * work.Between(4, 32);
    const int height = name.height + (work.Below(2) == 0 ? step : -step);
    Misname(work, role, name.first, height);
    return {fmt::format("height {} named {}", name.height, height), Problem::kHeight, role};
}

Corrupted SwapChroma(Work& work) {
    const DumpRole role = work.AnyImage();
    host::Image image = ImageOf(work, role);
    for (int y = 0; y < image.planeRows(1); ++y) {
        std::uint8_t* row = image.row(1, y);
        for (int x = 0; x + 1 < image.width(); x += 2) {
            std::swap(row[x], row[x + 1]);
        }
    }
    work.Write(role, image.bytes());
    return {"U and V swapped", Problem::kChroma, role};
}

Corrupted RotateAux(Work& work) {
    const host::Image image = ImageOf(work, DumpRole::kAux);
    const RgbImage picture = Nv12ToRgb(image);
    const int quarters = work.Between(1, 3);
    const bool upright = quarters == 2;
    const int right = picture.width - 1;
    const int bottom = picture.height - 1;
    const RgbImage rotated = Paint(upright ? picture.width : picture.height,
                                   upright ? picture.height : picture.width, [&](int x, int y) {
                                       return upright ? ColourAt(picture, right - x, bottom - y)
                                              : quarters == 1 ? ColourAt(picture, y, bottom - x)
                                                              : ColourAt(picture, right - y, x);
                                   });
    const int pitch = upright ? image.pitch() : (rotated.width + 31) / 32 * 32;
    const host::Image result = RgbToNv12(rotated, pitch);
    work.Write(DumpRole::kAux, result.bytes());
    work.Rename(DumpRole::kAux, result.pitch(), result.height());
    return {"aux rotated by " + std::to_string(90 * quarters), Problem::kAuxRotated,
            DumpRole::kAux};
}

Corrupted SwapImages(Work& work) {
    DumpName main = work.File(DumpRole::kMain).name;
    DumpName aux = work.File(DumpRole::kAux).name;
    const fs::path temporary = work.folder / "swapping";
    fs::rename(work.File(DumpRole::kMain).path, temporary);
    std::swap(main.role, aux.role);
    fs::rename(work.File(DumpRole::kAux).path, work.folder / DumpFileName(aux));
    fs::rename(temporary, work.folder / DumpFileName(main));
    return {"main and aux swapped", Problem::kSwapped, std::nullopt};
}

void WriteAux(const Work& work, const RgbImage& picture) {
    const DumpName& name = work.File(DumpRole::kAux).name;
    work.Write(
        DumpRole::kAux,
        ScaleNv12(RgbToNv12(picture, 0), work.capture.auxWidth, name.height, name.first).bytes());
}

// The camera has turned and something has moved before the aux image was taken.
Corrupted LaterAux(Work& work) {
    const double down = work.Between(40, 80) / 1000.0 * (work.Below(2) == 0 ? 1 : -1) *
                        work.capture.height / work.capture.width;
    const double across = work.Between(-60, 60) / 1000.0;
    if (work.capture.scene) {
        WriteAux(work, work.capture.scene->Paint(work.capture.auxWidth, work.capture.auxHeight,
                                                 {.aux = true,
                                                  .panX = across,
                                                  .panY = down,
                                                  .walkX = work.Between(-50, 50) / 1000.0,
                                                  .walkY = work.Between(-30, 30) / 1000.0}));
    } else { // a photo cannot be taken again: its part moves
        const RgbImage picture = Nv12ToRgb(ImageOf(work, DumpRole::kAux));
        const int dx = static_cast<int>(across * picture.width);
        const int dy = static_cast<int>(down * picture.width);
        WriteAux(work, Paint(picture.width, picture.height, [&](int x, int y) {
                     return ColourAt(picture, std::clamp(x + dx, 0, picture.width - 1),
                                     std::clamp(y + dy, 0, picture.height - 1));
                 }));
    }
    return {"aux of another moment, moved by " + std::to_string(down), Problem::kMoment,
            DumpRole::kAux};
}

Corrupted OtherAux(Work& work) {
    if (!work.capture.scene && !work.other.scene) { // the same photo
        return LaterAux(work);
    }
    const DumpSet other = FindDumpSet(work.other.folder / work.other.stem);
    const DumpFile& file = *other.file(DumpRole::kAux);
    WriteAux(work, Nv12ToRgb(ReadImageDump(file, work.other.auxWidth)));
    return {"aux of " + work.other.stem, Problem::kMoment, DumpRole::kAux};
}

Corrupted ShrinkDisparity(Work& work) {
    Bytes bytes = work.Read(DumpRole::kDisparity);
    bytes.resize(bytes.size() / static_cast<std::size_t>(work.Between(2, 16)));
    work.Write(DumpRole::kDisparity, bytes);
    return {"disparity of " + std::to_string(bytes.size()), Problem::kDisparity,
            DumpRole::kDisparity};
}

Corrupted CopyMain(Work& work) {
    work.Write(DumpRole::kOutput, work.Read(DumpRole::kMain));
    return {"output a copy", Problem::kFallback, DumpRole::kOutput};
}

Corrupted Remove(Work& work) {
    constexpr std::array<DumpRole, 4> kNeeded{DumpRole::kMain, DumpRole::kAux, DumpRole::kOutput,
                                              DumpRole::kParameters};
    const DumpRole role = kNeeded[static_cast<std::size_t>(work.Below(4))];
    fs::remove(work.File(role).path);
    return {"missing", Problem::kMissing, role};
}

// What a text of the node never says.
Corrupted Contradict(Work& work) {
    const Bytes bytes = work.Read(DumpRole::kParameters);
    DumpParameters values = ParseParameterText(bytes).values;
    const int width = work.capture.width;
    std::string text;
    const int way = work.Below(12);
    const DumpedFace face{10, 12, 40, 50, 1};
    switch (way) {
    case 0:
        values.blur = work.Below(2) == 0 ? -work.Between(1, 100) : 100 + work.Between(1, 900);
        break;
    case 1:
        values.degree = work.Between(1, 89) + 90 * work.Below(4);
        break;
    case 2:
        values.focusX = work.Below(2) == 0 ? width + work.Below(500) : -work.Between(1, 500);
        break;
    case 3:
        values.focusY = work.capture.height + work.Below(500);
        break;
    case 4:
        values.mainCropWidth = work.Below(2) == 0 ? 0 : values.mainCropWidth * 2;
        break;
    case 5:
        values.auxCropHeight = work.Below(2) == 0 ? -1 : values.auxCropHeight * 2;
        break;
    case 6:
        values.faces.assign(1, face);
        std::swap(values.faces[0].left, values.faces[0].right);
        break;
    case 7:
        values.faces.assign(1, face);
        values.faces[0].orient = work.Below(2) == 0 ? 0 : work.Between(5, 360);
        break;
    case 8:
        values.faces.assign(1, {width + 20, 5, width + 80, 60, 1});
        break;
    case 9: // fewer faces than counted
        values.faces.assign(2, face);
        text = FormatParameterText(values);
        text.resize(text.find("[0_face_1]"));
        break;
    case 10: // a line lost
        text = FormatParameterText(values);
        text.erase(text.find("ptFocus_y"), text.find("i32MainWidth") - text.find("ptFocus_y"));
        break;
    default: // cut off
        text = FormatParameterText(values);
        text.resize(static_cast<std::size_t>(work.Between(0, static_cast<int>(text.size()) - 1)));
        break;
    }
    text = way < 9 ? FormatParameterText(values) : text;
    work.Write(DumpRole::kParameters, {text.begin(), text.end()});
    return {"parameters, way " + std::to_string(way), Problem::kParameters, DumpRole::kParameters};
}

} // namespace

Corrupted Corrupt(int kind, const SyntheticCapture& capture, const SyntheticCapture& other,
                  std::uint32_t seed, const fs::path& folder) {
    constexpr std::array<Corrupted (*)(Work&), kCorruptionKinds> kKinds{
        Truncate, Grow,     MisnamePitch,    MisnameHeight, SwapChroma, RotateAux, SwapImages,
        LaterAux, OtherAux, ShrinkDisparity, CopyMain,      Remove,     Contradict};
    fs::remove_all(folder);
    fs::create_directories(folder);
    const DumpSet good = FindDumpSet(capture.folder / capture.stem);
    for (const auto& file : good.files) {
        fs::copy(file->path, folder);
    }
    Work work{capture, other, std::mt19937(seed), folder, FindDumpSet(folder)};
    return kKinds[static_cast<std::size_t>(kind)](work);
}
