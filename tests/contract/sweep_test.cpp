// Every function that the node calls out to, failing at each of its calls over a whole life; engine
// calls also two at a time. The list of functions is read from the library itself.

#include <sys/time.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <new>

#include "tests/contract/fixture.h"

namespace contract {
namespace {

using Texts = std::vector<std::string>;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

bool Fails(const char* function) {
    return platform().calls.Fails(function);
}

// The C library as the node sees it: the real one, with failures on demand.
int Seek(std::FILE* file, long offset, int origin) {
    return Fails("fseek") ? -1 : std::fseek(file, offset, origin);
}
long Tell(std::FILE* file) {
    return Fails("ftell") ? -1 : std::ftell(file);
}
std::size_t Read(void* data, std::size_t size, std::size_t count, std::FILE* file) {
    return std::fread(data, size, Fails("fread") ? count / 2 : count, file);
}
std::size_t WriteItems(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
    return Fails("fwrite") ? 0 : std::fwrite(data, size, count, file);
}
int Print(std::FILE* file, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = Fails("fprintf") ? -1 : std::vfprintf(file, format, arguments);
    va_end(arguments);
    return result;
}
int CloseStream(std::FILE* file) {
    const int result = std::fclose(file);
    return Fails("fclose") ? EOF : result;
}
ssize_t WriteBytes(int file, const void* data, std::size_t size) {
    return Fails("write") ? -1 : write(file, data, size);
}
int CloseFile(int file) {
    const int result = close(file);
    return Fails("close") ? -1 : result;
}
void* Allocate(std::size_t size) {
    return Fails("malloc") ? nullptr : std::malloc(size);
}
void* New(std::size_t size) {
    return Fails("_Znwm") ? throw std::bad_alloc() : ::operator new(size);
}
void* NewArray(std::size_t size, const std::nothrow_t& tag) noexcept {
    return Fails("_ZnamRKSt9nothrow_t") ? nullptr : ::operator new[](size, tag);
}
int Clock(timeval* now, void*) {
    return Fails("gettimeofday") ? -1 : gettimeofday(now, nullptr);
}
std::tm* LocalTime(const std::time_t* time, std::tm* local) {
    return Fails("localtime_r") ? nullptr : localtime_r(time, local);
}
std::size_t FormatTime(char* text, std::size_t size, const char* format, const std::tm* time) {
    return Fails("strftime") ? 0 : std::strftime(text, size, format, time);
}
int LockMutex(pthread_mutex_t* mutex) {
    return Fails("pthread_mutex_lock") ? EINVAL : pthread_mutex_lock(mutex);
}

// Each with the tag that it is printed under.
constexpr char kNullPointer[] = "TSL_BTB: %s: %d: errCode = %d: NULL POINTER!";
constexpr char kResult[] = "TSL_CTB: %s: %d: res: %d NULL POINTER!";
constexpr char kWide[] = "TSL_CTB: %s: %d:  res: %d NULL POINTER!";
constexpr char kBaseResult[] = "TSL_BTB: %s: %d: res: %d NULL POINTER!";
constexpr char kBaseWide[] = "TSL_BTB: %s: %d:  res: %d NULL POINTER!";
constexpr char kEngine[] = "TSL_CTB: %s: %d: %s failed res = %ld";
constexpr char kCalibration[] = "TSL_BTB: TSL_CTB: %s: %d: : read  cali data fail\n";
constexpr char kMasterDiffers[] =
    "TSL_BTB: TSL_CTB: %s: %d: Master camera parameter inconsistency!Calibration [w, h]: [%d, %d], "
    "ActiveArraySize [w, h]: [%d, %d]\n";
constexpr char kAuxDiffers[] =
    "TSL_BTB: TSL_CTB: %s: %d: Aux camera parameter inconsistency!Calibration [w, h]: [%d, %d], "
    "ActiveArraySize [w, h]: [%d, %d]\n";
constexpr char kReadSize[] = "TSL_BTB: TSL_CTB: %s: %d: : %s readCaliData read file size error!\n";

// What a failure of a function may do beyond printing.
enum Trait : unsigned {
    kRefusesCreation = 1,
    kRefusesRequests = 2,
    kLosesEngine = 4, // the node lives on and copies the main image
    kMayBeQuiet = 8,  // some of its calls are optional
};

// A function of the node's surroundings.
struct Site {
    const char* import; // the symbol that leads to it; several may share one
    Texts texts;        // what its failures print, at error priority
    unsigned traits = 0;
    void* replacement = nullptr; // of a C library function
};

template <typename Function>
void* Address(Function* function) {
    return reinterpret_cast<void*>(function);
}

std::map<std::string, Site> PlatformSites() {
    return {
        {"__android_log_print", {"__android_log_print", {}}},
        {"property_get", {"property_get", {}}},
        {"QueryVendorTag",
         {"_ZN12ChiNodeUtils14QueryVendorTagEP17ChiQueryVendorTagP16CHIVENDORTAGINFO", {}}},
        {"SetNodeInterface",
         {"_ZN12ChiNodeUtils16SetNodeInterfaceEP16ChiNodeInterfacePKcS1_Pj", {}}},
        {"GetDataList",
         {"_ZN12ChiNodeUtils11GetDataListEmj15ChiMetadataTypeP16ChiNodeInterfacePvj",
          {"TSL_BTB: TSL_CTB: %s: %d: pPhysicalCameraConfigs not updated for BOKEH\n",
           "TSL_BTB: TSL_CTB: %s: %d: pCameraInputConfig not updated for BOKEH\n", kNullPointer,
           kWide, kBaseWide, kResult},
          kRefusesCreation | kRefusesRequests | kMayBeQuiet}},
        {"DefaultBufferNegotiation",
         {"_ZN12ChiNodeUtils24DefaultBufferNegotiationEP22ChiNodeQueryBufferInfo", {}}},
        {"GetInstance", {"_ZN4CamX15SettingsManager11GetInstanceEv", {}}},
        {"GetStaticSettings", {"_ZN4CamX15SettingsManager11GetInstanceEv", {}}},
        {"GetVendorTagBase",
         {"",
          {"TSL_BTB: TSL_CTB: %s: %d: Error: %s during GetVendorTagBase for: %s %s\n", kWide,
           kBaseWide, kResult},
          kRefusesCreation | kMayBeQuiet}},
        {"SetMetadata", {"", {}}},
        {"QueryRequest", {"", {}}},
    };
}

std::map<std::string, Site> EngineSites() {
    std::map<std::string, Site> sites = {
        {"TSL_DCIR_GetVersion", {"", {}}},
        {"TSL_DCIR_Init",
         {"",
          {"TSL_CTB: TSL_CTB: %s: %d: Initialize TSL_DCIR_Init res = %ld\n", kResult},
          kLosesEngine}},
        {"TSL_DCIR_SetCameraImageInfo",
         {"",
          {"TSL_CTB: TSL_CTB: %s: %d: TSL_DCIR_SetCameraImageInfo failed res = %ld\n", kResult,
           kEngine},
          kLosesEngine}},
        {"TSL_DCIR_SetCaliData",
         {"", {"TSL_BTB: TSL_CTB: %s: %d:  : Initialize SetCaliData res = %ld\n"}}},
        {"TSL_DCIR_GetImageSizeInCalibration", {"", {}}},
        {"TSL_DCIR_Reset", {"", {kEngine}}},
        {"TSL_DCIR_CalcDisparityData", {"", {kEngine}}},
        {"TSL_DCIR_GetDisparityDataSize", {"", {kEngine}}},
        {"TSL_DCIR_GetDisparityData", {"", {kEngine}}},
        {"TSL_DCIR_Process", {"", {kEngine}}},
        {"TSL_DCIR_Uninit", {"", {}}},
    };
    for (auto& [name, site] : sites) {
        site.import = name.c_str();
    }
    return sites;
}

std::map<std::string, Site> LibrarySites() {
    std::map<std::string, Site> sites = {
        {"fopen",
         {"",
          {"TSL_BTB: TSL_CTB: %s: %d: : %s readCaliData fail\n",
           "TSL_BTB: TSL_CTB: %s: %d: Failed to open file: %s\n"}}},
        {"fseek", {"", {kReadSize}, kMayBeQuiet, Address(&Seek)}},
        {"ftell", {"", {}, 0, Address(&Tell)}},
        {"fread", {"", {kReadSize}, 0, Address(&Read)}},
        {"fwrite", {"", {}, 0, Address(&WriteItems)}},
        {"fprintf", {"", {}, 0, Address(&Print)}},
        {"fclose", {"", {}, 0, Address(&CloseStream)}},
        {"open", {"", {}}},
        {"write", {"", {}, 0, Address(&WriteBytes)}},
        {"close", {"", {}, 0, Address(&CloseFile)}},
        {"malloc",
         {"", {"TSL_CTB: TSL_CTB: %s: %d: m_pDisparityData == nullptr\n"}, 0, Address(&Allocate)}},
        {"_Znwm", {"", {kResult}, kRefusesCreation | kMayBeQuiet, Address(&New)}},
        {"_ZnamRKSt9nothrow_t", {"", {kResult, kBaseResult}, kLosesEngine, Address(&NewArray)}},
        {"gettimeofday", {"", {}, 0, Address(&Clock)}},
        {"localtime_r", {"", {}, 0, Address(&LocalTime)}},
        {"strftime", {"", {}, 0, Address(&FormatTime)}},
        {"pthread_mutex_lock", {"", {kResult}, kRefusesCreation, Address(&LockMutex)}},
    };
    for (auto& [name, site] : sites) {
        site.import = name.c_str();
    }
    return sites;
}

const std::map<std::string, Site>& Sites() {
    static const std::map<std::string, Site> sites = [] {
        std::map<std::string, Site> all = PlatformSites();
        all.merge(EngineSites());
        all.merge(LibrarySites());
        return all;
    }();
    return sites;
}

// Imports that cannot fail, or whose failure is undefined rather than answered.
bool CannotFail(const std::string& import) {
    static const std::set<std::string> names = {
        "free",           "memcpy", "memmove",  "memset",  "strncpy",      "strlen",
        "strtol",         "atoi",   "snprintf", "roundf",  "tzset",        "floorf",
        "trunc",          "_ZdaPv", "_ZdlPv",   "_ZdlPvm", "_ZSt7nothrow", "pthread_mutex_unlock",
        "_Unwind_Resume",
    };
    // The C++ runtime's own, and what a sanitizer or a coverage build adds.
    for (const char* prefix :
         {"_ZNS", "_ZNK", "_ZSt", "_ZT", "__cxa_", "__gxx_", "__gmon_start__", "_ITM_", "__asan_",
          "__ubsan_", "__tsan_", "__sanitizer_", "__gcov_", "__stack_chk_"}) {
        if (import.starts_with(prefix)) {
            return true;
        }
    }
    return names.contains(import);
}

class Sweep : public NodeTest {
protected:
    Sweep() {
        platform().properties["persist.vendor.camera.tessola.log"] = "6";
        platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "1";
        metadata_.SetWords(Slot(0) + 204, {4, 6, 10, 12});
        outputs_.push_back(depth_.list.data());
        WriteCalibration(kSecondCalibration, 2048);
        for (const auto& [name, site] : Sites()) {
            if (site.replacement != nullptr && Occurs(site)) {
                patches_.push_back(std::make_unique<support::ImportPatch>(library_, site.import,
                                                                          site.replacement));
            }
        }
        fresh_ = platform();
    }

