#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// The platform's functions and an engine for the tests and the benchmark of the node, in plain
// bytes: nothing of the node's headers is used, so that what holds here holds for any process that
// supplies the documented functions and records.
namespace support {

// A binary record, written and read by byte offset. Zero at first.
class Record {
public:
    explicit Record(std::size_t size) : size_(size), words_((size + 7) / 8) {}

    template <typename T>
    void Set(std::size_t offset, T value) {
        std::memcpy(bytes() + offset, &value, sizeof(T));
    }
    template <typename T>
    T Get(std::size_t offset) const {
        T value;
        std::memcpy(&value, reinterpret_cast<const char*>(words_.data()) + offset, sizeof(T));
        return value;
    }
    void SetWords(std::size_t offset, const std::vector<std::int32_t>& values);

    char* bytes() { return reinterpret_cast<char*>(words_.data()); }
    void* data() { return words_.data(); }
    void Fill(std::uint8_t value) { std::memset(words_.data(), value, size_); }
    bool operator==(const Record&) const = default;

private:
    std::size_t size_;
    std::vector<std::uint64_t> words_;
};

struct LogLine {
    int priority;
    std::string tag;
    std::string format;
    std::string text; // the source line replaced by '#'
};

// What one metadata-set call handed over.
struct Published {
    std::uint64_t session = 0;
    std::vector<std::uint32_t> ids;
    std::vector<std::uint64_t> requestIds;
    std::vector<std::uint64_t> sizes;
    std::vector<std::string> data; // by the byte sizes of the tags
};

// The engine as the test wants it to answer.
struct Engine {
    std::map<std::string, std::int64_t, std::less<>> results; // by function; absent: 0
    std::int32_t size = 1000;                                 // answered to the size query
    bool sizesDespiteFailure = true;                          // a size query that fails answers too
    std::int32_t activeSize = 900;                            // answered to the read-out
    std::uint8_t depthValue = 0xD0;
    std::uint8_t renderValue = 0xE0;
    std::int32_t calibrationSizes[4] = {12849, 9651, 16899, 12001}; // hundredths of a pixel
    bool hasVersion = true;
    const char* versionText = "contract engine";

    std::vector<std::string> calls;
    int instances = 0;
    std::vector<std::vector<std::int32_t>> imageInfos; // five words a call
    std::vector<std::int32_t> focus; // x, y, faces, then each face and orientation
    std::int32_t blur = -1;
    std::vector<const void*> images; // luma of the last two calls: main, aux; main, output
    std::int32_t room = -1;          // for the disparity data, as the read-out was told
    std::int32_t processSize = -1;
    std::uint8_t processData = 0; // first byte of the disparity that the rendering got
    std::string calibration;
};

// Counts the calls of each function that the node can call, by its symbol or, for the platform's
// table, its slot; some of them are to fail.
struct Calls {
    std::map<std::string, int> counts;
    std::set<std::pair<std::string, int>> failing; // function, its n-th call from 1

    // One more call of this function. True where it is to fail.
    bool Fails(const std::string& function) {
        return failing.contains({function, ++counts[function]});
    }
};

struct Platform {
    // The benchmark's mode: calls are neither counted nor kept nor made to fail, and the engine
    // writes no pixels, so that the platform takes no time and allocates nothing.
    bool idle = false;
    std::vector<LogLine> log;
    std::map<std::string, std::string> properties;
    std::map<std::string, std::uint32_t> tagResults; // by tag name; absent: 0
    std::map<std::uint32_t, void*> metadata;         // by tag id and pool
    std::vector<std::uint64_t> readRequestIds;       // of every metadata read
    std::vector<Published> published;
    std::uint32_t stop = 0;
    std::uint32_t negotiationResult = 0;
    bool hasSettings = true;
    std::uint32_t imageDegree = 90;
    Engine engine;
    Calls calls;

    // Tag and text, as "TAG: text", of each line at this priority.
    std::vector<std::string> Texts(int priority) const;
};

Platform& platform();

// Id that the platform gives a tag, counted in the order of the documented table.
std::uint32_t TagId(std::string_view tag);

// The platform's callback table, 160 bytes.
Record& Interface();

constexpr std::uint32_t kVendorTagBase = 0x9000;

} // namespace support
