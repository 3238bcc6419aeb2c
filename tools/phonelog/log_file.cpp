#include "tools/phonelog/log_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <fmt/core.h>
#include <zip.h>

#include "host/picture/errors.h"
#include "tools/phonelog/node_messages.h"

namespace fs = std::filesystem;

namespace phonelog {

namespace {

using TakeLine = std::function<void(std::string_view)>;
// Fills a buffer; returns the bytes read, 0 at the end.
using ReadBytes = std::function<std::size_t(char*, std::size_t)>;

constexpr std::size_t kChunk = std::size_t{32} << 10;
constexpr std::size_t kLongestLine = std::size_t{64} << 10;

// Looks for the tags' start, not for lines: what is between two of them is skipped at the speed of
// memory.
void TakeLines(std::string_view text, const TakeLine& take) {
    for (std::size_t at = 0; (at = text.find(kTagStart, at)) != std::string_view::npos;) {
        const std::size_t newline = text.rfind('\n', at);
        const std::size_t begin = newline == std::string_view::npos ? 0 : newline + 1;
        const std::size_t end = std::min(text.find('\n', at), text.size());
        take(text.substr(begin, end - begin));
        at = end;
    }
}

void ReadLines(const ReadBytes& read, const TakeLine& take) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kChunk + kLongestLine);
    std::size_t kept = 0; // the start of a line whose end is not read yet
    while (const std::size_t count = read(buffer.get() + kept, kChunk)) {
        const std::string_view text(buffer.get(), kept + count);
        const std::size_t newline = text.rfind('\n');
        std::size_t whole = newline == std::string_view::npos ? 0 : newline + 1;
        if (text.size() - whole > kLongestLine) {
            whole = text.size();
        }
        TakeLines(text.substr(0, whole), take);
        kept = text.size() - whole;
        std::memmove(buffer.get(), buffer.get() + whole, kept);
    }
    TakeLines({buffer.get(), kept}, take);
}

void ReadTextFile(const fs::path& file, std::FILE* stream, const TakeLine& take) {
    const auto read = [stream](char* bytes, std::size_t size) {
        return std::fread(bytes, 1, size, stream);
    };
    ReadLines(read, take);
    if (std::ferror(stream) != 0) {
        Cannot("be read", file, std::strerror(errno));
    }
}

// Other texts of a bug report are copies of files, the system log among them a second time.
bool IsReport(const fs::path& name) {
    return name.parent_path().empty() && name.extension() == ".txt" &&
           name.string().starts_with("bugreport");
}

void ReadZipFile(const fs::path& file, const TakeLine& take) {
    int code = 0;
    const std::unique_ptr<zip_t, void (*)(zip_t*)> archive(
        zip_open(file.c_str(), ZIP_RDONLY, &code), zip_discard);
    if (archive == nullptr) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        Cannot("be read", file, reason);
    }
    bool found = false;
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive.get(), 0); ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        const char* name = zip_get_name(archive.get(), index, 0);
        if (name == nullptr || !IsReport(name)) {
            continue;
        }
        found = true;
        const std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> entry(
            zip_fopen_index(archive.get(), index, 0), zip_fclose);
        const auto read = [&](char* bytes, std::size_t size) {
            const zip_int64_t count = entry ? zip_fread(entry.get(), bytes, size) : -1;
            if (count < 0) {
                Cannot("be read", file,
                       std::string(name) + ": " +
                           (entry ? zip_file_strerror(entry.get()) : zip_strerror(archive.get())));
            }
            return static_cast<std::size_t>(count);
        };
        ReadLines(read, take);
    }
    if (!found) {
        Refuse(file.string(), "a bug report's zip file, with bugreport*.txt in it", "no such text");
    }
}

} // namespace

void ForEachLine(const fs::path& file, const TakeLine& take) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"),
                                                                 std::fclose);
    if (stream == nullptr) {
        Cannot("be read", file, std::strerror(errno));
    }
    if (fs::is_directory(file)) {
        Refuse(file.string(), "a file", "a folder");
    }
    char magic[4] = {};
    // A pipe cannot be rewound, and holds no zip file.
    if (fs::is_regular_file(file)) {
        const bool zipped = std::fread(magic, 1, sizeof(magic), stream.get()) == sizeof(magic) &&
                            std::memcmp(magic, "PK\3\4", sizeof(magic)) == 0;
        if (zipped) {
            ReadZipFile(file, take);
            return;
        }
        std::rewind(stream.get());
    }
    ReadTextFile(file, stream.get(), take);
}

} // namespace phonelog
