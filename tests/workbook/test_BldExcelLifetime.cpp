// Lifetime of the workbook and the sheet plan of the first worksheet.
#include <filesystem>

#include "BldExcelTest.h"

using namespace wbtest;
using namespace modConst;
namespace fs = std::filesystem;

namespace {

class LifetimeTest : public BldExcelTest {
protected:
    // A builder without an open workbook.
    std::unique_ptr<clsBldExcel> Fresh() { return std::make_unique<clsBldExcel>(*ctx); }
    static std::string AnyErrorLine(const std::string& sProc) {
        return "Run-time error: .+ \\d+ " + std::string(testutil::kDateTimeRegex) +
               " in orvExportExcel:clsBldExcel\\[" + sProc + "\\]";
    }
};

class SheetPlanTest : public BldExcelTest {
protected:
    // Three items without relations, levels 0, 1, 1.
    void ThreeItems() {
        M().XItems = {XItem(0, Head("P-100", "Top", "B")), XItem(1, Head("C-1", "Bolt", "A")),
                      XItem(1, Head("C-2", "Nut", "-"))};
        M().ObjCount = 2;
    }
    void AttributeColumns(long k) {
        ctx->Labels.AdditionalTagTable.ReDim(2, k - 1);
        for (long j = 0; j < k; ++j)
            ctx->Labels.AdditionalTagTable.Item(1, j) = "Add" + std::to_string(j);
        for (auto& r : M().XItems) {
            std::vector<std::string> v;
            for (long j = 0; j < k; ++j)
                v.push_back("v" + std::to_string(j));
            r.AddAttrs = v;
        }
    }
    // The merged area on row r that starts in column 1: its last column, 0 when none.
    long BarEnd(long r) {
        for (const auto& a : S().MergedAreas()) {
            if (a[0] == r && a[1] == 1 && a[2] == r) return a[3];
        }
        return 0;
    }
    void ExpectBar(long r) {
        SCOPED_TRACE("bar row " + std::to_string(r));
        EXPECT_DOUBLE_EQ(S().RowHeightOf(r), 18);
        EXPECT_EQ(Style(r, 1).lInteriorColorIndex, 1);
        EXPECT_EQ(Style(r, 1).lFontColorIndex, 2);
        EXPECT_EQ(Style(r, 1).dFontSize, 14);
        EXPECT_EQ(Style(r, 1).lBorderTop, 1);
        EXPECT_EQ(Style(r, 1).lBorderBottom, 1);
        EXPECT_TRUE(Style(r, 1).bBold);
    }
};

}  // namespace

TEST_F(LifetimeTest, InitExlWritesTheEmptyWorkbookAtOnce) {
    auto b = Fresh();
    std::string sPath = tmp.File("out.xlsx");
    ASSERT_TRUE(b->InitExl(sPath));
    EXPECT_TRUE(fs::exists(sPath));
    EXPECT_GT(fs::file_size(sPath), 0u);
    ASSERT_NE(Access::Workbook(*b), nullptr);
    EXPECT_EQ(Access::Workbook(*b)->Worksheets().Count(), 1);
    b->ExitExl();
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LifetimeTest, InitExlFailsOnAPlaceThatCannotBeWritten) {
    auto b = Fresh();
    EXPECT_FALSE(b->InitExl(tmp.File("no-such-folder/out.xlsx")));
    auto arr = LogLines();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex(AnyErrorLine("InitExl")))) << arr[0];
    // Cleaning up after the failure never throws; whatever it cannot do is logged as ExitExl.
    b->ExitExl();
    for (size_t i = 1; i < LogLines().size(); ++i) {
        EXPECT_TRUE(std::regex_match(LogLines()[i], std::regex(AnyErrorLine("ExitExl"))));
    }
}

TEST_F(LifetimeTest, ExitExlWithoutInitExlDoesNothing) {
    auto b = Fresh();
    b->ExitExl();
    b->ExitExl();
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LifetimeTest, FillExlFileWithoutAWorkbookFails) {
    auto b = Fresh();
    EXPECT_FALSE(b->FillExlFile());
    ExpectOneErrorLine("Object variable or With block variable not set", 91, "FillExlFile");
}

