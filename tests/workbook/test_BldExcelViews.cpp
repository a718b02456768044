// The views beside the panels: which ones an export writes, the outline of the main panel, the
// level sheet as an export places it, the flattened list with its totals and the where-used
// list, their headings, links, window, filter and page set-up, and a view longer than a sheet.
#include <algorithm>
#include <cmath>
#include <map>

#include "BldExcelTest.h"
#include "xl/xlRowFit.h"

using namespace wbtest;
using namespace modConst;

namespace {

// One object of an item structure: its level, keys, and the quantity and find number of the
// structure element that holds it.
struct Obj {
    int32_t nLevel;
    const char* sId;
    const char* sRev;
    const char* sDesc;
    const char* sQty;
    const char* sFind;
};

class ViewsTest : public BldExcelTest {
protected:
    // An item structure of these objects, in the order of the walk; each object's children are
    // the objects one level deeper that follow it.
    void Items(const std::vector<Obj>& arr) {
        M().XItems.clear();
        for (const Obj& o : arr) {
            XItemStruct x = XItem(o.nLevel, Head(o.sId, o.sDesc, o.sRev));
            x.PSAttr1 = o.sQty;
            x.PSAttr2 = o.sFind;
            M().XItems.push_back(x);
        }
        std::vector<long> arrOpen;
        for (size_t i = 0; i < arr.size(); ++i) {
            arrOpen.resize(static_cast<size_t>(arr[i].nLevel));
            if (!arrOpen.empty()) M().XItems[arrOpen.back()].Children += std::to_string(i) + "!";
            arrOpen.push_back(static_cast<long>(i));
        }
        M().ObjCount = static_cast<int32_t>(arr.size()) - 1;
        // The anchor names, read before the item views let go of the records.
        arrAnchors.clear();
        for (size_t i = 0; i < arr.size(); ++i)
            arrAnchors.push_back(bld->GetItemHyperlinkName(static_cast<long>(i)));
    }
    std::vector<std::string> arrAnchors;
    // The structure of the issue's example and more: part P used under A (2 each, A 4 times) and
    // under C (3), so 2*4 + 3 = 11; D's quantity "1,5"; E's quantity not a number.
    void Example() {
        Items({{0, "TOP", "A", "Top assembly", "", ""},
               {1, "ASM-A", "A", "Assembly A", "4", "10"},
               {2, "PRT-P", "A", "Part P", "2", "10"},
               {1, "ASM-C", "B", "Assembly C", "1", "20"},
               {2, "PRT-P", "A", "Part P", "3", "30"},
               {1, "ASM-D", "A", "Assembly D", "1,5", "30"},
               {2, "PRT-Q", "A", "Part Q", "2", "10"},
               {1, "ASM-E", "A", "Assembly E", "x", "40"},
               {2, "PRT-R", "A", "Part R", "2", "10"}});
    }
    xl::xlWorkbook& Book() { return *Access::Workbook(*bld); }
    xl::xlWorksheet& Sheet(const std::string& sName) {
        xl::xlWorksheet* p = Book().Worksheets().Find(sName);
        if (!p) throw std::runtime_error("no sheet " + sName);
        return *p;
    }
    std::vector<std::string> SheetNames() {
        std::vector<std::string> arr;
        for (long i = 1; i <= Book().Worksheets().Count(); ++i)
            arr.push_back(Book().Worksheets()(i).Name());
        return arr;
    }
    static std::vector<std::string> Row(xl::xlWorksheet& ws, long r, long nCols) {
        std::vector<std::string> arr;
        for (long c = 1; c <= nCols; ++c)
            arr.push_back(ws.Cells(r, c).Text());
        return arr;
    }
    static bool IsNumber(xl::xlWorksheet& ws, long r, long c) {
        auto v = ws.GetCell(r, c);
        return v && std::holds_alternative<double>(v->vValue);
    }
    // The link of a cell: its sub-address, or "" when it has none.
    static std::string LinkOf(xl::xlWorksheet& ws, long r, long c) {
        for (const xl::xlHyperlinkEntry& e : ws.Hyperlinks().Items()) {
            if (e.lRow == r && e.lCol == c) return std::string(e.SubAddress());
        }
        return "";
    }
    // Where the detail block of object i starts on the first sheet, as a link names it.
    std::string BlockCell(long i) {
        xl::xlWorksheet& ws = Book().Worksheets()(1);
        const xl::xlNameEntry* p = ws.Names().Find(arrAnchors.at(static_cast<size_t>(i)));
        if (!p) return "<no block>";
        return ws.Cells(p->lRow1, 1).AddressExternal();
    }
    // The window, filter, page set-up and heading of a view sheet; the level sheet's heading
    // is AddLevelSheet's: the merged object caption alone is set bold (as the level caption it
    // copied is).
    void ExpectViewSheet(xl::xlWorksheet& ws, long nLastRow, long nLastCol,
                         bool bLevelSheet = false) {
        SCOPED_TRACE(ws.Name());
        EXPECT_EQ(ws.FrozenRows(), 4);
        EXPECT_EQ(ws.FrozenColumns(), 0);
        ASSERT_TRUE(ws.AutoFilterArea().has_value());
        EXPECT_EQ(*ws.AutoFilterArea(), (std::array<long, 4>{4, 1, nLastRow, nLastCol}));
        // The main sheet's page set-up, with the view's own title rows and print area.
        EXPECT_EQ(ws.PageSetup().lOrientation, xlLandscape);
        EXPECT_EQ(ws.PageSetup().lZoom, 0);
        EXPECT_EQ(ws.PageSetup().lFitToPagesWide, 1);
        EXPECT_EQ(ws.PageSetup().lFitToPagesTall, 0);
        EXPECT_EQ(ws.PageSetup().sCenterFooter, "&P");
        EXPECT_EQ(ws.PageSetup().lTitleRow1, 1);
        EXPECT_EQ(ws.PageSetup().lTitleRow2, 4);
        EXPECT_EQ(ws.PageSetup().sPrintArea,
                  ws.Range(ws.Cells(1, 1), ws.Cells(nLastRow, nLastCol)).Address());
        // The caption block, as the main sheet has it.
        EXPECT_EQ(ws.Cells(1, 1).Text(), "Project");
        EXPECT_EQ(ws.Cells(2, 1).Text(), "Demo project");
        EXPECT_EQ(ws.Cells(1, 3).Text(), "Exported by");
        for (long c = 1; c <= nLastCol; ++c) {
            if (!bLevelSheet || c <= 2) {
                EXPECT_TRUE(ws.EffectiveStyle(4, c).bBold) << c;
            }
            EXPECT_EQ(ws.EffectiveStyle(4, c).lBorderTop, 1) << c;
            EXPECT_EQ(ws.EffectiveStyle(4, c).lBorderBottom, 1) << c;
        }
    }
    std::string SettingsWithViews(const std::string& sLevel, const std::string& sFlat,
                                  const std::string& sWhere, const std::string& sOutline) {
        std::string s = ExampleSettings();
        auto fnSet = [&](const std::string& sTag, const std::string& sValue) {
            const std::string sOld = "<" + sTag + ">0</" + sTag + ">";
            s.replace(s.find(sOld), sOld.size(), "<" + sTag + ">" + sValue + "</" + sTag + ">");
        };
        fnSet("LEVEL_SHEET", sLevel);
        fnSet("FLAT_LIST", sFlat);
        fnSet("WHERE_USED", sWhere);
        fnSet("OUTLINE", sOutline);
        return s;
    }
};

}  // namespace

