#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"
#include "parse/clsExportContext.h"
#include "support/modResources.h"

using namespace modResources;
using testutil::TempDir;

namespace {

// Runs fn with the local time zone set to UTC, so that date texts are predictable.
template <class Fn>
void InUtc(Fn&& fn) {
    {
        testutil::ScopedEnv tz("TZ", "UTC");
        tzset();
        fn();
    }
    tzset();
}

const std::string kDate = testutil::kDateTimeRegex;

clsExportContext ContextWithSettings(const std::string& sXml, const TempDir& tmp) {
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    ctx.IniData = std::make_unique<clsXMLIniData>();
    std::string sErr;
    EXPECT_TRUE(ctx.IniData->LoadXString(sXml, sErr)) << sErr;
    return ctx;
}

}  // namespace

TEST(SplitAtLast, BeforeLastBackslashAndDot) {
    EXPECT_EQ(SplitAtLast(R"(C:\a\b.xml)", "\\", false, false), R"(C:\a)");
    EXPECT_EQ(SplitAtLast(R"(C:\a\b.xml)", ".", false, false), R"(C:\a\b)");
}

TEST(SplitAtLast, AfterLastDelimiter) {
    EXPECT_EQ(SplitAtLast(R"(C:\a\b.xml)", "\\", true, false), "b.xml");
    EXPECT_EQ(SplitAtLast("1!4!9!", "!", true, false), "");  // delimiter at the end
    EXPECT_EQ(SplitAtLast("1!4!9", "!", true, false), "9");
}

TEST(SplitAtLast, MissingDelimiterGivesWholeTextUnlessEmptyAsked) {
    EXPECT_EQ(SplitAtLast("abc", "\\", false, false), "abc");
    EXPECT_EQ(SplitAtLast("abc", "\\", false, true), "");
    EXPECT_EQ(SplitAtLast("abc", "\\", true, false), "abc");
    EXPECT_EQ(SplitAtLast("abc", "\\", true, true), "");
}

TEST(SplitAtLast, EmptyTextOrDelimiterReturnsText) {
    EXPECT_EQ(SplitAtLast("", "!", false, true), "");
    EXPECT_EQ(SplitAtLast("a!b", "", false, true), "a!b");
}

TEST(SplitAtLast, DelimiterAtTheStart) {
    EXPECT_EQ(SplitAtLast("!abc", "!", false, false), "");
}

TEST(SplitAtFirst, UsesTheFirstOccurrence) {
    EXPECT_EQ(SplitAtFirst("1!4!9!", "!", false, false), "1");
    EXPECT_EQ(SplitAtFirst("1!4!9!", "!", true, false), "4!9!");
    EXPECT_EQ(SplitAtFirst(R"(C:\a\b.xml)", "\\", false, false), "C:");
    EXPECT_EQ(SplitAtFirst("abc", "!", false, false), "abc");
    EXPECT_EQ(SplitAtFirst("abc", "!", true, true), "");
}

TEST(DateForms, GeneralDateIsMonthDayYearAndTwelveHourTime) {
    InUtc([] {
        EXPECT_EQ(FormatGeneralDate(1795273445), "11/21/2026 3:04:05 PM");
        EXPECT_EQ(FormatGeneralDate(1767312429), "1/2/2026 12:07:09 AM");
        EXPECT_EQ(FormatGeneralDate(1772625600), "3/4/2026 12:00:00 PM");
    });
}

TEST(DateForms, CaptionDateHasTwoDigitMonthAndDay) {
    InUtc([] {
        EXPECT_EQ(FormatCaptionDate(1767312429), "01/02/2026 12:07:09 AM");
        EXPECT_EQ(FormatCaptionDate(1795273445), "11/21/2026 3:04:05 PM");
    });
}

TEST(AppendLine, EndsEveryLineWithCarriageReturnAndLineFeed) {
    TempDir tmp;
    std::string sPath = tmp.File("x.log");
    AppendLine("first", sPath);
    AppendLine("second", sPath);
    EXPECT_EQ(testutil::ReadFile(sPath), "first\r\nsecond\r\n");
}

TEST(AppendLine, MissingFolderLosesTheLineWithoutError) {
    TempDir tmp;
    std::string sPath = tmp.File("no/such/folder/x.log");
    EXPECT_NO_THROW(AppendLine("lost", sPath));
    EXPECT_FALSE(std::filesystem::exists(sPath));
    EXPECT_FALSE(std::filesystem::exists(tmp.File("no")));
}

