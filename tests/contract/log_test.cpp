// The log of one whole life, letter by letter.

#include <fstream>

#include "tests/contract/fixture.h"

namespace contract {
namespace {

// One line a message: priority, tag, text with its newline written out. Addresses are masked.
std::vector<std::string> Rendered() {
    std::vector<std::string> lines;
    for (const LogLine& line : platform().log) {
        std::string text = line.text;
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
            text.replace(at, 1, "\\n");
        }
        if (const std::size_t at = text.find("= 0x"); at != std::string::npos) {
            const std::size_t end = text.find_first_not_of("x0123456789abcdef", at + 2);
            text.replace(at + 2, end - at - 2, "ADDRESS");
        }
        std::string entry = line.priority == 6 ? "E " : line.priority == 3 ? "D " : "? ";
        entry += line.tag;
        entry += " |";
        entry += text;
        entry += "|";
        lines.push_back(entry);
    }
    return lines;
}

TEST_F(NodeTest, LogOfOneLife) {
    const support::ImportPatch clock(library_, "gettimeofday",
                                     reinterpret_cast<void*>(+[](timeval* now, void*) {
                                         *now = {kDumpTime, 0};
                                         return 0;
                                     }));
    platform().properties["persist.vendor.camera.tessola.log"] = "6";
    platform().properties["persist.vendor.camera.tessola.cb.dumpimg"] = "1";
    inputConfig_.Set(0, 1u);
    inputConfig_.SetWords(8, {501, 2, 5});
    inputConfig_.Set(8 + 32, 10);
    metadata_.Set(Slot(0) + 192, std::uint8_t{3});
    metadata_.SetWords(Slot(0) + 204, {10, 9, 1, 12, 20, 22, 5, 6, 11, 7, 8, 11});
    metadata_.Set(Slot(0) + 400, 4);
    Record faceResults(408);
    faceResults.Set(404, 90);
    platform().metadata[TagId("OEMFDResults") | 0x08000000] = faceResults.data();
    Image depth(80, 48, 80, 9, 8, 1);
    Image spare(64, 48, 64, 4, 6);
    outputs_ = {spare.list.data(), depth.list.data(), output_.list.data()};
    main_.list.Set(824, 5u);
    WriteCalibration(kFirstCalibration, 2047);
    WriteCalibration(kSecondCalibration, 2048);
    platform().log.clear();

    Create();
    Record query(56);
    query.Set<std::uint32_t>(0, 56);
    query.Set(8, createInfo_.Get<void*>(16));
    Call(48, query.data());
    Record format(256);
    Record properties(64);
    properties.Set<std::uint32_t>(0, 64);
    properties.Set(8, createInfo_.Get<void*>(16));
    properties.Set(24, format.data());
    Call(64, properties.data());
    Record caps(8);
    caps.Set<std::uint32_t>(0, 8);
    Call(16, caps.data());
    Call(24, query.data());
    Call(104, Interface().data());
    Process();
    platform().engine.results["TSL_DCIR_Process"] = 7;
    Process();
    Destroy();

    const std::vector<std::string> lines = Rendered();
    std::ifstream file(EXPECTED_LOG);
    std::size_t count = 0;
    for (std::string expected; std::getline(file, expected); ++count) {
        ASSERT_LT(count, lines.size()) << "not printed: " << expected;
        EXPECT_EQ(lines[count], expected) << "message " << count + 1;
    }
    EXPECT_EQ(lines.size(), count);
    for (const LogLine& line : platform().log) {
        EXPECT_NE(line.format.find("%s: %d:"), std::string::npos)
            << "formatted before it reached the log: " << line.format;
    }
}

} // namespace
} // namespace contract
