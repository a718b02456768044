// Caption bands, merging, the level sheet and the caption texts of the builder.
#include "BldExcelTest.h"

using namespace wbtest;
using namespace modConst;

namespace {

class CaptionBandTest : public BldExcelTest {};

}  // namespace

TEST_F(CaptionBandTest, AllZeroAndNoFlagsStillAlignsLeftAndBottom) {
    // Disturb the alignment first, so the band's own setting is what the test sees.
    S().Cells().HorizontalAlignment(xlCenter);
    S().Cells().VerticalAlignment(xlTop);
    ASSERT_TRUE(bld->FillCaption(3, 2, 4, 0, 0, 0, 0, false, false));
    for (long c = 2; c <= 4; ++c) {
        EXPECT_EQ(Style(3, c).lHorizontalAlignment, xlLeft);
        EXPECT_EQ(Style(3, c).lVerticalAlignment, xlBottom);
        EXPECT_EQ(Style(3, c).lInteriorColorIndex, 0);
        EXPECT_EQ(Style(3, c).lFontColorIndex, 0);
        EXPECT_EQ(Style(3, c).dFontSize, 11);
        EXPECT_EQ(Style(3, c).lBorderTop, 0);
        EXPECT_EQ(Style(3, c).lBorderBottom, 0);
    }
    // Outside the band nothing changes.
    EXPECT_EQ(Style(3, 1).lHorizontalAlignment, xlCenter);
    EXPECT_EQ(Style(3, 5).lVerticalAlignment, xlTop);
    EXPECT_TRUE(S().MergedAreas().empty());
    EXPECT_DOUBLE_EQ(S().RowHeightOf(3), 15);
}

TEST_F(CaptionBandTest, FullBandSetsHeightFillFontBordersAndMerge) {
    ASSERT_TRUE(bld->FillCaption(4, 1, 7, 1, 18, 2, 14, true, true));
    EXPECT_DOUBLE_EQ(S().RowHeightOf(4), 18);
    EXPECT_TRUE(Merged(4, 1, 7));
    for (long c = 1; c <= 7; ++c) {
        SCOPED_TRACE(c);
        EXPECT_EQ(Style(4, c).lInteriorColorIndex, 1);
        EXPECT_EQ(Style(4, c).lFontColorIndex, 2);
        EXPECT_EQ(Style(4, c).dFontSize, 14);
        EXPECT_EQ(Style(4, c).lBorderTop, xlContinuous);
        EXPECT_EQ(Style(4, c).lBorderBottom, xlContinuous);
        EXPECT_EQ(Style(4, c).lHorizontalAlignment, xlLeft);
        EXPECT_EQ(Style(4, c).lVerticalAlignment, xlBottom);
    }
    // Only the top and bottom edges get a border.
    EXPECT_EQ(Style(4, 1).lBorderLeft, 0);
    EXPECT_EQ(Style(4, 7).lBorderRight, 0);
    EXPECT_EQ(Style(4, 8).lInteriorColorIndex, 0);
}

TEST_F(CaptionBandTest, NegativeRowHeightIsIgnoredLikeZero) {
    S().Rows(6).RowHeight(30);
    ASSERT_TRUE(bld->FillCaption(6, 1, 6, 0, -5, 0, 0, false, false));
    EXPECT_DOUBLE_EQ(S().RowHeightOf(6), 30);
    ASSERT_TRUE(bld->FillCaption(6, 1, 6, 0, 0, 0, 0, false, false));
    EXPECT_DOUBLE_EQ(S().RowHeightOf(6), 30);
    ASSERT_TRUE(bld->FillCaption(7, 1, 6, 0, -1, 0, 0, false, false));
    EXPECT_DOUBLE_EQ(S().RowHeightOf(7), 15);
}