TEST(AppendLine, ConcurrentLongLinesStayWhole) {
    // Lines longer than any stream buffer, from eight threads at once: every line of the file
    // is one whole line of one thread.
    TempDir tmp;
    const std::string sPath = tmp.File("x.log");
    constexpr int kThreads = 8;
    constexpr int kLines = 40;
    std::vector<std::thread> arrThreads;
    for (int t = 0; t < kThreads; ++t) {
        arrThreads.emplace_back([&sPath, t] {
            const std::string sLine(20000 + t, static_cast<char>('a' + t));
            for (int i = 0; i < kLines; ++i)
                AppendLine(sLine, sPath);
        });
    }
    for (auto& th : arrThreads)
        th.join();
    const std::string sAll = testutil::ReadFile(sPath);
    std::vector<int> arrCount(kThreads, 0);
    size_t lStart = 0;
    while (lStart < sAll.size()) {
        const size_t lEnd = sAll.find("\r\n", lStart);
        ASSERT_NE(lEnd, std::string::npos);
        const std::string sLine = sAll.substr(lStart, lEnd - lStart);
        ASSERT_FALSE(sLine.empty());
        const int t = sLine[0] - 'a';
        ASSERT_TRUE(t >= 0 && t < kThreads);
        EXPECT_EQ(sLine, std::string(20000 + t, static_cast<char>('a' + t)));
        ++arrCount[t];
        lStart = lEnd + 2;
    }
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(arrCount[t], kLines) << "thread " << t;
}

TEST(WriteLog, PlainLineIsMessageBlankDateWithoutSource) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    WriteLog(ctx, "Hello", "orvExportExcel:x[y]", -1, false);
    auto arr = testutil::ReadLogLines(ctx.LogFilePath);
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex("Hello " + kDate))) << arr[0];
}

TEST(WriteLog, ErrorLineCarriesDescriptionNumberDateAndSource) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    ctx.Err.Number = 9;
    ctx.Err.Description = "Subscript out of range";
    WriteLog(ctx, "Run-time error: ", "orvExportExcel:clsBldExcel[FillFiles]", -1, true);
    auto arr = testutil::ReadLogLines(ctx.LogFilePath);
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(arr[0], std::regex("Run-time error: Subscript out of range 9 " + kDate +
                                            R"( in orvExportExcel:clsBldExcel\[FillFiles\])")))
        << arr[0];
}

TEST(WriteLog, ObserverSeesEachLineAndAddsNothingToTheFile) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    std::vector<std::string> arrSeen;
    ctx.Options.OnLogLine = [&](const std::string& s) { arrSeen.push_back(s); };
    WriteLog(ctx, "One", "", -1, false);
    WriteLog(ctx, "Two", "", -1, false);
    auto arr = testutil::ReadLogLines(ctx.LogFilePath);
    ASSERT_EQ(arr.size(), 2u);
    EXPECT_EQ(arrSeen, arr);
}

TEST(TrapRun, LogsTheErrorWithTheProcedureTagAndReturnsTheFailValue) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    ctx.Res.MsgRunError = "Run-time error: ";
    bool b = TrapRun(ctx, "clsBldExcel", "FillChild", false, []() -> bool { RaiseError(6); });
    EXPECT_FALSE(b);
    auto arr = testutil::ReadLogLines(ctx.LogFilePath);
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(arr[0], std::regex("Run-time error: Overflow 6 " + kDate +
                                            R"( in orvExportExcel:clsBldExcel\[FillChild\])")))
        << arr[0];
    EXPECT_EQ(ctx.Err.Number, 6);
}

TEST(TrapRun, MapsStandardFailuresToRunTimeErrors) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    std::vector<int> v;
    TrapRunVoid(ctx, "m", "p", [&] { (void)At(v, 3); });
    EXPECT_EQ(ctx.Err.Number, 9);
    EXPECT_EQ(ctx.Err.Description, "Subscript out of range");
    TrapRunVoid(ctx, "m", "p", [&] { (void)CheckedAdd(2147483647L, 1); });
    EXPECT_EQ(ctx.Err.Number, 6);
    TrapRunVoid(ctx, "m", "p", [&] { throw std::bad_alloc(); });
    EXPECT_EQ(ctx.Err.Number, 7);
}

TEST(ErrDescription, StandardTexts) {
    EXPECT_EQ(ErrDescription(9), "Subscript out of range");
    EXPECT_EQ(ErrDescription(6), "Overflow");
    EXPECT_EQ(ErrDescription(91), "Object variable or With block variable not set");
    EXPECT_EQ(ErrDescription(5), "Invalid procedure call or argument");
    EXPECT_EQ(ErrDescription(13), "Type mismatch");
    EXPECT_EQ(ErrDescription(53), "File not found");
    EXPECT_EQ(ErrDescription(70), "Permission denied");
    EXPECT_EQ(ErrDescription(429), "ActiveX component can't create object");
    EXPECT_EQ(ErrDescription(1004), "Application-defined or object-defined error");
}