// ---- which views ----

TEST_F(ViewsTest, TheSettingsSwitchViewsOnWithOneAndTheHostReplacesThem) {
    EXPECT_EQ(bld->GetExportViews(), clsViews{});  // the example settings: all 0
    ReplaceSettings(SettingsWithViews("1", " 1 ", "yes", "0"));
    EXPECT_EQ(bld->GetExportViews(), (clsViews{true, true, false, false}));
    ctx->Options.Views = clsViews{false, false, true, true};
    EXPECT_EQ(bld->GetExportViews(), (clsViews{false, false, true, true}));
    ReplaceSettings(SettingsWithout(ExampleSettings(), "EXPORT_VIEWS"));
    ctx->Options.Views.reset();
    EXPECT_EQ(bld->GetExportViews(), clsViews{});
}

TEST_F(ViewsTest, WithoutSettingsNoViewAndOneLine) {
    ctx->Options.Views = clsViews{true, true, true, true};
    ctx->IniData.reset();
    EXPECT_EQ(bld->GetExportViews(), clsViews{});
    ExpectOneErrorLine("Object variable or With block variable not set", 91, "GetExportViews");
}

TEST_F(ViewsTest, EachKindAndModeWritesTheViewsThatFitIt) {
    const clsViews oAll{true, true, true, true};
    struct Case {
        const char* sType;
        const char* sSpace;
        clsViews oWant;
    };
    const Case arr[] = {{"Item", "STRUCTURE", {true, true, true, true}},
                        {"Item", "COLLECTION", {false, true, true, false}},
                        {"Document", "STRUCTURE", {true, false, false, true}},
                        {"Document", "COLLECTION", {false, false, false, false}},
                        {"Folder", "STRUCTURE", {true, false, false, true}},
                        {"Folder", "COLLECTION", {false, false, false, false}}};
    for (const Case& c : arr) {
        Prepare(c.sType, c.sSpace);
        ctx->Options.Views = oAll;
        EXPECT_EQ(bld->GetExportViews(), c.oWant) << c.sType << " " << c.sSpace;
    }
}