TEST_F(CaptionBandTest, BordersWithoutMergeAndMergeWithoutBorders) {
    ASSERT_TRUE(bld->FillCaption(2, 1, 6, 15, 0, 0, 0, true, false));
    EXPECT_FALSE(AnyMergeOnRow(2));
    EXPECT_TRUE(TopBorder(2, 1));
    EXPECT_TRUE(BottomBorder(2, 6));
    EXPECT_EQ(Style(2, 3).lInteriorColorIndex, 15);
    ASSERT_TRUE(bld->FillCaption(3, 1, 2, 0, 0, 48, 0, false, true));
    EXPECT_TRUE(Merged(3, 1, 2));
    EXPECT_FALSE(TopBorder(3, 1));
    EXPECT_FALSE(BottomBorder(3, 1));
    EXPECT_EQ(Style(3, 1).lFontColorIndex, 48);
}

TEST_F(CaptionBandTest, AnErrorIsLoggedAndReturnsFalse) {
    EXPECT_FALSE(bld->FillCaption(1, 0, 6, 0, 0, 0, 0, false, true));
    ExpectOneErrorLine("Application-defined or object-defined error", 1004, "FillCaption");
}

TEST_F(CaptionBandTest, MergeLevelMergesAndAlignsOnly) {
    xl::xlWorksheet& oOther = Access::Workbook(*bld)->Worksheets().Add();
    ASSERT_TRUE(bld->MergeLevel(5, 2, 4, oOther));
    EXPECT_TRUE(MergedOn(oOther, 5, 2, 4));
    EXPECT_EQ(oOther.EffectiveStyle(5, 3).lHorizontalAlignment, xlLeft);
    EXPECT_EQ(oOther.EffectiveStyle(5, 3).lVerticalAlignment, xlBottom);
    EXPECT_EQ(oOther.EffectiveStyle(5, 3).lBorderTop, 0);
    EXPECT_EQ(oOther.EffectiveStyle(5, 3).lInteriorColorIndex, 0);
    // The current worksheet is not touched.
    EXPECT_TRUE(S().MergedAreas().empty());
}

TEST_F(CaptionBandTest, MergeLevelErrorIsLogged) {
    EXPECT_FALSE(bld->MergeLevel(0, 1, 2, S()));
    ExpectOneErrorLine("Application-defined or object-defined error", 1004, "MergeLevel");
}

// ---- caption texts ----

TEST_F(CaptionBandTest, CaptionByIdReadsTheCurrentSectionWhenTheSwitchIsOn) {
    Access::SelectLabels(*bld, "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL");
    EXPECT_TRUE(Access::LabelSwitch(*bld));
    long lLen = -1;
    EXPECT_EQ(Access::GetCaptionById(*bld, 1, "ID", lLen), "Item ID");
    EXPECT_EQ(lLen, -1);  // a negative length is kept
    lLen = 0;
    EXPECT_EQ(Access::GetCaptionById(*bld, 3, "Description", lLen), "Description");
    EXPECT_EQ(lLen, 11);
    lLen = 5;
    EXPECT_EQ(Access::GetCaptionById(*bld, 9, "Fallback", lLen), "Fallback");
    EXPECT_EQ(lLen, 8);
}

TEST_F(CaptionBandTest, CaptionByIdAndByNameFallBackWhenTheSwitchIsOff) {
    Access::SelectLabels(*bld, "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL");
    Access::SetLabelSwitch(*bld, false);
    long lLen = 0;
    EXPECT_EQ(Access::GetCaptionById(*bld, 1, "ID", lLen), "ID");
    EXPECT_EQ(lLen, 2);
    Access::SelectLabels(*bld, "PROPERTY_LBL/MNF_LBL");
    Access::SetLabelSwitch(*bld, false);
    EXPECT_EQ(Access::GetCaptionByName(*bld, "CAPTION_LBL", "Makers", lLen), "Makers");
}

TEST_F(CaptionBandTest, AMissingSectionTurnsTheSwitchOffAndGivesFallbacks) {
    Access::SelectLabels(*bld, "PROPERTY_LBL/NO_SUCH_LBL");
    EXPECT_FALSE(Access::LabelSwitch(*bld));
    long lLen = -1;
    EXPECT_EQ(Access::GetCaptionById(*bld, 1, "ID", lLen), "ID");
    EXPECT_EQ(Access::GetCaptionByName(*bld, "CAPTION_LBL", "Items", lLen), "Items");
}

