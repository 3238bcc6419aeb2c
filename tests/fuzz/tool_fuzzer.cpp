// Fuzz target of all that the tool's commands read: the first byte says what the others are.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>

#include "host/picture/errors.h"
#include "host/picture/image_file.h"
#include "host/refocus/calibration.h"
#include "tools/calibrate/calibration_record.h"
#include "tools/dumps/dump_image.h"
#include "tools/dumps/dump_set.h"
#include "tools/dumps/parameter_text.h"
#include "tools/files/console.h"
#include "tools/inspect/inspection.h"
#include "tools/phonelog/log_file.h"
#include "tools/phonelog/node_history.h"
#include "tools/replay/stored_result.h"

namespace fs = std::filesystem;

namespace {

using Input = std::span<const std::uint8_t>;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

std::string TextOf(Input input) {
    return {input.begin(), input.end()};
}

// A regular file without a name in any folder.
fs::path MemoryFile(Input input) {
    static const int file = ::memfd_create("input", 0);
    Require(::ftruncate(file, 0) == 0);
    Require(::pwrite(file, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size()));
    return fmt::format("/proc/self/fd/{}", file);
}

void Name(Input input) {
    const std::string text = TextOf(input);
    if (const auto sized = ParseSizedName(text)) {
        Require(sized->FileName() == text);
    }
    if (const auto name = ParseDumpName(text)) {
        Require(DumpFileName(*name) == text);
    }
    const std::string printable = Printable(text);
    Require(printable.find('\033') == std::string::npos && Printable(printable) == printable);
}

void Parameters(Input input) {
    const ParameterText parsed = ParseParameterText({input.begin(), input.end()});
    const std::string written = FormatParameterText(parsed.values);
    Require(ParseParameterText({written.begin(), written.end()}).values == parsed.values);
}

void Picture(Input input) {
    std::optional<int> clockwise;
    const RgbImage picture = ReadImageFile(MemoryFile(input), &clockwise);
    Require(picture.width >= 2 && picture.height >= 2);
    Require(!clockwise || *clockwise % 90 == 0);
}

void Matrices(Input input) {
    const fs::path file = MemoryFile(input);
    ToText(ReadOpenCvFiles(file, file, {4000, 3000}, {2000, 1500}, 1));
}

void Record(Input input) {
    std::array<std::uint8_t, refocus::kCalibrationBytes> bytes{};
    std::copy_n(input.begin(), std::min(input.size(), bytes.size()), bytes.begin());
    refocus::Calibration calibration;
    if (refocus::ParseCalibration({input.data(), input.size()}, calibration) ==
        refocus::Error::kNone) {
        ToText(calibration);
        ToJson(calibration);
    }
    // No mutation finds the checksum: the values are judged without it as well.
    std::memcpy(&calibration, bytes.data(), std::min(sizeof(calibration), bytes.size()));
    if (refocus::ValidateCalibration(calibration) == refocus::Error::kNone) {
        ToText(calibration);
    }
}

void StoredResult(Input input) {
    if (const auto result = ParseResult(input, Json{{"set", {"a"}}})) {
        Require((*result)["status"].is_string());
    }
}

void PhoneLog(Input input) {
    std::uint64_t lives = 0;
    phonelog::NodeHistory history([&](const phonelog::NodeLife&) { ++lives; },
                                  [&](const phonelog::RequestLife&) { ++lives; });
    phonelog::ForEachLine(MemoryFile(input), [&](std::string_view line) {
        phonelog::ForEachNodeMessage(
            line, [&](const phonelog::LogLine& message) { history.Read(message); });
    });
    history.Finish();
    Require(lives <= 2 * history.messages());
    Require(!history.Findings().empty() || history.messages() > 0);
}

// A set of small files, no larger than what is checked in full needs, for the sake of speed: a byte
// for each file's pitch, height and length, then the bytes of all.
void Set(Input input) {
    static const fs::path folder = [] {
        std::string name = (fs::temp_directory_path() / "tool-fuzzer-XXXXXX").string();
        Require(::mkdtemp(name.data()) != nullptr);
        return fs::path(name);
    }();
    constexpr std::size_t kFiles = 5;
    constexpr std::size_t kHead = 3 * kFiles;
    if (input.size() < kHead) {
        return;
    }
    const Input content = input.subspan(kHead);
    std::vector<fs::path> paths;
    for (std::size_t role = 0; role < kFiles; ++role) {
        const Input head = input.subspan(3 * role, 3);
        const DumpName name{"IMG_20240131_235959", static_cast<DumpRole>(role), head[0] / 2,
                            head[1] / 2 + 1};
        if (name.first == 0) {
            continue;
        }
        const std::size_t length =
            name.role == DumpRole::kParameters ? content.size() : ImageBytes(name) * head[2] / 128;
        Bytes bytes(length);
        for (std::size_t i = 0; i < length && !content.empty(); ++i) {
            bytes[i] = content[i % content.size()];
        }
        paths.push_back(folder / DumpFileName(name));
        std::ofstream(paths.back(), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(length));
    }
    if (!paths.empty()) {
        const Inspection inspection = Inspect(FindDumpSet(folder));
        ToText(inspection);
        ToJson(inspection);
        MissingOfSet(folder, paths, true);
    }
    for (const fs::path& path : paths) {
        fs::remove(path);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::array kKinds{Name,   Parameters,   Picture, Matrices,
                                Record, StoredResult, Set,     PhoneLog};
    if (size == 0) {
        return 0;
    }
    MistakeIn([&] { kKinds[data[0] % kKinds.size()]({data + 1, size - 1}); });
    return 0;
}