TEST_F(LifetimeTest, FillExlFileNeverSavesAndExitExlSavesTheWholeWorkbook) {
    M().XItems = {XItem(0, Head("P-100", "Top", "B"))};
    M().ObjCount = 0;
    auto b = Fresh();
    std::string sPath = tmp.File("book.xlsx");
    ASSERT_TRUE(b->InitExl(sPath));
    std::string sEmpty = testutil::ReadFile(sPath);
    ASSERT_TRUE(b->FillExlFile());
    EXPECT_EQ(testutil::ReadFile(sPath), sEmpty);
    b->ExitExl();
    EXPECT_NE(testutil::ReadFile(sPath), sEmpty);
    EXPECT_EQ(Access::Workbook(*b), nullptr);
    EXPECT_EQ(Access::Application(*b), nullptr);
    EXPECT_EQ(Access::CurrentSheet(*b), nullptr);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SheetPlanTest, SheetWideFormatCaptionBlockAndPanels) {
    ThreeItems();
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(Access::CurrentSheet(*bld), &Access::Workbook(*bld)->Worksheets()(1));

    // Sheet-wide format; the final vertical alignment is top everywhere.
    for (long c : {1L, 6L, 12L})
        EXPECT_DOUBLE_EQ(S().ColumnWidthOf(c), 21) << c;
    for (auto [r, c] : std::vector<std::pair<long, long>>{{1, 1}, {4, 3}, {11, 2}, {200, 9}}) {
        SCOPED_TRACE(std::to_string(r) + "," + std::to_string(c));
        EXPECT_EQ(Style(r, c).lHorizontalAlignment, xlLeft);
        EXPECT_TRUE(Style(r, c).bWrapText);
        EXPECT_EQ(Style(r, c).sNumberFormat, "@");
        EXPECT_EQ(Style(r, c).lVerticalAlignment, xlTop);
    }

    // Caption block: labels along row 1 in bold, values along row 2; row 3 empty.
    EXPECT_EQ(Text(1, 1), "Project");
    EXPECT_EQ(Text(1, 2), "Workbook");
    EXPECT_EQ(Text(1, 3), "Exported by");
    EXPECT_EQ(Text(1, 4), "Export date");
    EXPECT_TRUE(Style(1, 1).bBold);
    EXPECT_TRUE(Style(1, 9).bBold);
    EXPECT_EQ(Text(2, 1), "Demo project");
    EXPECT_EQ(Text(2, 2), "Demo BOM");
    EXPECT_EQ(Text(2, 3), "PLM administrator");
    EXPECT_FALSE(Text(2, 4).empty());
    EXPECT_FALSE(Style(2, 1).bBold);
    EXPECT_TRUE(IsEmpty(1, 5));
    for (long c = 1; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(3, c));

    // Main panel.
    ExpectBar(4);
    EXPECT_EQ(BarEnd(4), 6);
    EXPECT_EQ(Text(4, 1), "Main Panel: Item Structure");
    EXPECT_TRUE(Style(5, 1).bBold);
    EXPECT_TRUE(Style(5, 6).bBold);
    EXPECT_EQ(Text(5, 1), "Level");
    EXPECT_EQ(Text(5, 2), "Item ID");
    EXPECT_EQ(Number(6, 1), 0);
    EXPECT_EQ(Text(6, 2), "P-100");
    EXPECT_EQ(Number(8, 1), 1);
    EXPECT_EQ(Text(8, 2), "C-2");
    ExpectEmptyRow(9);

    // Property panel one empty row below, the first block on the next row.
    ExpectBar(10);
    EXPECT_EQ(BarEnd(10), 6);
    EXPECT_EQ(Text(10, 1), "Property Panel: Items");
    EXPECT_EQ(Text(11, 2), "P-100");
    const auto& arrNames = S().Names().Items();
    ASSERT_EQ(arrNames.size(), 3u);
    EXPECT_EQ(arrNames[0].sName, "ID_P_45100_B_0");
    EXPECT_EQ(arrNames[0].lRow1, 11);
    EXPECT_EQ(arrNames[1].lRow1, 14);
    EXPECT_EQ(arrNames[2].lRow1, 17);

    // Hyperlinks from column B of the main panel.
    const auto& arrLinks = S().Hyperlinks().Items();
    ASSERT_EQ(arrLinks.size(), 3u);
    EXPECT_EQ(arrLinks[0].lRow, 6);
    EXPECT_EQ(arrLinks[0].lCol, 2);
    EXPECT_EQ(arrLinks[0].SubAddress(), "ID_P_45100_B_0");
    EXPECT_EQ(arrLinks[2].lRow, 8);

    // Page set-up: landscape, rows 1 to 3 repeat, page number in the footer, A to F printed
    // down to the row after the last block (three blocks of three rows from row 11).
    xl::xlPageSetup& ps = S().PageSetup();
    EXPECT_EQ(ps.lOrientation, xlLandscape);
    EXPECT_EQ(ps.sPrintTitleRows, "$A$1:$D$3");
    EXPECT_EQ(ps.lTitleRow1, 1);
    EXPECT_EQ(ps.lTitleRow2, 3);
    EXPECT_EQ(ps.sCenterFooter, "&P");
    EXPECT_EQ(ps.sPrintArea, "$A$1:$F$20");
    EXPECT_EQ(ps.lAreaRow1, 1);
    EXPECT_EQ(ps.lAreaCol1, 1);
    EXPECT_EQ(ps.lAreaRow2, 20);
    EXPECT_EQ(ps.lAreaCol2, 6);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(SheetPlanTest, AnEmptyCaptionTableWritesNothingInRowsOneAndTwo) {
    ThreeItems();
    ctx->Labels.CaptionTable.Erase();
    ASSERT_TRUE(bld->FillExlFile());
    for (long c = 1; c <= 6; ++c) {
        EXPECT_TRUE(IsEmpty(1, c));
        EXPECT_TRUE(IsEmpty(2, c));
    }
    EXPECT_TRUE(Style(1, 1).bBold);
    EXPECT_FALSE(Style(2, 1).bBold);
}

TEST_F(SheetPlanTest, BarSpansSixColumnsWithoutAttributeColumnsInBothModes) {
    ThreeItems();
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(BarEnd(4), 6);
    Prepare("Item", "COLLECTION");
    ThreeItems();
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(BarEnd(4), 6);
}

TEST_F(SheetPlanTest, BarSpansTheAttributeColumnsStructure) {
    ThreeItems();
    AttributeColumns(3);
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(BarEnd(4), 9);
    EXPECT_EQ(BarEnd(10), 6);
    EXPECT_EQ(Text(5, 7), "Add0");
    EXPECT_EQ(Text(6, 9), "v2");
    // The print area never extends beyond column F.
    EXPECT_EQ(S().PageSetup().lAreaCol2, 6);
    EXPECT_EQ(S().PageSetup().sPrintArea.substr(0, 8), "$A$1:$F$");
}

TEST_F(SheetPlanTest, BarSpansTheAttributeColumnsCollection) {
    Prepare("Item", "COLLECTION");
    ThreeItems();
    AttributeColumns(3);
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(BarEnd(4), 8);
    EXPECT_EQ(Text(5, 6), "Add0");
    EXPECT_EQ(Text(6, 6), "v0");
    EXPECT_EQ(S().PageSetup().lAreaCol2, 6);
}

TEST_F(SheetPlanTest, AnUnknownKindWritesCaptionsAndPageSetupButNoRows) {
    ThreeItems();
    M().ExportKind = 0;
    ASSERT_TRUE(bld->FillExlFile());
    ExpectBar(4);
    EXPECT_FALSE(Text(4, 1).empty());
    for (long c = 1; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(6, c));
    ExpectBar(7);
    EXPECT_FALSE(Text(7, 1).empty());
    for (long c = 1; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(8, c));
    EXPECT_TRUE(S().Names().Items().empty());
    EXPECT_TRUE(S().Hyperlinks().Items().empty());
    EXPECT_EQ(S().PageSetup().sPrintArea, "$A$1:$F$8");
    EXPECT_EQ(S().PageSetup().sPrintTitleRows, "$A$1:$D$3");
    EXPECT_EQ(S().PageSetup().lOrientation, xlLandscape);
    EXPECT_EQ(S().PageSetup().sCenterFooter, "&P");
}

TEST_F(SheetPlanTest, PropertyPanelStartsBelowWhatTheMainPanelFillerReturned) {
    // Collection: two of three records listed, so the bar is on row 2 + 7.
    Prepare("Item", "COLLECTION");
    ThreeItems();
    M().XItems[2].Level = 0;
    ASSERT_TRUE(bld->FillExlFile());
    ExpectBar(9);
    EXPECT_EQ(Text(9, 1), "Property Panel: Items");
    EXPECT_EQ(Text(6, 1), "P-100");
    EXPECT_EQ(Text(7, 1), "C-2");

    // No objects: the bar is on row 7.
    Prepare("Item", "STRUCTURE");
    M().ObjCount = -1;
    ASSERT_TRUE(bld->FillExlFile());
    ExpectBar(7);
    EXPECT_EQ(S().PageSetup().sPrintArea, "$A$1:$F$8");

    // A count beyond the array: the filler stops after two rows and the bar follows them.
    Prepare("Item", "STRUCTURE");
    ThreeItems();
    M().XItems.pop_back();
    M().ObjCount = 4;
    ASSERT_TRUE(bld->FillExlFile());
    ExpectBar(9);
    bool bLogged = false;
    for (const auto& s : LogLines()) {
        if (std::regex_match(
                s, std::regex(ErrorLineRegex("Subscript out of range", 9, "FillMainPanelItems")))) {
            bLogged = true;
        }
    }
    EXPECT_TRUE(bLogged);
}

TEST_F(SheetPlanTest, PanelTitlesComeFromTheSectionOfKindAndMode) {
    Prepare("Document", "COLLECTION");
    M().XDocs = {XDoc(0, Doc("D-1", "Drawing", "A"))};
    M().ObjCount = 0;
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(Text(4, 1), "Main Panel: Document Collection");
    EXPECT_EQ(Text(8, 1), "Property Panel: Documents");

    std::string s = SettingsWithout(ExampleSettings(), "FOLDER_STRUCTURE");
    Prepare("Folder", "STRUCTURE", s);
    M().XFolders = {XFolder(0, Head("F-1", "Root", "1"))};
    M().ObjCount = 0;
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(Text(4, 1), "Main Panel");
    EXPECT_EQ(Text(8, 1), "Property Panel");
}