TEST_F(CaptionBandTest, CaptionByNameReadsTheCurrentSection) {
    Access::SelectLabels(*bld, "PROPERTY_LBL/MNF_VND_LBL");
    long lLen = 0;
    EXPECT_EQ(Access::GetCaptionByName(*bld, "VND_CAP_LBL", "", lLen), "Suppliers of Manufacturer");
    EXPECT_EQ(lLen, 25);
    EXPECT_EQ(Access::GetCaptionByName(*bld, "NO_SUCH", "Fallback", lLen), "Fallback");
}

TEST_F(CaptionBandTest, AnEmptyFallbackGivesAnEmptyCaption) {
    Access::SelectLabels(*bld, "PROPERTY_LBL/MNF_VND_LBL");
    long lLen = 3;
    EXPECT_EQ(Access::GetCaptionByName(*bld, "NO_SUCH", "", lLen), "");
    EXPECT_EQ(lLen, 0);
    EXPECT_EQ(Access::GetCaptionById(*bld, 7, "", lLen), "");
    EXPECT_EQ(Access::GetCaptionByPath(*bld, "PROPERTY_LBL/NO_SUCH", ""), "");
}

TEST_F(CaptionBandTest, CaptionByPathAsksWhateverTheSwitchSays) {
    Access::SetLabelSwitch(*bld, false);
    EXPECT_EQ(Access::GetCaptionByPath(*bld, "PROPERTY_LBL/MNF_LBL/CAPTION_LBL", "x"),
              "Manufacturers");
    EXPECT_EQ(Access::GetCaptionByPath(*bld, "GLOBAL/NOTHING/MAIN_PANEL", "Main Panel"),
              "Main Panel");
}

TEST_F(CaptionBandTest, LengthCountsCharactersNotBytes) {
    std::string s = ExampleSettings();
    size_t p = s.find("<ATTRIBUTE_LBL>Attributes</ATTRIBUTE_LBL>");
    ASSERT_NE(p, std::string::npos);
    s.replace(
        p, std::string("<ATTRIBUTE_LBL>Attributes</ATTRIBUTE_LBL>").size(),
        "<ATTRIBUTE_LBL>Merkmale</ATTRIBUTE_LBL><UMLAUT_LBL><X ORDER=\"1\">Größe</X></UMLAUT_LBL>");
    Prepare("Item", "STRUCTURE", s);
    Access::SelectLabels(*bld, "PROPERTY_LBL/UMLAUT_LBL");
    long lLen = 0;
    EXPECT_EQ(Access::GetCaptionById(*bld, 1, "", lLen), "Größe");
    EXPECT_EQ(lLen, 5);
}

TEST_F(CaptionBandTest, ExportSectionPathByKindAndMode) {
    struct Case {
        int16_t kind, structure;
        const char* path;
    };
    const Case arr[] = {{1, 1, "GLOBAL/ITEM_STRUCTURE"},
                        {1, 2, "GLOBAL/ITEM_COLLECTION"},
                        {2, 1, "GLOBAL/DOC_STRUCTURE"},
                        {2, 2, "GLOBAL/DOC_COLLECTION"},
                        {3, 1, "GLOBAL/FOLDER_STRUCTURE"},
                        {3, 2, "GLOBAL/FOLDER_COLLECTION"},
                        {3, 0, "GLOBAL/FOLDER_COLLECTION"},
                        {0, 1, "GLOBAL/"},
                        {4, 2, "GLOBAL/"}};
    for (const Case& c : arr) {
        M().ExportKind = c.kind;
        M().IsStructure = c.structure;
        EXPECT_EQ(Access::GetExportSectionPath(*bld), c.path) << c.kind << "/" << c.structure;
    }
}