    bool Occurs(const Site& site) const { return imports_.contains(site.import); }

    // A fresh platform whose named calls fail.
    void Arm(std::set<std::pair<std::string, int>> failing) {
        platform() = fresh_;
        platform().calls.failing = std::move(failing);
        Call(104, Interface().data());
    }

    void ExpectDocumentedTexts(const Site& site) {
        Texts allowed = site.texts;
        if ((site.traits & kLosesEngine) != 0) {
            allowed.insert(allowed.end(), {kMasterDiffers, kAuxDiffers, kCalibration});
        }
        bool printed = false;
        for (const LogLine& line : platform().log) {
            const bool news = line.format.find("read  cali data success") != std::string::npos;
            if (line.priority == 6 && !news) {
                const std::string tagged = line.tag + ": " + line.format;
                EXPECT_NE(std::find(allowed.begin(), allowed.end(), tagged), allowed.end())
                    << tagged;
                printed = true;
            }
        }
        EXPECT_TRUE(printed || site.texts.empty() || (site.traits & kMayBeQuiet) != 0)
            << "failed without a word";
    }

    // One request: the picture or the main image, or refused and nothing touched.
    void ExpectPhotoOrRefusal(bool mayRefuse) {
        const std::size_t published = platform().published.size();
        metadata_.Set(Slot(0) + 192, std::uint8_t{1});
        const std::uint32_t result = Process();
        if (result != 0) {
            EXPECT_TRUE(mayRefuse) << "result " << result;
            EXPECT_TRUE(OutputIsBlank());
            EXPECT_EQ(platform().published.size(), published);
            return;
        }
        EXPECT_EQ(platform().published.size(), published + 1);
        EXPECT_TRUE(OutputIsMain() || OutputIsRendered());
        EXPECT_EQ(output_.Padding(), std::string(output_.Padding().size(), 0x11));
        if (DepthEffect() == 1) {
            EXPECT_TRUE(OutputIsMain());
        }
    }