TEST_F(ViewsTest, WithoutViewsTheWorkbookHasOneSheetAndNoOutline) {
    Example();
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(SheetNames(), std::vector<std::string>{"Sheet1"});
    for (long r = 6; r <= 14; ++r)
        EXPECT_EQ(S().RowOutlineLevel(r), 1) << r;
    EXPECT_EQ(S().OutlineSummaryRowOf(), xlSummaryBelow);
    EXPECT_EQ(S().FrozenRows(), 0);
    EXPECT_FALSE(S().AutoFilterArea().has_value());
}

// Once its block is laid out, an object's data leaves memory (the links keep its level,
// identifier and revision); with a view that reads the records after the blocks, what the view
// reads stays (description, quantity, find number) until the item views have read it. The outline
// is laid out before the blocks.
TEST_F(ViewsTest, BlocksLetGoOfTheDataTheyShowedButWhatTheViewsRead) {
    for (const clsViews& oViews :
         {clsViews{}, clsViews{false, false, false, true}, clsViews{true, false, false, false},
          clsViews{false, true, false, false}, clsViews{false, false, true, false}}) {
        Prepare("Item", "STRUCTURE");
        ctx->Options.Views = oViews;
        Example();
        M().XItems[1].RefDes = "R1";
        M().XItems[1].Head.Attrs = std::vector<std::string>{"a"};
        const std::string sAnchor1 = bld->GetItemHyperlinkName(1);
        ASSERT_TRUE(bld->FillExlFile());
        if (oViews.bFlatList || oViews.bWhereUsed) {
            // The item views read the records last, then let go of them all.
            EXPECT_TRUE(M().XItems.empty());
            EXPECT_EQ(M().ObjCount, -1);
        } else {
            const bool bKept = oViews.bLevelSheet;
            ASSERT_EQ(M().XItems.size(), 9u);
            const XItemStruct& x = M().XItems[1];
            EXPECT_EQ(x.Level, 1);
            EXPECT_EQ(x.Head.Key1, "ASM-A");
            EXPECT_EQ(x.Head.Key3, "A");
            EXPECT_EQ(x.Head.Key2, bKept ? "Assembly A" : "");
            EXPECT_EQ(x.PSAttr1, bKept ? "4" : "");
            EXPECT_EQ(x.PSAttr2, bKept ? "10" : "");
            EXPECT_EQ(x.RefDes, "");
            EXPECT_FALSE(x.Head.Attrs.has_value());
            EXPECT_EQ(x.Children, "");
        }
        // The block of ASM-A listed its child, whose block came after it.
        xl::xlWorksheet& ws = Book().Worksheets()(1);
        const xl::xlNameEntry* p = ws.Names().Find(sAnchor1);
        ASSERT_NE(p, nullptr);
        long r = p->lRow1;
        while (r < p->lRow1 + 10 && ws.Cells(r, 1).Text() != "Child")
            ++r;
        EXPECT_EQ(ws.Cells(r, 2).Text(), "PRT-P");
        EXPECT_EQ(ws.Cells(r + 1, 2).Text(), "Part P");
        // The main panel's links are formed from what stays.
        EXPECT_EQ(LinkOf(ws, 7, 2), sAnchor1);
    }
}

// ---- outline ----
// ---- outline ----

