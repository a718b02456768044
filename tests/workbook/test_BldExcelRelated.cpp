// Related documents, folders and files; manufacturers, suppliers and the attribute grid.
#include "BldExcelTest.h"

using namespace wbtest;

namespace {

class RelatedTest : public BldExcelTest {
protected:
    const xl::xlHyperlinkEntry* LinkAt(long r, long c) {
        for (const auto& h : S().Hyperlinks().Items()) {
            if (h.lRow == r && h.lCol == c) return &h;
        }
        return nullptr;
    }
    void ExpectFileLine(long r, const std::string& sName) {
        SCOPED_TRACE("file row " + std::to_string(r));
        EXPECT_EQ(Text(r, 1), "File Name");
        EXPECT_TRUE(Bold(r, 1));
        EXPECT_EQ(Text(r, 2), sName);
        const xl::xlHyperlinkEntry* h = LinkAt(r, 2);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->Address(), sName);
        EXPECT_EQ(h->SubAddress(), "");
        EXPECT_EQ(h->ScreenTip(), "");
    }
    void ExpectFilesBand(long r) {
        SCOPED_TRACE("files band " + std::to_string(r));
        EXPECT_EQ(Text(r, 1), "Files of Document");
        EXPECT_TRUE(BoldItalic(r, 1));
        EXPECT_EQ(Style(r, 1).lFontColorIndex, 48);
        EXPECT_TRUE(Merged(r, 1, 6));
        EXPECT_TRUE(TopBorder(r, 1));
        EXPECT_TRUE(BottomBorder(r, 1));
    }
    XItemStruct ItemWithMakers(int16_t nFlag) {
        XItemStruct r = XItem(0, Head("P", "", "A"));
        r.MNFs = {Mnf("M-1", "Acme", "MPN-1", Arr({"Active", "US"})),
                  Mnf("M-2", "Bolt Co", "MPN-2", Arr({"Obsolete", "DE"}),
                      {Head("V-1", "Distri", "SPN-1", Arr({"2 weeks", "1.20"})),
                       Head("V-2", "Parts4U", "SPN-2", Arr({"1 week", "1.40"}))})};
        r.MNFCount = 1;
        r.MnfVndFlag = nFlag;
        return r;
    }
};

}  // namespace

// ---- documents, folders, files ----