    static bool AnyHasFailed() {
        const auto& calls = platform().calls;
        return std::any_of(calls.failing.begin(), calls.failing.end(), [&](const auto& call) {
            const auto count = calls.counts.find(call.first);
            return count != calls.counts.end() && count->second >= call.second;
        });
    }

    // Create, negotiate, three requests of growing disparity and one in which nothing fails,
    // destroy.
    void Live(const Site& site) {
        createInfo_.Set<void*>(16, nullptr);
        if (const std::uint32_t result = Create(); result != 0) {
            EXPECT_TRUE((site.traits & kRefusesCreation) != 0) << "result " << result;
            EXPECT_EQ(createInfo_.Get<void*>(16), nullptr);
            return;
        }
        const bool whole = !AnyHasFailed();
        Record record(64);
        record.Set<std::uint32_t>(0, 64);
        record.Set(8, createInfo_.Get<void*>(16));
        Record format(256);
        record.Set(24, format.data());
        EXPECT_EQ(Call(48, record.data()), 0u);
        record.Set(24, format.data());
        EXPECT_EQ(Call(64, record.data()), 0u);
        EXPECT_EQ(Call(112, createInfo_.Get<void*>(16), format.data(), format.data()), 0u);
        Call(24, format.data());
        for (int request = 0; request < 3; ++request) {
            platform().engine.size = 1000 + 500 * request;
            ExpectPhotoOrRefusal((site.traits & kRefusesRequests) != 0);
        }
        const auto calls = platform().calls;
        platform().calls.failing.clear();
        platform().engine.size += 500;
        ExpectPhotoOrRefusal(false);
        EXPECT_TRUE(OutputIsRendered() || !whole) << "the next request is affected";
        platform().calls = calls; // as if it had not been
        Destroy();
    }