TEST_F(ViewsTest, MainPanelRowsTakeTheOutlineLevelOfTheirDepthUpToSeven) {
    std::vector<Obj> arr;
    const char* arrIds[] = {"L0", "L1", "L2", "L3", "L4", "L5", "L6", "L7", "L8", "L9"};
    for (int i = 0; i < 10; ++i)
        arr.push_back({i, arrIds[i], "A", "deep", i ? "1" : "", "10"});
    arr.push_back({1, "L1B", "A", "second child", "1", "20"});
    Items(arr);
    ctx->Options.Views = clsViews{false, false, false, true};
    ASSERT_TRUE(bld->FillExlFile());
    // Depth 0 none; depth d the level d + 1 as the application numbers it; 7 groups at most.
    const long arrWant[] = {1, 2, 3, 4, 5, 6, 7, 8, 8, 8, 2};
    for (long i = 0; i < 11; ++i)
        EXPECT_EQ(S().RowOutlineLevel(i + 6), arrWant[i]) << "object " << i;
    EXPECT_EQ(S().RowOutlineLevel(5), 1);
    EXPECT_EQ(S().RowOutlineLevel(17), 1);  // the empty row below the main panel
    EXPECT_EQ(S().OutlineSummaryRowOf(), xlSummaryAbove);
    EXPECT_EQ(SheetNames(), std::vector<std::string>{"Sheet1"});
    EXPECT_TRUE(LogLines().empty());
}

// ---- level sheet ----

TEST_F(ViewsTest, TheLevelSheetIsWorksheetTwoAsAddLevelSheetLaysItOut) {
    Example();
    ctx->Options.Views = clsViews{true, false, false, false};
    ASSERT_TRUE(bld->FillExlFile());
    ASSERT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Sheet2"}));
    xl::xlWorksheet& L = Book().Worksheets()(2);
    // Levels 0 to 2: the object column runs to column 2 + 2 = D.
    EXPECT_EQ(L.Cells(4, 1).Text(), "Level");
    EXPECT_EQ(L.Cells(4, 2).Text(), "Item ID");
    EXPECT_TRUE(MergedOn(L, 4, 2, 4));
    const std::vector<std::pair<long, std::string>> arrWant = {
        {0, "TOP"},   {1, "ASM-A"}, {2, "PRT-P"}, {1, "ASM-C"}, {2, "PRT-P"},
        {1, "ASM-D"}, {2, "PRT-Q"}, {1, "ASM-E"}, {2, "PRT-R"}};
    for (size_t i = 0; i < arrWant.size(); ++i) {
        const long r = static_cast<long>(i) + 5;
        const long nLevel = arrWant[i].first;
        SCOPED_TRACE(r);
        EXPECT_EQ(L.Cells(r, 1).Text(), std::to_string(nLevel));
        EXPECT_EQ(L.Cells(r, nLevel + 2).Text(), arrWant[i].second);
        if (nLevel > 1) {
            EXPECT_TRUE(MergedOn(L, r, 2, nLevel + 1));
        }
        if (nLevel + 2 < 4) {
            EXPECT_TRUE(MergedOn(L, r, nLevel + 2, 4));
        }
    }
    ExpectViewSheet(L, 13, 4, true);
    // Columns fitted to what they show outside the merged areas: the level column is narrower
    // than the 21 of the main sheet, the deepest column holds its part numbers.
    EXPECT_LT(L.ColumnWidthOf(1), 21);
    EXPECT_LT(L.ColumnWidthOf(4), 30);
}

// A deep tree indents every level by the same step: the columns of the indentation take one
// width, the widest the caption block above needs in them, up to the level sheet's own 21; the
// deepest level's column fits its objects.
TEST_F(ViewsTest, TheLevelSheetIndentsEveryLevelByOneStep) {
    std::vector<Obj> arr;
    const char* arrIds[] = {"L0", "L1", "L2", "L3", "L4", "L5", "L6", "L7", "L8", "A-LONGER-ID-9"};
    for (int i = 0; i < 10; ++i)
        arr.push_back({i, arrIds[i], "A", "deep", i ? "1" : "", "10"});
    Items(arr);
    ctx->Options.Views = clsViews{true, false, false, false};
    ASSERT_TRUE(bld->FillExlFile());
    xl::xlWorksheet& L = Book().Worksheets()(2);
    // Captions in A to D, levels 0 to 9: the tree runs to column 11 (K), the indentation is
    // B to J.
    long lWidestPx = 0;
    for (long r = 1; r <= 2; ++r) {
        for (long c = 2; c <= 4; ++c) {
            const xl::xlStyle st = L.EffectiveStyle(r, c);
            lWidestPx = std::max(lWidestPx, xl::detail::TextPixels(L.Cells(r, c).Text(),
                                                                   st.bBold ? 1 : 0, st.dFontSize));
        }
    }
    ASSERT_GT(lWidestPx, 0);
    const double dStep = std::min(21.0, std::ceil((lWidestPx + 4.0) / 7.0 * 4.0) / 4.0);
    for (long c = 2; c <= 10; ++c)
        EXPECT_DOUBLE_EQ(L.ColumnWidthOf(c), dStep) << c;
    EXPECT_GT(L.ColumnWidthOf(11), 3);
    EXPECT_NE(L.ColumnWidthOf(11), dStep);
    EXPECT_EQ(L.Cells(14, 11).Text(), "A-LONGER-ID-9");
    EXPECT_EQ(*L.AutoFilterArea(), (std::array<long, 4>{4, 1, 14, 11}));
}

