// Replays every input kept under tests/data/fuzz-regressions/ (inputs the fuzz target once
// stumbled over, and hostile inputs written by hand in the same format) through the same code
// as the fuzz target: each must end normally and leave nothing behind.
#include "../../fuzz/FuzzInput.h"
#include "ReliabilityFixture.h"

using namespace reliability;

TEST(FuzzRegressions, EveryKeptInputEndsNormallyAndLeavesNothingBehind) {
    const fs::path dir = fs::path(ORV_TEST_DATA) / "fuzz-regressions";
    testutil::TempDir work;
    long n = 0;
    for (const auto& e : fs::directory_iterator(dir)) {
        if (e.path().filename() == "README.md") continue;
        SCOPED_TRACE(e.path().filename().string());
        const std::string s = testutil::ReadFile(e.path().string());
        const orvfuzz::Outcome o = orvfuzz::RunInput(reinterpret_cast<const uint8_t*>(s.data()),
                                                     s.size(), work.Str(), testutil::ExamplesDir());
        EXPECT_EQ(o.sViolation, "");
        ++n;
    }
    EXPECT_GT(n, 0);
}