TEST_F(RelatedTest, ADocumentWithoutFilesGetsNoFilesBand) {
    Prepare("Document", "STRUCTURE");
    long nRow = 3;
    ASSERT_TRUE(
        bld->FillDoc(Doc("D-1", "Drawing", "A"), nRow, "PROPERTY_LBL/DOCUMENT_LBL", 0, false));
    ExpectKeyRow(3, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    EXPECT_FALSE(TopBorder(3, 1));
    EXPECT_EQ(nRow, 4);
    ExpectEmptyRow(4);
    EXPECT_TRUE(S().Hyperlinks().Items().empty());
}

TEST_F(RelatedTest, FilesAreHyperlinksWithTheirAttributesAndAnEmptyRowEach) {
    Prepare("Document", "STRUCTURE");
    DocStruct d = Doc("D-1", "Drawing", "A", std::nullopt,
                      {File("C:\\docs\\d1.pdf", Arr({"PDF", "12 kB"})),
                       File("\\\\server\\share\\d1.dwg"), File("https://plm.example.com/f/3")});
    long nRow = 3;
    ASSERT_TRUE(bld->FillDoc(d, nRow, "PROPERTY_LBL/DOCUMENT_LBL", 0, false));
    ExpectKeyRow(3, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    // One row separates the band from the first file line.
    ExpectFilesBand(4);
    ExpectFileLine(5, "C:\\docs\\d1.pdf");
    EXPECT_EQ(Text(6, 1), "File Type");
    EXPECT_EQ(Text(6, 2), "PDF");
    EXPECT_EQ(Text(6, 3), "Size");
    EXPECT_EQ(Text(6, 4), "12 kB");
    ExpectEmptyRow(7);
    // A file without attributes still takes two rows.
    ExpectFileLine(8, "\\\\server\\share\\d1.dwg");
    ExpectEmptyRow(9);
    ExpectFileLine(10, "https://plm.example.com/f/3");
    ExpectEmptyRow(11);
    EXPECT_EQ(nRow, 12);
    EXPECT_EQ(S().Hyperlinks().Items().size(), 3u);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(RelatedTest, DocumentLineInDetailHasBordersFillHeadingAndAttributes) {
    Prepare("Document", "STRUCTURE");
    long nRow = 3;
    ASSERT_TRUE(bld->FillDoc(Doc("D-1", "Drawing", "A", Arr({"DWG", "Released", "jdoe", "x"})),
                             nRow, "PROPERTY_LBL/DOCUMENT_LBL", 15, true));
    EXPECT_EQ(Style(3, 1).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(3, 1));
    EXPECT_TRUE(BottomBorder(3, 6));
    EXPECT_FALSE(AnyMergeOnRow(3));
    ExpectListCaption(4, "Attributes");
    // Four values for three labels: the grid ends at the fourth with a logged error.
    EXPECT_EQ(Text(5, 1), "Type");
    EXPECT_EQ(Text(6, 1), "Status");
    EXPECT_EQ(Text(5, 3), "Author");
    EXPECT_TRUE(IsEmpty(6, 3));
    ExpectOneErrorLine("Subscript out of range", 9, "FillAttrByCol");
}

TEST_F(RelatedTest, AMissingSectionGivesEveryCaptionOfTheListItsBuiltInText) {
    Prepare("Document", "STRUCTURE");
    ReplaceSettings(SettingsWithout(ExampleSettings(), "DOCUMENT_LBL"));
    XDocStruct d = XDoc(0, Doc("D-0", "", "A"));
    d.Docs = {Doc("D-1", "Drawing", "A", std::nullopt, {File("a.txt")})};
    d.DocCount = 0;
    M().XDocs = {d};
    M().ObjCount = 0;
    long nRow = 2;
    ASSERT_TRUE(bld->FillDocListForDoc(0, nRow));
    ExpectListCaption(2, "Reference Documents");
    ExpectKeyRow(3, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    ExpectFilesBand(4);
    ExpectFileLine(5, "a.txt");
    EXPECT_EQ(nRow, 7);

    Prepare("Item", "STRUCTURE");
    ReplaceSettings(SettingsWithout(ExampleSettings(), "FOLDER_LBL"));
    XItemStruct r = XItem(0, Head("P", "", "A"));
    r.Folders = {Head("F-1", "Projects", "1")};
    r.FolderCount = 0;
    M().XItems = {r};
    M().ObjCount = 0;
    nRow = 2;
    ASSERT_TRUE(bld->FillFolderListForItem(0, nRow));
    ExpectListCaption(2, "Folders");
    ExpectKeyRow(3, "FLD ID", "F-1", "Revision", "1", "Description", "Projects");
    EXPECT_EQ(nRow, 4);
}

TEST_F(RelatedTest, AnEmptyListWritesItsCaptionBandAndAdvancesOneRow) {
    Prepare("Document", "STRUCTURE");
    M().XDocs = {XDoc(0, Doc("D-0", "", "A"))};
    M().ObjCount = 0;
    long nRow = 2;
    ASSERT_TRUE(bld->FillDocListForDoc(0, nRow));
    EXPECT_EQ(nRow, 3);
    ExpectListCaption(2, "Reference Documents");
    ASSERT_TRUE(bld->FillFolderListForDoc(0, nRow));
    EXPECT_EQ(nRow, 4);
    ExpectListCaption(3, "Folders");
}

TEST_F(RelatedTest, FolderListsOfAFolderAndADocument) {
    Prepare("Folder", "STRUCTURE");
    XFoldStruct f = XFolder(0, Head("F-0", "", ""));
    f.Folders = {Head("F-1", "Archive", "2", Arr({"jdoe", "2021"})), Head("F-2", "Old", "1")};
    f.FolderCount = 1;
    M().XFolders = {f};
    M().ObjCount = 0;
    long nRow = 2;
    ASSERT_TRUE(bld->FillFolderListForFolder(0, nRow));
    ExpectListCaption(2, "Reference Folders");
    ExpectKeyRow(3, "Folder ID", "F-1", "Revision", "2", "Description", "Archive");
    EXPECT_EQ(Text(4, 1), "Owner");
    EXPECT_EQ(Text(4, 2), "jdoe");
    ExpectKeyRow(5, "Folder ID", "F-2", "Revision", "1", "Description", "Old");
    EXPECT_EQ(nRow, 6);
}

TEST_F(RelatedTest, FolderLineInDetail) {
    Prepare("Folder", "STRUCTURE");
    long nRow = 2;
    ASSERT_TRUE(bld->FillFolder(Head("F-1", "Archive", "2", Arr({"jdoe"})), nRow,
                                "PROPERTY_LBL/FOLDER_LBL", 15, true));
    EXPECT_EQ(Style(2, 1).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(2, 1));
    ExpectListCaption(3, "Attributes");
    EXPECT_EQ(Text(4, 1), "Owner");
    EXPECT_EQ(nRow, 5);
}

TEST_F(RelatedTest, AFileCountBeyondTheArrayIsLogged) {
    long nRow = 2;
    EXPECT_FALSE(bld->FillFiles({File("a")}, 1, nRow));
    ExpectFileLine(2, "a");
    EXPECT_EQ(nRow, 4);
    ExpectOneErrorLine("Subscript out of range", 9, "FillFiles");
}

TEST_F(RelatedTest, ListErrorsAreLoggedUnderTheirNames) {
    long nRow = 2;
    EXPECT_FALSE(bld->FillDocListForDoc(0, nRow));
    EXPECT_FALSE(bld->FillFolderListForItem(4, nRow));
    EXPECT_FALSE(bld->FillFolderListForDoc(0, nRow));
    EXPECT_FALSE(bld->FillFolderListForFolder(0, nRow));
    EXPECT_EQ(nRow, 2);
    ExpectErrorLines("Subscript out of range", 9,
                     {"FillDocListForDoc", "FillFolderListForItem", "FillFolderListForDoc",
                      "FillFolderListForFolder"});
}

// ---- attribute grid ----

TEST_F(RelatedTest, GridWithNoAttributesWritesNothing) {
    long nRow = 9;
    ASSERT_TRUE(bld->FillAttrByCol(Arr({}), ctx->Labels.ItemAttrLabels, -1, nRow));
    EXPECT_EQ(nRow, 9);
    ExpectEmptyRow(9);
}

TEST_F(RelatedTest, GridOfThreeIsOneRow) {
    long nRow = 9;
    ASSERT_TRUE(bld->FillAttrByCol(Arr({"a", "b", "c"}), ctx->Labels.ItemAttrLabels, 2, nRow));
    EXPECT_EQ(nRow, 10);
    EXPECT_EQ(Text(9, 1), "Status");
    EXPECT_TRUE(Bold(9, 1));
    EXPECT_EQ(Text(9, 2), "a");
    EXPECT_TRUE(Plain(9, 2));
    EXPECT_EQ(Text(9, 3), "Owner");
    EXPECT_TRUE(Bold(9, 3));
    EXPECT_EQ(Text(9, 4), "b");
    EXPECT_EQ(Text(9, 5), "Unit");
    EXPECT_TRUE(Bold(9, 5));
    EXPECT_EQ(Text(9, 6), "c");
    ExpectEmptyRow(10);
}

TEST_F(RelatedTest, GridOfFiveFillsDownTheColumnsFirst) {
    long nRow = 9;
    ASSERT_TRUE(
        bld->FillAttrByCol(Arr({"a", "b", "c", "d", "e"}), ctx->Labels.ItemAttrLabels, 4, nRow));
    EXPECT_EQ(nRow, 11);
    EXPECT_EQ(Text(9, 2), "a");
    EXPECT_EQ(Text(10, 2), "b");
    EXPECT_EQ(Text(9, 4), "c");
    EXPECT_EQ(Text(10, 4), "d");
    EXPECT_EQ(Text(9, 5), "Material");
    EXPECT_EQ(Text(9, 6), "e");
    EXPECT_TRUE(IsEmpty(10, 5));
    EXPECT_TRUE(IsEmpty(10, 6));
}

TEST_F(RelatedTest, GridOfSevenHasThreeRowsAndOnePairInTheLastColumns) {
    clsVarTable t;
    t.ReDim(1, 6);
    for (long i = 0; i < 7; ++i)
        t.Item(0, i) = "L" + std::to_string(i);
    long nRow = 9;
    ASSERT_TRUE(bld->FillAttrByCol(Arr({"v0", "v1", "v2", "v3", "v4", "v5", "v6"}), t, 6, nRow));
    EXPECT_EQ(nRow, 12);
    for (long i = 0; i < 3; ++i) {
        EXPECT_EQ(Text(9 + i, 1), "L" + std::to_string(i));
        EXPECT_EQ(Text(9 + i, 2), "v" + std::to_string(i));
        EXPECT_EQ(Text(9 + i, 3), "L" + std::to_string(i + 3));
        EXPECT_EQ(Text(9 + i, 4), "v" + std::to_string(i + 3));
    }
    EXPECT_EQ(Text(9, 5), "L6");
    EXPECT_EQ(Text(9, 6), "v6");
    EXPECT_TRUE(IsEmpty(10, 5));
    EXPECT_TRUE(IsEmpty(11, 6));
}

TEST_F(RelatedTest, ALabelTableShorterThanTheValuesEndsTheGridWithALoggedError) {
    clsVarTable t;
    t.ReDim(1, 1);
    t.Item(0, 0) = "First";
    t.Item(0, 1) = "Second";
    long nRow = 9;
    EXPECT_FALSE(bld->FillAttrByCol(Arr({"a", "b", "c"}), t, 2, nRow));
    EXPECT_EQ(Text(9, 1), "First");
    EXPECT_EQ(Text(9, 3), "Second");
    EXPECT_EQ(Text(9, 4), "b");
    EXPECT_TRUE(IsEmpty(9, 5));
    EXPECT_TRUE(IsEmpty(9, 6));
    // The running row keeps the value reached.
    EXPECT_EQ(nRow, 9);
    auto arr = LogLines();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(arr[0], std::regex("Run-time error: Subscript out of range 9 " +
                                            std::string(testutil::kDateTimeRegex) +
                                            " in orvExportExcel:clsBldExcel\\[FillAttrByCol\\]")))
        << arr[0];
}

TEST_F(RelatedTest, AnEmptyLabelTableIsATypeMismatch) {
    clsVarTable t;
    long nRow = 9;
    EXPECT_FALSE(bld->FillAttrByCol(Arr({"a"}), t, 0, nRow));
    ExpectOneErrorLine("Type mismatch", 13, "FillAttrByCol");
}

// ---- manufacturers and suppliers ----

TEST_F(RelatedTest, NoManufacturerAndNoSupplierGivesNoListAtAll) {
    M().XItems = {XItem(0, Head("P", "", "A"))};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    EXPECT_EQ(nRow, 5);
    ExpectEmptyRow(5);
    EXPECT_TRUE(S().MergedAreas().empty());
}

TEST_F(RelatedTest, FlagOneListsThePlainManufacturersOnly) {
    M().XItems = {ItemWithMakers(1)};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    ExpectListCaption(5, "Manufacturers");
    ExpectKeyRow(6, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    ExpectKeyRow(7, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    EXPECT_EQ(nRow, 8);
}

TEST_F(RelatedTest, FlagTwoListsManufacturersWithAttributesAndSupplierSubLists) {
    M().XItems = {ItemWithMakers(2)};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    ExpectListCaption(5, "Manufacturers and their Suppliers");
    ExpectKeyRow(6, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    EXPECT_EQ(Text(7, 1), "Status");
    EXPECT_EQ(Text(7, 2), "Active");
    EXPECT_EQ(Text(7, 3), "Country");
    EXPECT_EQ(Text(7, 4), "US");
    ExpectKeyRow(8, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    EXPECT_EQ(Text(9, 2), "Obsolete");
    // The supplier sub-list heading: A..B merged, grey, bold italic, no borders, nothing beside.
    EXPECT_EQ(Text(10, 1), "Suppliers of Manufacturer");
    EXPECT_TRUE(BoldItalic(10, 1));
    EXPECT_TRUE(Merged(10, 1, 2));
    EXPECT_EQ(Style(10, 1).lFontColorIndex, 48);
    EXPECT_FALSE(TopBorder(10, 1));
    EXPECT_FALSE(BottomBorder(10, 1));
    for (long c = 3; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(10, c));
    // The suppliers start on the next row, each with its attributes.
    ExpectKeyRow(11, "Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri");
    EXPECT_EQ(Text(12, 1), "Lead Time");
    EXPECT_EQ(Text(12, 2), "2 weeks");
    EXPECT_EQ(Text(12, 3), "Price");
    EXPECT_EQ(Text(12, 4), "1.20");
    ExpectKeyRow(13, "Sup. ID", "V-2", "SPN", "SPN-2", "Name", "Parts4U");
    EXPECT_EQ(Text(14, 2), "1 week");
    EXPECT_EQ(nRow, 15);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(RelatedTest, FlagThreeListsEachManufacturerTwiceAroundTheSuppliers) {
    XItemStruct r = ItemWithMakers(3);
    r.VNDs = {Head("V-9", "Direct", "SPN-9", Arr({"3 days", "0.90"}))};
    r.VNDCount = 0;
    M().XItems = {r};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    ExpectListCaption(5, "Manufacturers");
    ExpectKeyRow(6, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    ExpectKeyRow(7, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    ExpectListCaption(8, "Suppliers");
    ExpectKeyRow(9, "Sup. ID", "V-9", "SPN", "SPN-9", "Name", "Direct");
    EXPECT_EQ(Text(10, 2), "3 days");
    ExpectListCaption(11, "Manufacturers and their Suppliers");
    ExpectKeyRow(12, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    ExpectKeyRow(14, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    EXPECT_EQ(Text(16, 1), "Suppliers of Manufacturer");
    EXPECT_EQ(nRow, 21);
}

TEST_F(RelatedTest, SuppliersWithoutManufacturers) {
    XItemStruct r = XItem(0, Head("P", "", "A"));
    r.VNDs = {Head("V-9", "Direct", "SPN-9")};
    r.VNDCount = 0;
    M().XItems = {r};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    ExpectListCaption(5, "Suppliers");
    ExpectKeyRow(6, "Sup. ID", "V-9", "SPN", "SPN-9", "Name", "Direct");
    EXPECT_EQ(nRow, 7);
}

TEST_F(RelatedTest, MakerCaptionsFallBackButTheCombinedCaptionsHaveNone) {
    std::string s = SettingsWithout(ExampleSettings(), "MNF_VND_LBL");
    s = SettingsWithout(s, "MNF_CAP_LBL");
    s = SettingsWithout(s, "VND_CAP_LBL");
    ReplaceSettings(s);
    M().XItems = {ItemWithMakers(2)};
    M().ObjCount = 0;
    long nRow = 5;
    ASSERT_TRUE(bld->FillManufacturAndSupp(0, nRow));
    EXPECT_TRUE(IsEmpty(5, 1));
    EXPECT_TRUE(Merged(5, 1, 6));
    ExpectKeyRow(6, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    EXPECT_TRUE(IsEmpty(10, 1));
    EXPECT_TRUE(Merged(10, 1, 2));
    ExpectKeyRow(11, "Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri");
}

TEST_F(RelatedTest, MakerErrorsAreLoggedUnderTheirNames) {
    long nRow = 5;
    EXPECT_FALSE(bld->FillManufacturAndSupp(2, nRow));
    EXPECT_FALSE(bld->FillManufactur({}, 0, nRow, false));
    EXPECT_FALSE(bld->FillSuppliers({}, 0, nRow, true));
    EXPECT_EQ(nRow, 5);
    ExpectErrorLines("Subscript out of range", 9,
                     {"FillManufacturAndSupp", "FillManufactur", "FillSuppliers"});
}

TEST_F(RelatedTest, AFileWithoutANameKeepsItsLinesAndGetsNoLink) {
    long nRow = 2;
    ASSERT_TRUE(bld->FillFiles({File(""), File("b.pdf")}, 1, nRow));
    EXPECT_EQ(Text(2, 1), "File Name");
    EXPECT_EQ(Text(2, 2), "");
    ExpectFileLine(4, "b.pdf");
    EXPECT_EQ(nRow, 6);
    const auto& arrLinks = S().Hyperlinks().Items();
    ASSERT_EQ(arrLinks.size(), 1u);
    EXPECT_EQ(arrLinks[0].lRow, 4);
    EXPECT_TRUE(LogLines().empty());
}