// With continuation sheets already after the first, the level sheet still becomes worksheet 2
// and takes none of them.
TEST_F(ViewsTest, TheLevelSheetGoesBeforeTheMainSheetsContinuation) {
    Example();
    xl::xlWorksheet& oCont = Book().Worksheets().Add();
    oCont.Name("Sheet1 (2)");
    oCont.Cells(5, 1).Value("a block");
    ctx->Options.Views = clsViews{true, false, false, false};
    ASSERT_TRUE(bld->FillExlFile());
    ASSERT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Sheet3", "Sheet1 (2)"}));
    EXPECT_EQ(Book().Worksheets()(2).Cells(5, 2).Text(), "TOP");
    EXPECT_EQ(Book().Worksheets()(3).Cells(5, 1).Text(), "a block");
}

// ---- flattened list ----

TEST_F(ViewsTest, TotalsMultiplyDownEachPathAndAddUpOverAllPaths) {
    Example();
    const clsItemUses u = Access::CollectItemUses(*bld);
    std::map<std::string, const clsViewItem*> map;
    for (const clsViewItem& o : u.arrItems)
        map[o.sId] = &o;
    EXPECT_DOUBLE_EQ(map["PRT-P"]->dTotal, 2 * 4 + 3);
    EXPECT_EQ(map["PRT-P"]->arrUses.size(), 2u);
    EXPECT_DOUBLE_EQ(map["ASM-A"]->dTotal, 4);
    EXPECT_DOUBLE_EQ(map["ASM-D"]->dTotal, 1.5);
    EXPECT_DOUBLE_EQ(map["PRT-Q"]->dTotal, 3);
    EXPECT_TRUE(map["ASM-E"]->bUnknown);
    EXPECT_TRUE(map["PRT-R"]->bUnknown);  // below a quantity that is not a number
    EXPECT_FALSE(map["PRT-P"]->bUnknown);
    EXPECT_TRUE(map["TOP"]->arrUses.empty());
    EXPECT_EQ(u.arrNotNumbers, std::vector<std::string>{"ASM-E A: \"x\""});
}

TEST_F(ViewsTest, ARepeatedSubassemblyCountsEveryTimeItIsUsed) {
    // Sub-assembly S (3 parts) used twice under the top: 2 and 5 times; the part also sits
    // directly under the top once.
    Items({{0, "TOP", "A", "Top", "", ""},
           {1, "SUB", "A", "Sub", "2", "10"},
           {2, "PART", "A", "Part", "3", "10"},
           {1, "SUB", "A", "Sub", "5", "20"},
           {2, "PART", "A", "Part", "3", "10"},
           {1, "PART", "A", "Part", "1.5", "30"}});
    const clsItemUses u = Access::CollectItemUses(*bld);
    ASSERT_EQ(u.arrItems.size(), 3u);
    EXPECT_DOUBLE_EQ(u.arrItems[1].dTotal, 7);
    EXPECT_DOUBLE_EQ(u.arrItems[2].dTotal, 2 * 3 + 5 * 3 + 1.5);
    // The use of PART in SUB is one use, whichever copy of SUB it is listed under.
    EXPECT_EQ(u.arrItems[1].arrUses.size(), 2u);
    EXPECT_EQ(u.arrItems[2].arrUses.size(), 2u);
    EXPECT_TRUE(u.arrNotNumbers.empty());
}

TEST_F(ViewsTest, QuantitiesAreReadWithAPointOrACommaAndNothingElse) {
    struct Case {
        const char* s;
        bool bOk;
        double d;
    };
    const Case arr[] = {{"2", true, 2},        {"1.5", true, 1.5}, {"1,5", true, 1.5},
                        {" 4 ", true, 4},      {".5", true, 0.5},  {"-1", true, -1},
                        {"", false, 0},        {"x", false, 0},    {"2 EA", false, 0},
                        {"1.000,5", false, 0}, {"1e3", false, 0},  {",", false, 0}};
    for (const Case& c : arr) {
        double d = -7;
        EXPECT_EQ(ParseQuantity(c.s, d), c.bOk) << c.s;
        if (c.bOk) {
            EXPECT_DOUBLE_EQ(d, c.d) << c.s;
        }
    }
}