TEST_F(CaptionBandTest, AttributesHeadingIsAMergedBorderedBoldItalicBand) {
    long nRow = 10;
    Access::FillAttributesHeading(*bld, nRow);
    EXPECT_EQ(nRow, 11);
    ExpectListCaption(10, "Attributes");
    EXPECT_EQ(Style(10, 1).lHorizontalAlignment, xlLeft);
    EXPECT_EQ(Style(10, 1).lVerticalAlignment, xlBottom);
    EXPECT_EQ(Style(10, 1).lInteriorColorIndex, 0);
}

TEST_F(CaptionBandTest, AttributesHeadingTakesItsCaptionFromTheSettingsOrFallsBack) {
    std::string s = ExampleSettings();
    size_t p = s.find("<ATTRIBUTE_LBL>Attributes</ATTRIBUTE_LBL>");
    s.replace(p, std::string("<ATTRIBUTE_LBL>Attributes</ATTRIBUTE_LBL>").size(),
              "<ATTRIBUTE_LBL>Properties</ATTRIBUTE_LBL>");
    Prepare("Item", "STRUCTURE", s);
    long nRow = 3;
    Access::FillAttributesHeading(*bld, nRow);
    EXPECT_EQ(Text(3, 1), "Properties");

    Prepare("Item", "STRUCTURE", SettingsWithout(ExampleSettings(), "ATTRIBUTE_LBL"));
    nRow = 3;
    Access::FillAttributesHeading(*bld, nRow);
    EXPECT_EQ(Text(3, 1), "Attributes");
}

// ---- level sheet ----

namespace {

class LevelSheetTest : public BldExcelTest {
protected:
    // A main panel as a structure export writes it: levels in column A, IDs in column B.
    void FillMainPanel(const std::vector<double>& arrLevels) {
        const clsVarTable& t = ctx->Labels.CaptionTable;
        for (long i = 0; i <= t.UBound(2); ++i) {
            S().Cells(1, i + 1).Value(t.Item(0, i));
            S().Cells(2, i + 1).Value(t.Item(1, i));
        }
        S().Cells(5, 1).Value("Level");
        S().Cells(5, 2).Value("Item ID");
        for (size_t i = 0; i < arrLevels.size(); ++i) {
            S().Cells(static_cast<long>(i) + 6, 1).Value(arrLevels[i]);
            S().Cells(static_cast<long>(i) + 6, 2).Value("ID-" + std::to_string(i));
        }
        M().ObjCount = static_cast<int32_t>(arrLevels.size()) - 1;
    }
    xl::xlWorksheet& Level() { return Access::Workbook(*bld)->Worksheets()(2); }
};

}  // namespace

