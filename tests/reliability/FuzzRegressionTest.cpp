// Replays every input kept under tests/data/fuzz-regressions/ (inputs the fuzz target once
// stumbled over, and hostile inputs written by hand in the same format) through the same code
// as the fuzz target: each must end normally and leave nothing behind.
#include "../../fuzz/FuzzInput.h"
#include "ReliabilityFixture.h"

#include <map>
#include <sstream>

using namespace reliability;

namespace {

struct clsExpected {
    bool bResult = false;
    std::string sLogPart;  // "-": no log line
};

// NAME | True or False | log text (see EXPECTED in the folder).
std::map<std::string, clsExpected> ReadExpected(const fs::path& file) {
    std::map<std::string, clsExpected> map;
    std::istringstream in(testutil::ReadFile(file.string()));
    std::string sLine;
    const auto fnTrim = [](std::string s) {
        s.erase(0, s.find_first_not_of(' '));
        s.erase(s.find_last_not_of(' ') + 1);
        return s;
    };
    while (std::getline(in, sLine)) {
        if (sLine.empty() || sLine[0] == '#') continue;
        const size_t a = sLine.find('|'), b = sLine.find('|', a + 1);
        if (a == std::string::npos || b == std::string::npos) continue;
        map[fnTrim(sLine.substr(0, a))] = {fnTrim(sLine.substr(a + 1, b - a - 1)) == "True",
                                           fnTrim(sLine.substr(b + 1))};
    }
    return map;
}

}  // namespace

TEST(FuzzRegressions, EveryKeptInputEndsAsExpectedAndLeavesNothingBehind) {
    const fs::path dir = fs::path(ORV_TEST_DATA) / "fuzz-regressions";
    const auto mapExpected = ReadExpected(dir / "EXPECTED");
    testutil::TempDir work;
    const std::string sLog =
        work.Str() + "/appdata/Korvane/Addin Modules/Zenfold/Export/ExportExcel.log";
    long n = 0;
    for (const auto& e : fs::directory_iterator(dir)) {
        const std::string sName = e.path().filename().string();
        if (sName == "README.md" || sName == "EXPECTED") continue;
        SCOPED_TRACE(sName);
        const auto it = mapExpected.find(sName);
        ASSERT_NE(it, mapExpected.end()) << "no line for this input in EXPECTED";
        const std::string s = testutil::ReadFile(e.path().string());
        const orvfuzz::Outcome o = orvfuzz::RunInput(reinterpret_cast<const uint8_t*>(s.data()),
                                                     s.size(), work.Str(), testutil::ExamplesDir());
        EXPECT_EQ(o.sViolation, "");
        EXPECT_EQ(o.bResult, it->second.bResult);
        const auto arrLog = testutil::ReadLogLines(sLog);
        if (it->second.sLogPart == "-") {
            EXPECT_TRUE(arrLog.empty()) << Joined(arrLog);
        } else {
            ASSERT_EQ(arrLog.size(), 1u) << Joined(arrLog);
            EXPECT_NE(arrLog[0].find(it->second.sLogPart), std::string::npos) << arrLog[0];
        }
        ++n;
    }
    EXPECT_EQ(n, static_cast<long>(mapExpected.size()));
}