TEST_F(ViewsTest, TheFlattenedListHasOneRowPerUsedItemWithNumbersAndLinks) {
    Example();
    ctx->Options.Views = clsViews{false, true, false, false};
    ASSERT_TRUE(bld->FillExlFile());
    ASSERT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Flattened List"}));
    xl::xlWorksheet& F = Sheet("Flattened List");
    EXPECT_EQ(Row(F, 4, 5), (std::vector<std::string>{"Item ID", "Revision", "Description",
                                                      "Total Quantity", "Places Used"}));
    struct Want {
        const char* sId;
        const char* sRev;
        const char* sDesc;
        double dTotal;  // NAN: "?"
        long nUses;
        long lIndex;  // the object whose block the link leads to
    };
    const Want arr[] = {
        {"ASM-A", "A", "Assembly A", 4, 1, 1}, {"PRT-P", "A", "Part P", 11, 2, 2},
        {"ASM-C", "B", "Assembly C", 1, 1, 3}, {"ASM-D", "A", "Assembly D", 1.5, 1, 5},
        {"PRT-Q", "A", "Part Q", 3, 1, 6},     {"ASM-E", "A", "Assembly E", NAN, 1, 7},
        {"PRT-R", "A", "Part R", NAN, 1, 8}};
    long r = 5;
    for (const Want& w : arr) {
        SCOPED_TRACE(w.sId);
        EXPECT_EQ(F.Cells(r, 1).Text(), w.sId);
        EXPECT_EQ(F.Cells(r, 2).Text(), w.sRev);
        EXPECT_EQ(F.Cells(r, 3).Text(), w.sDesc);
        if (std::isnan(w.dTotal)) {
            EXPECT_EQ(F.Cells(r, 4).Text(), "?");
        } else {
            ASSERT_TRUE(IsNumber(F, r, 4));
            EXPECT_DOUBLE_EQ(std::get<double>(F.GetCell(r, 4)->vValue), w.dTotal);
        }
        ASSERT_TRUE(IsNumber(F, r, 5));
        EXPECT_DOUBLE_EQ(std::get<double>(F.GetCell(r, 5)->vValue), w.nUses);
        EXPECT_EQ(LinkOf(F, r, 1), BlockCell(w.lIndex));
        EXPECT_TRUE(F.EffectiveStyle(r, 1).bUnderline);
        ++r;
    }
    EXPECT_TRUE(F.Cells(r, 1).Text().empty());
    EXPECT_EQ(F.Hyperlinks().Count(), 7);
    ExpectViewSheet(F, 11, 5);
    EXPECT_TRUE(F.EffectiveStyle(5, 3).bWrapText);  // the description wraps past its width
    // Totals and counts stand right, "?" among them; the headings stay as they are.
    for (long r = 5; r <= 11; ++r) {
        EXPECT_EQ(F.EffectiveStyle(r, 4).lHorizontalAlignment, xlRight) << r;
        EXPECT_EQ(F.EffectiveStyle(r, 5).lHorizontalAlignment, xlRight) << r;
        EXPECT_NE(F.EffectiveStyle(r, 3).lHorizontalAlignment, xlRight) << r;
    }
    EXPECT_NE(F.EffectiveStyle(4, 4).lHorizontalAlignment, xlRight);
    // One line names the quantity that is not a number.
    const auto arrLog = LogLines();
    ASSERT_EQ(arrLog.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        arrLog[0], std::regex("Quantities that are not numbers \\(the totals that include them "
                              "show \"\\?\"\\): ASM-E A: \"x\". " +
                              std::string(testutil::kDateTimeRegex))))
        << arrLog[0];
}