TEST_F(LevelSheetTest, OneWorksheetGetsANewLevelSheetIndentedByLevel) {
    FillMainPanel({1, 2, 3, 2});
    ASSERT_EQ(Access::Workbook(*bld)->Worksheets().Count(), 1);
    ASSERT_TRUE(bld->AddLevelSheet());
    ASSERT_EQ(Access::Workbook(*bld)->Worksheets().Count(), 2);
    xl::xlWorksheet& L = Level();

    EXPECT_DOUBLE_EQ(L.ColumnWidthOf(1), 21);
    EXPECT_DOUBLE_EQ(L.ColumnWidthOf(30), 21);
    // Caption block: four entries, copied up to column 5.
    EXPECT_EQ(L.Cells(1, 1).Text(), "Project");
    EXPECT_EQ(L.Cells(2, 1).Text(), "Demo project");
    EXPECT_EQ(L.Cells(1, 4).Text(), "Export date");
    // Level column one row up.
    EXPECT_EQ(L.Cells(4, 1).Text(), "Level");
    for (long r = 5; r <= 8; ++r) {
        auto v = L.GetCell(r, 1);
        ASSERT_TRUE(v && std::holds_alternative<double>(v->vValue)) << r;
    }
    EXPECT_DOUBLE_EQ(std::get<double>(L.GetCell(7, 1)->vValue), 3);
    // Heading: B4 to E4 merged (deepest level 3), the object caption in bold, borders A..E.
    EXPECT_TRUE(MergedOn(L, 4, 2, 5));
    EXPECT_EQ(L.Cells(4, 2).Text(), "Item ID");
    EXPECT_TRUE(L.EffectiveStyle(4, 2).bBold);
    for (long c = 1; c <= 5; ++c) {
        EXPECT_EQ(L.EffectiveStyle(4, c).lBorderTop, 1) << c;
        EXPECT_EQ(L.EffectiveStyle(4, c).lBorderBottom, 1) << c;
    }
    EXPECT_EQ(L.EffectiveStyle(4, 6).lBorderTop, 0);
    // Level 1 starts in column C, running to E.
    EXPECT_TRUE(MergedOn(L, 5, 3, 5));
    EXPECT_EQ(L.Cells(5, 3).Text(), "ID-0");
    // Level 2: B..C indentation band, the object in D..E.
    EXPECT_TRUE(MergedOn(L, 6, 2, 3));
    EXPECT_TRUE(MergedOn(L, 6, 4, 5));
    EXPECT_EQ(L.Cells(6, 4).Text(), "ID-1");
    EXPECT_TRUE(L.Cells(6, 2).Text().empty());
    // Level 3: B..D indentation, the object in E.
    EXPECT_TRUE(MergedOn(L, 7, 2, 4));
    EXPECT_EQ(L.Cells(7, 5).Text(), "ID-2");
    EXPECT_TRUE(MergedOn(L, 8, 2, 3));
    EXPECT_EQ(L.Cells(8, 4).Text(), "ID-3");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LevelSheetTest, ThreeWorksheetsReuseAndOverwriteWorksheetTwo) {
    Access::Workbook(*bld)->Worksheets().Add();
    Access::Workbook(*bld)->Worksheets().Add();
    Level().Cells(5, 3).Value("old text");
    FillMainPanel({1});
    ASSERT_TRUE(bld->AddLevelSheet());
    EXPECT_EQ(Access::Workbook(*bld)->Worksheets().Count(), 3);
    EXPECT_EQ(Level().Cells(5, 3).Text(), "ID-0");
    EXPECT_EQ(Level().Cells(4, 2).Text(), "Item ID");
}

TEST_F(LevelSheetTest, NoObjectsWritesTheHeadingOnly) {
    FillMainPanel({});
    ASSERT_EQ(M().ObjCount, -1);
    ASSERT_TRUE(bld->AddLevelSheet());
    xl::xlWorksheet& L = Level();
    EXPECT_EQ(L.Cells(4, 2).Text(), "Item ID");
    EXPECT_TRUE(L.EffectiveStyle(4, 2).bBold);
    EXPECT_EQ(L.EffectiveStyle(4, 1).lBorderTop, 1);
    EXPECT_EQ(L.EffectiveStyle(4, 2).lBorderBottom, 1);
    EXPECT_TRUE(L.Cells(5, 3).Text().empty());
    EXPECT_TRUE(L.Cells(5, 2).Text().empty());
}

TEST_F(LevelSheetTest, ALevelCellWithoutANumberStopsAtThatRow) {
    FillMainPanel({1, 1, 1});
    S().Cells(7, 1).Value("deep");
    EXPECT_FALSE(bld->AddLevelSheet());
    EXPECT_EQ(Level().Cells(5, 3).Text(), "ID-0");
    EXPECT_TRUE(Level().Cells(6, 3).Text().empty());
    EXPECT_TRUE(Level().Cells(7, 3).Text().empty());
    ExpectOneErrorLine("Type mismatch", 13, "AddLevelSheet");
}

TEST_F(LevelSheetTest, WithoutACurrentWorksheetItFailsWithObjectNotSet) {
    clsBldExcel oFresh(*ctx);
    EXPECT_FALSE(oFresh.AddLevelSheet());
    ExpectOneErrorLine("Object variable or With block variable not set", 91, "AddLevelSheet");
}