    void ExpectNothingLeft() {
        EXPECT_EQ(platform().engine.instances, 0);
        std::size_t open = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            const std::string target = std::filesystem::read_symlink(entry.path(), ignored);
            open += target.starts_with(root_.string()) ? 1 : 0;
        }
        EXPECT_EQ(open, 0u) << "files left open";
    }

    Image depth_{80, 48, 80, 9, 8, 1};
    Platform fresh_;
    const std::set<std::string> imports_ = support::ImportNames(library_);
    std::vector<std::unique_ptr<support::ImportPatch>> patches_;
};

TEST_F(Sweep, KnowsEveryImport) {
    if (imports_.contains("fdopen") || support::HoldsCppRuntime(library_)) {
        GTEST_SKIP() << "a runtime, of coverage or of C++, is part of this build's library";
    }
    for (const std::string& import : imports_) {
        bool known = CannotFail(import);
        for (const auto& [name, site] : Sites()) {
            known = known || import == site.import;
        }
        EXPECT_TRUE(known) << import << " is called by the node but not made to fail";
    }
}

TEST_F(Sweep, EachCallFailsOnce) {
    int cells = 0;
    for (auto [name, site] : Sites()) {
        if (name == "malloc" && support::HoldsCppRuntime(library_)) { // new ends there as well
            site.texts.insert(site.texts.end(), {kResult, kBaseResult});
            site.traits |= kRefusesCreation | kLosesEngine | kMayBeQuiet;
        }
        for (int nth = 1; site.import[0] == '\0' || Occurs(site); ++nth) {
            SCOPED_TRACE(name + ", call " + std::to_string(nth));
            Arm({{name, nth}});
            Live(site);
            if (platform().calls.counts[name] < nth) {
                EXPECT_GT(nth, 1) << "never called in a whole life";
                break;
            }
            ++cells;
            ExpectDocumentedTexts(site);
            ExpectNothingLeft();
            // The platform's own table may be what failed; then nothing can work.
            if (name != "SetNodeInterface") {
                Arm({});
                ASSERT_EQ(Create(), 0u);
                ExpectPhotoOrRefusal(false);
                EXPECT_TRUE(OutputIsRendered()) << "the next life is unaffected";
                Destroy();
            }
        }
    }
    std::printf("%d cells: each call of %zu functions failing once in a life\n", cells,
                Sites().size());
}

TEST_F(Sweep, EngineCallsFailInPairs) {
    const std::string calls[] = {"TSL_DCIR_Reset",
                                 "TSL_DCIR_SetCameraImageInfo",
                                 "TSL_DCIR_CalcDisparityData",
                                 "TSL_DCIR_GetDisparityDataSize",
                                 "TSL_DCIR_GetDisparityData",
                                 "TSL_DCIR_Process"};
    int cells = 0;
    for (const std::string& first : calls) {
        for (const std::string& second : calls) {
            SCOPED_TRACE(first + " and " + second);
            Arm({});
            ASSERT_EQ(Create(), 0u);
            const auto next = [](const std::string& name, int which) {
                return std::pair(name, platform().calls.counts[name] + which);
            };
            // In the same request, then in two successive ones.
            platform().calls.failing = {next(first, 1), next(second, 1), next(second, 2)};
            for (int request = 0; request < 2; ++request) {
                EXPECT_EQ(Process(), 0u);
                EXPECT_TRUE(OutputIsMain());
                EXPECT_EQ(DepthEffect(), 1u);
            }
            ExpectDocumentedTexts({"", {kEngine}});
            EXPECT_EQ(Process(), 0u);
            EXPECT_TRUE(OutputIsRendered());
            EXPECT_EQ(DepthEffect(), 0u);
            Destroy();
            ExpectNothingLeft();
            ++cells;
        }
    }
    std::printf("%d cells: pairs of failing engine calls in requests\n", cells);
}

TEST_F(Sweep, EngineCallsFailInPairsFromCreationOn) {
    int cells = 0;
    for (const auto& [first, one] : EngineSites()) {
        for (const auto& [second, other] : EngineSites()) {
            for (const int nth : {1, 2}) {
                SCOPED_TRACE(first + " and call " + std::to_string(nth) + " of " + second);
                // Without calibration from either file the engine is lost.
                Site both{"", one.texts, one.traits | other.traits | kMayBeQuiet | kLosesEngine};
                both.texts.insert(both.texts.end(), other.texts.begin(), other.texts.end());
                Arm({{first, 1}, {second, nth}});
                Live(both);
                ExpectDocumentedTexts(both);
                ExpectNothingLeft();
                ++cells;
            }
        }
    }
    std::printf("%d cells: pairs of failing engine calls from creation on\n", cells);
}

TEST_F(Sweep, SoakOfOneNode) {
    platform().properties.clear();
    ASSERT_EQ(Create(), 0u);
    constexpr int kRequests = 100000;
    const auto heapCalls = [] {
        auto& counts = platform().calls.counts;
        return counts["malloc"] + counts["_Znwm"] + counts["_ZnamRKSt9nothrow_t"];
    };
    const auto residentPages = [] {
        long total = 0;
        long resident = 0;
        std::FILE* file = std::fopen("/proc/self/statm", "r");
        EXPECT_EQ(std::fscanf(file, "%ld %ld", &total, &resident), 2);
        std::fclose(file);
        return resident;
    };
    int warm = 0;
    long pages = 0;
    for (int i = 0; i < kRequests; ++i) {
        if (i == 1000) {
            warm = heapCalls();
            pages = residentPages();
        }
        platform().engine.size = 500 + i % 1000;
        const int width = 8 + 2 * (i % 29);
        for (Image* image : {&main_, &aux_, &output_}) {
            image->list.SetWords(8, {width, image->height - i % 39});
        }
        metadata_.Set(Slot(0) + 192, static_cast<std::uint8_t>(i % 12));
        ASSERT_EQ(Process(), 0u);
        platform().published.clear();
        platform().readRequestIds.clear();
        platform().engine.calls.clear();
        platform().engine.imageInfos.clear();
    }
    EXPECT_EQ(heapCalls(), warm) << "the request path allocates";
    // A sanitizer keeps what was freed.
    if (!kSanitized) {
        EXPECT_LE(residentPages(), pages + 64) << "memory grows";
    }
    std::printf("%d requests, %d heap calls of the node in the first 1000, none after\n", kRequests,
                warm);
}

} // namespace
} // namespace contract