TEST_F(ViewsTest, ManyQuantitiesThatAreNotNumbersMakeOneLineNamingTwenty) {
    std::vector<Obj> arr = {{0, "TOP", "A", "Top", "", ""}};
    std::vector<std::string> arrIds;
    for (int i = 0; i < 25; ++i)
        arrIds.push_back("P-" + std::to_string(i));
    for (int i = 0; i < 25; ++i)
        arr.push_back({1, arrIds[static_cast<size_t>(i)].c_str(), "A", "part", "", "10"});
    Items(arr);
    ctx->Options.Views = clsViews{false, true, true, false};
    ASSERT_TRUE(bld->FillExlFile());
    const auto arrLog = LogLines();
    ASSERT_EQ(arrLog.size(), 1u);
    std::string sWant =
        "Quantities that are not numbers (the totals that include them show \"?\"):";
    for (int i = 0; i < 20; ++i)
        sWant += (i ? ", P-" : " P-") + std::to_string(i) + " A: \"\"";
    sWant += " and 5 more. ";
    EXPECT_EQ(arrLog[0].substr(0, sWant.size()), sWant);
    // The where-used list shows such a quantity as the data file has it.
    EXPECT_EQ(Sheet("Where Used").Cells(5, 7).Text(), "");
    EXPECT_EQ(Sheet("Flattened List").Cells(5, 4).Text(), "?");
}

// ---- where used ----

TEST_F(ViewsTest, TheWhereUsedListHasEachItemWithEachParentThatUsesIt) {
    Example();
    ctx->Options.Views = clsViews{false, false, true, false};
    ASSERT_TRUE(bld->FillExlFile());
    ASSERT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Where Used"}));
    xl::xlWorksheet& W = Sheet("Where Used");
    EXPECT_EQ(Row(W, 4, 7),
              (std::vector<std::string>{"Item ID", "Revision", "Description", "Parent ID",
                                        "Parent Revision", "Find No", "Quantity"}));
    struct Want {
        std::vector<std::string> arrCells;
        long lItem, lParent;  // the objects whose blocks the two links lead to
    };
    const std::vector<Want> arr = {{{"ASM-A", "A", "Assembly A", "TOP", "A", "10", "4"}, 1, 0},
                                   {{"PRT-P", "A", "Part P", "ASM-A", "A", "10", "2"}, 2, 1},
                                   {{"PRT-P", "A", "Part P", "ASM-C", "B", "30", "3"}, 2, 3},
                                   {{"ASM-C", "B", "Assembly C", "TOP", "A", "20", "1"}, 3, 0},
                                   {{"ASM-D", "A", "Assembly D", "TOP", "A", "30", "1.5"}, 5, 0},
                                   {{"PRT-Q", "A", "Part Q", "ASM-D", "A", "10", "2"}, 6, 5},
                                   {{"ASM-E", "A", "Assembly E", "TOP", "A", "40", "x"}, 7, 0},
                                   {{"PRT-R", "A", "Part R", "ASM-E", "A", "10", "2"}, 8, 7}};
    for (size_t i = 0; i < arr.size(); ++i) {
        const long r = static_cast<long>(i) + 5;
        SCOPED_TRACE(r);
        EXPECT_EQ(Row(W, r, 7), arr[i].arrCells);
        EXPECT_EQ(LinkOf(W, r, 1), BlockCell(arr[i].lItem));
        EXPECT_EQ(LinkOf(W, r, 4), BlockCell(arr[i].lParent));
        // A quantity that is a number is one in the cell; "x" stays a text.
        EXPECT_EQ(IsNumber(W, r, 7), arr[i].arrCells[6] != "x");
    }
    EXPECT_TRUE(W.Cells(13, 1).Text().empty());
    EXPECT_EQ(W.EffectiveStyle(11, 7).lHorizontalAlignment, xlRight);  // "x" too
    ExpectViewSheet(W, 12, 7);
    EXPECT_TRUE(LogLines().empty());  // the totals are the flattened list's: no line here
}

// ---- names, and a view longer than its sheet ----

TEST_F(ViewsTest, SheetNamesFromTheSettingsAreMadeValidAndUnique) {
    Example();
    std::string s = ExampleSettings();
    auto fnReplace = [&](const std::string& a, const std::string& b) {
        s.replace(s.find(a), a.size(), b);
    };
    fnReplace("<SHEET_NAME>Flattened List</SHEET_NAME>",
              "<SHEET_NAME>'Parts: flat/list [all] of the product structure'</SHEET_NAME>");
    fnReplace("<SHEET_NAME>Where Used</SHEET_NAME>", "<SHEET_NAME>Sheet1</SHEET_NAME>");
    fnReplace("<PARENT_ID>Parent ID</PARENT_ID>", "<PARENT_ID>Used in</PARENT_ID>");
    ReplaceSettings(s);
    ctx->Options.Views = clsViews{false, true, true, false};
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Parts_ flat_list _all_ of the p",
                                                      "Sheet1 (2)"}));
    EXPECT_EQ(Sheet("Sheet1 (2)").Cells(4, 4).Text(), "Used in");
}

