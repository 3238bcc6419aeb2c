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
constexpr std::size_t kEndlessLine = std::size_t{256} << 20; // of no log: a device, say

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

// Hands on the lines of a log, of a bug report those of its system log: other sections repeat a
// part of it, or hold what an earlier run logged.
class Sections {
public:
    // `file`: for refusals.
    Sections(const fs::path& file, const TakeLine& take) : file_(file), take_(take) {}

    // `text`: whole lines.
    void Read(std::string_view text) {
        if (first_ && !text.empty()) {
            RefuseOtherKinds(text);
            first_ = false;
            report_ = text.substr(0, 200).find("== dumpstate: ") != std::string_view::npos;
            taken_ = !report_;
        }
        while (!text.empty()) {
            const std::size_t header = FindLine(text, report_ && taken_ ? kHeader : kSystemLog);
            if (taken_) {
                TakeLines(text.substr(0, header), take_);
            }
            if (header == std::string_view::npos) {
                return;
            }
            text.remove_prefix(header);
            report_ = true;
            taken_ = text.starts_with(kSystemLog);
            text.remove_prefix(kHeader.size());
        }
    }

private:
    static constexpr std::string_view kHeader = "------ ";
    static constexpr std::string_view kSystemLog = "------ SYSTEM LOG";

    // Where a line begins with this.
    static std::size_t FindLine(std::string_view text, std::string_view start) {
        for (std::string_view rest = text;; rest.remove_prefix(1)) {
            const void* found = memmem(rest.data(), rest.size(), start.data(), start.size());
            if (found == nullptr) {
                return std::string_view::npos;
            }
            rest.remove_prefix(
                static_cast<std::size_t>(static_cast<const char*>(found) - rest.data()));
            const std::size_t at = text.size() - rest.size();
            if (at == 0 || text[at - 1] == '\n') {
                return at;
            }
        }
    }

    void RefuseOtherKinds(std::string_view text) const {
        const std::string_view head = text.substr(0, 4);
        const char* kind = head.starts_with("\xff\xfe") || head.starts_with("\xfe\xff") ? "UTF-16"
                           : head.starts_with("\x1f\x8b") ? "a gzip file"
                           : head.starts_with("PK\3\4")   ? "a zip file that is not one alone"
                           : head.find('\0') != std::string_view::npos ? "binary data"
                                                                       : nullptr;
        if (kind != nullptr) {
            Refuse(file_.string(), "a text of 8-bit characters, or a bug report's zip file", kind);
        }
    }

    const fs::path& file_;
    const TakeLine& take_;
    bool first_ = true;
    bool report_ = false;
    bool taken_ = true;
};

void ReadLines(const ReadBytes& read, const fs::path& file, const TakeLine& take) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kChunk + kLongestLine);
    Sections sections(file, take);
    std::size_t kept = 0; // the start of a line whose end is not read yet
    std::size_t line = 0; // bytes since the last newline
    while (const std::size_t count = read(buffer.get() + kept, kChunk)) {
        const std::string_view text(buffer.get(), kept + count);
        const std::size_t newline = text.rfind('\n');
        std::size_t whole = newline == std::string_view::npos ? 0 : newline + 1;
        line = whole == 0 ? line + count : text.size() - whole;
        if (line > kEndlessLine) {
            Refuse(file.string(), "lines",
                   fmt::format("more than {} MiB without a newline", kEndlessLine >> 20));
        }
        if (text.size() - whole > kLongestLine) {
            whole = text.size();
        }
        sections.Read(text.substr(0, whole));
        kept = text.size() - whole;
        std::memmove(buffer.get(), buffer.get() + whole, kept);
    }
    sections.Read({buffer.get(), kept});
}

void ReadTextFile(const fs::path& file, std::FILE* stream, const TakeLine& take) {
    const auto read = [stream](char* bytes, std::size_t size) {
        return std::fread(bytes, 1, size, stream);
    };
    ReadLines(read, file, take);
    if (std::ferror(stream) != 0) {
        Cannot("be read", file, std::strerror(errno));
    }
}

// Reads an entry of a zip file, which must stay open.
ReadBytes OpenEntry(zip_t* archive, zip_uint64_t index, const fs::path& file) {
    const std::string name = std::string(zip_get_name(archive, index, 0)) + ": ";
    zip_file_t* const opened = zip_fopen_index(archive, index, 0);
    if (opened == nullptr) {
        Cannot("be read", file, name + zip_strerror(archive));
    }
    const std::shared_ptr<zip_file_t> entry(opened, zip_fclose);
    return [entry, name, file](char* bytes, std::size_t size) {
        const zip_int64_t count = zip_fread(entry.get(), bytes, size);
        if (count < 0) {
            Cannot("be read", file, name + zip_file_strerror(entry.get()));
        }
        return static_cast<std::size_t>(count);
    };
}

// The text that is the report has the usual name, or the one that another entry tells: `named`.
// Other texts are copies of files, the system log among them a second time.
bool IsReport(const fs::path& name, const std::string& named) {
    return named.empty() ? name.parent_path().empty() && name.extension() == ".txt" &&
                               name.string().starts_with("bugreport")
                         : name == named;
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
    std::string named;
    if (const auto entry = zip_name_locate(archive.get(), "main_entry.txt", 0); entry >= 0) {
        named.resize(1024);
        const ReadBytes read = OpenEntry(archive.get(), static_cast<zip_uint64_t>(entry), file);
        named.resize(read(named.data(), named.size()));
        named.resize(named.find_last_not_of(" \r\n") + 1);
    }
    bool found = false;
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive.get(), 0); ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        const char* name = zip_get_name(archive.get(), index, 0);
        if (name != nullptr && IsReport(name, named)) {
            found = true;
            ReadLines(OpenEntry(archive.get(), index, file), file, take);
        }
    }
    if (!found) {
        Refuse(file.string(),
               fmt::format("a bug report's zip file, with {} in it",
                           named.empty() ? "bugreport*.txt" : named),
               "no such text");
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