TEST(InitResources, WithoutMessagesLogsExactlyResourcesWasNotInitialized) {
    TempDir tmp;
    clsExportContext ctx =
        ContextWithSettings("<S><CUSTOM_OBJECTS><ITEM>Item</ITEM></CUSTOM_OBJECTS></S>", tmp);
    InitResources(ctx, ctx.IniData.get());
    auto arr = testutil::ReadLogLines(ctx.LogFilePath);
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex("Resources was not initialized " + kDate)))
        << arr[0];
    EXPECT_EQ(ctx.Res.MsgRunError, "");
    EXPECT_EQ(ctx.Res.NameItem, "");  // nothing is read when MESSAGES is missing
    // Later messages then consist of their variable parts only.
    WriteLog(ctx, ctx.Res.MsgFile + "/x/data.xml" + ctx.Res.MsgWasNotFound, "", -1, false);
    arr = testutil::ReadLogLines(ctx.LogFilePath);
    EXPECT_TRUE(std::regex_match(arr[1], std::regex("/x/data\\.xml " + kDate))) << arr[1];
}

TEST(InitResources, ReadsMessagesAndNamesFromAnywhereAndTakesTheFirstOfTwins) {
    TempDir tmp;
    clsExportContext ctx = ContextWithSettings(
        "<S><MESSAGES><MSG_RUN_ERROR>first</MSG_RUN_ERROR><MSG_ON_LINE>on line</MSG_ON_LINE>"
        "</MESSAGES><X><MSG_RUN_ERROR>second</MSG_RUN_ERROR><MSG_OF_ITEM>of item</MSG_OF_ITEM></X>"
        "<CUSTOM_OBJECTS><ITEM>Part</ITEM><DOC>Doc</DOC></CUSTOM_OBJECTS>"
        "<CUSTOM_FIELDS><MNF_VND_KEY>mk</MNF_VND_KEY></CUSTOM_FIELDS></S>",
        tmp);
    InitResources(ctx, ctx.IniData.get());
    EXPECT_EQ(ctx.Res.MsgRunError, "first");
    EXPECT_EQ(ctx.Res.MsgOnLine, "on line");
    EXPECT_EQ(ctx.Res.MsgOfItem, "of item");  // outside MESSAGES, found through "//"
    EXPECT_EQ(ctx.Res.NameItem, "Part");
    EXPECT_EQ(ctx.Res.NameDoc, "Doc");
    EXPECT_EQ(ctx.Res.NameMnfVndKey, "mk");
    EXPECT_EQ(ctx.Res.MsgFile, "");  // missing: empty, nothing reported
    EXPECT_FALSE(std::filesystem::exists(ctx.LogFilePath));
}

TEST(InitResources, ExampleSettingsFillAllNineteenMessagesAndTwentyThreeNames) {
    TempDir tmp;
    clsExportContext ctx;
    ctx.LogFilePath = tmp.File("ExportExcel.log");
    ctx.IniData = std::make_unique<clsXMLIniData>();
    std::string sErr;
    ASSERT_TRUE(ctx.IniData->LoadXDoc(testutil::ExamplesDir() + "/settings.xml", sErr)) << sErr;
    InitResources(ctx, ctx.IniData.get());
    const clsResources& r = ctx.Res;
    for (const std::string* p : {&r.MsgFileNameEmpty,    &r.MsgFile,
                                 &r.MsgWasNotFound,      &r.MsgIncorIniFileData,
                                 &r.MsgSetupStringError, &r.MsgRunError,
                                 &r.MsgLoadParseError,   &r.MsgOnLine,
                                 &r.MsgAtPosition,       &r.MsgErrorXmlStructure,
                                 &r.MsgRootNodeNotFound, &r.MsgFirstChildNodeNot,
                                 &r.MsgOfItem,           &r.MsgHaventChildren,
                                 &r.MsgChildOfNode,      &r.MsgOfDoc,
                                 &r.MsgOfFolder,         &r.MsgNotDataset,
                                 &r.MsgDocDataset,       &r.NameItem,
                                 &r.NameItemPsDef,       &r.NameItemMnf,
                                 &r.NameItmVndMnf,       &r.NameItemDoc,
                                 &r.NameItemFolder,      &r.NameLocalAlternateItem,
                                 &r.NameRefDesDef,       &r.NameDoc,
                                 &r.NameDocPs,           &r.NameDocDataset,
                                 &r.NameDocItem,         &r.NameDocFolder,
                                 &r.NameDataset,         &r.NameDocDoc,
                                 &r.NameFolder,          &r.NameFolderPs,
                                 &r.NameFolderItem,      &r.NameFolderDoc,
                                 &r.NameFolderFolder,    &r.NameFileName,
                                 &r.NameDesignationKey,  &r.NameMnfVndKey}) {
        EXPECT_FALSE(p->empty());
    }
    EXPECT_EQ(r.MsgRunError, "Run-time error: ");  // trailing blank kept
    EXPECT_EQ(r.MsgFile, "The data file ");
}