TEST_F(ViewsTest, ControlCharactersOfASheetNameBecomeUnderscores) {
    Example();
    std::string s = ExampleSettings();
    const std::string sOld = "<SHEET_NAME>Where Used</SHEET_NAME>";
    s.replace(s.find(sOld), sOld.size(), "<SHEET_NAME>Where&#9;Used&#1;</SHEET_NAME>");
    ReplaceSettings(s);
    ctx->Options.Views = clsViews{false, false, true, false};
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Where_Used_"}));
}

TEST_F(ViewsTest, ViewLabelsMissingFromTheSettingsFallBackToEnglish) {
    Example();
    ReplaceSettings(SettingsWithout(ExampleSettings(), "EXPORT_VIEWS"));
    ctx->Options.Views = clsViews{false, true, true, false};
    ASSERT_TRUE(bld->FillExlFile());
    EXPECT_EQ(SheetNames(), (std::vector<std::string>{"Sheet1", "Flattened List", "Where Used"}));
    EXPECT_EQ(Row(Sheet("Where Used"), 4, 7),
              (std::vector<std::string>{"Item ID", "Revision", "Description", "Parent ID",
                                        "Parent Revision", "Find No", "Quantity"}));
}

// A view is never longer than the main panel, which must fit its sheet; still, a list longer
// than a sheet continues on new sheets, as the property panel does, each with the caption
// block, the heading, its filter and links.
TEST_F(ViewsTest, AViewLongerThanItsSheetContinuesOnNewSheets) {
    Example();
    Book().SaveAs(tmp.File("views.xls"));  // the format's 65,536 rows
    ASSERT_EQ(S().MaxRows(), 65536);
    ASSERT_TRUE(bld->FillExlFile());
    clsItemUses u;
    const long n = 70000;
    const std::string sAnchor = bld->GetItemHyperlinkName(2);
    for (long i = 0; i < n; ++i) {
        clsViewItem o;
        o.sId = "P-" + std::to_string(i);
        o.sRev = "A";
        o.sDesc = "part";
        o.sAnchor = i % 2 ? sAnchor : "";  // every other one has a block to lead to
        o.dTotal = static_cast<double>(i);
        o.arrUses = {static_cast<size_t>(i)};
        u.arrItems.push_back(o);
        clsViewUse w;
        w.lItem = static_cast<size_t>(i);
        w.lParent = 0;
        w.sFindNo = "10";
        w.sQuantity = "1";
        u.arrUses.push_back(w);
    }
    ASSERT_TRUE(bld->FillFlatList(u));
    ASSERT_EQ(SheetNames(),
              (std::vector<std::string>{"Sheet1", "Flattened List", "Flattened List (2)"}));
    xl::xlWorksheet& F1 = Sheet("Flattened List");
    xl::xlWorksheet& F2 = Sheet("Flattened List (2)");
    const long nFirst = 65536 - 4;  // rows below the heading on the first sheet
    ExpectViewSheet(F1, 65536, 5);
    ExpectViewSheet(F2, 4 + (n - nFirst), 5);
    EXPECT_EQ(F1.Cells(65536, 1).Text(), "P-" + std::to_string(nFirst - 1));
    EXPECT_EQ(Row(F2, 4, 2), (std::vector<std::string>{"Item ID", "Revision"}));
    EXPECT_EQ(F2.Cells(5, 1).Text(), "P-" + std::to_string(nFirst));
    EXPECT_EQ(F2.Cells(4 + n - nFirst, 1).Text(), "P-" + std::to_string(n - 1));
    // Links on both sheets, to the block of the first sheet, where there is one.
    EXPECT_EQ(LinkOf(F1, 5, 1), "");
    EXPECT_EQ(LinkOf(F1, 6, 1), BlockCell(2));
    EXPECT_EQ(LinkOf(F2, 5, 1), nFirst % 2 ? BlockCell(2) : "");
    EXPECT_EQ(F1.Hyperlinks().Count() + F2.Hyperlinks().Count(), n / 2);
    // The log names the new sheet.
    const auto arrLog = LogLines();
    ASSERT_EQ(arrLog.size(), 1u);
    EXPECT_EQ(arrLog[0].rfind("The workbook continues on sheet 'Flattened List (2)'. ", 0), 0u);
}
