// A host's request to stop: the export ends at its next progress point, saves nothing, removes
// the workbook it had started, writes one log line and returns false.
#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

long InterruptLines(const std::vector<std::string>& arr) {
    long n = 0;
    for (const auto& l : arr)
        if (l.find("User interrupt occurred 18 ") != std::string::npos) ++n;
    return n;
}

}  // namespace

TEST_F(ReliabilityTest, AFlagSetBeforeTheCallStopsItAtOnce) {
    pCancel = std::make_shared<std::atomic<bool>>(true);
    EXPECT_FALSE(RunData(ItemCollection(50), SetupXml("wb", "Item", "COLLECTION")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u) << Joined(arr);
    EXPECT_EQ(arr[0].rfind("Run-time error: User interrupt occurred 18 ", 0), 0u) << arr[0];
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
}

TEST_F(ReliabilityTest, AFlagSetWhileParsingStopsTheWalk) {
    pCancel = std::make_shared<std::atomic<bool>>(false);
    long nParsed = 0;
    fnProgress = [&](const clsProgress& p) {
        if (p.eStage == clsProgress::Stage::Parsing) nParsed = p.lDone;
        if (p.lDone == 100) pCancel->store(true);
    };
    EXPECT_FALSE(RunData(ItemCollection(5000), SetupXml("wb", "Item", "COLLECTION")));
    EXPECT_LT(nParsed, 200);
    EXPECT_EQ(InterruptLines(Log()), 1) << Joined(Log());
    EXPECT_EQ(Log().size(), 1u) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
}

TEST_F(ReliabilityTest, AFlagSetWhileWritingRemovesTheStartedWorkbook) {
    pCancel = std::make_shared<std::atomic<bool>>(false);
    bool bSawWriting = false;
    bool bFileWhenStopped = false;
    fnProgress = [&](const clsProgress& p) {
        if (p.eStage == clsProgress::Stage::Writing && !bSawWriting) {
            bSawWriting = true;
            bFileWhenStopped = fs::exists(dataDir / "wb.xlsx");
            pCancel->store(true);
        }
    };
    testutil::WriteFile((dataDir / "wb.xlsx").string(), "old");
    const bool b = RunData(ItemCollection(20000), SetupXml("wb", "Item", "COLLECTION"));
    ASSERT_TRUE(bSawWriting) << "no Writing stage was reported while the workbook was saved";
    EXPECT_FALSE(b);
    EXPECT_TRUE(bFileWhenStopped);  // the empty workbook written at the start
    EXPECT_EQ(InterruptLines(Log()), 1) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
}

TEST_F(ReliabilityTest, AFlagSetAtEveryProgressPointLeavesNothingBehind) {
    // How many progress reports a whole export of this data makes.
    long nReports = 0;
    fnProgress = [&](const clsProgress&) { ++nReports; };
    ASSERT_TRUE(RunData(ItemCollection(1000), SetupXml("wb", "Item", "COLLECTION")));
    ASSERT_GT(nReports, 100) << "the export reported too little progress to stop it anywhere";
    // Stops after the k-th progress report, for k across the whole export, the last one too.
    for (long k : {1L, 2L, 5L, 50L, nReports / 2, nReports - 1, nReports}) {
        SCOPED_TRACE(k);
        fs::remove_all(dataDir);
        fs::create_directories(dataDir);
        fs::remove(sExportDir + "ExportExcel.log");
        pCancel = std::make_shared<std::atomic<bool>>(false);
        long n = 0;
        fnProgress = [&](const clsProgress&) {
            if (++n == k) pCancel->store(true);
        };
        EXPECT_FALSE(RunData(ItemCollection(1000), SetupXml("wb", "Item", "COLLECTION")));
        EXPECT_EQ(InterruptLines(Log()), 1) << Joined(Log());
        EXPECT_EQ(Log().size(), 1u) << Joined(Log());
        EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
    }
}

TEST_F(ReliabilityTest, AFlagSetWhileWritingAnXlsWorkbookRemovesIt) {
    pCancel = std::make_shared<std::atomic<bool>>(false);
    bool bSawWriting = false;
    bool bFileWhenStopped = false;
    fnProgress = [&](const clsProgress& p) {
        if (p.eStage == clsProgress::Stage::Writing && p.lDone >= 1000 && !bSawWriting) {
            bSawWriting = true;
            bFileWhenStopped = fs::exists(dataDir / "wb.xls");
            pCancel->store(true);
        }
    };
    const bool b = RunData(ItemCollection(3000), SetupXml("wb", "Item", "COLLECTION"), ".xls");
    ASSERT_TRUE(bSawWriting);
    EXPECT_FALSE(b);
    EXPECT_TRUE(bFileWhenStopped);  // the empty workbook written at the start
    EXPECT_EQ(InterruptLines(Log()), 1) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
}

TEST_F(ReliabilityTest, AFlagSetAtEveryProgressPointOfAnXlsExportLeavesNothingBehind) {
    for (long k : {1L, 5L, 500L, 2000L, 4000L}) {
        SCOPED_TRACE(k);
        fs::remove_all(dataDir);
        fs::create_directories(dataDir);
        fs::remove(sExportDir + "ExportExcel.log");
        pCancel = std::make_shared<std::atomic<bool>>(false);
        long n = 0;
        fnProgress = [&](const clsProgress&) {
            if (++n == k) pCancel->store(true);
        };
        const bool b = RunData(ItemCollection(1000), SetupXml("wb", "Item", "COLLECTION"), ".xls");
        if (n < k) {
            EXPECT_TRUE(b);
            continue;
        }
        EXPECT_FALSE(b);
        EXPECT_EQ(InterruptLines(Log()), 1) << Joined(Log());
        EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
    }
}
