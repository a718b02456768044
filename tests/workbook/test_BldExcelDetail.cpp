// Detail blocks (items, documents, folders), the related-object lists of a block, and the
// part list with local alternates.
#include "BldExcelTest.h"

using namespace wbtest;

namespace {

class DetailTest : public BldExcelTest {
protected:
    XItemStruct Child(const std::string& sId, const std::string& sFindNo, const std::string& sQty,
                      const std::string& sRefDes, std::vector<std::string> arrAlts = {}) {
        XItemStruct r = XItem(1, Head(sId, sId + " desc", "A"));
        r.PSAttr2 = sFindNo;
        r.PSAttr1 = sQty;
        r.RefDes = sRefDes;
        for (const auto& s : arrAlts)
            r.LAIs.push_back(Head(s, "", ""));
        r.LAICount = static_cast<int32_t>(r.LAIs.size()) - 1;
        return r;
    }
    // The part-list rows of one child at row r.
    void ExpectChildRows(long r, const std::string& sChildCaption, const XItemStruct& c) {
        SCOPED_TRACE("child rows at " + std::to_string(r));
        ExpectKeyRow(r, sChildCaption, c.Head.Key1, "Find No", c.PSAttr2, "Quantity", c.PSAttr1);
        EXPECT_EQ(Text(r + 1, 1), "Description");
        EXPECT_TRUE(Bold(r + 1, 1));
        EXPECT_EQ(Text(r + 1, 2), c.Head.Key2);
        EXPECT_EQ(Text(r + 1, 3), "Reference Designators");
        EXPECT_TRUE(Bold(r + 1, 3));
        EXPECT_EQ(Text(r + 1, 4), c.RefDes);
        EXPECT_TRUE(Merged(r + 1, 4, 6));
        EXPECT_FALSE(TopBorder(r + 1, 4));
        EXPECT_FALSE(BottomBorder(r + 1, 4));
    }
};

}  // namespace

// ---- item blocks ----

TEST_F(DetailTest, AnItemWithoutRelationsGetsHeaderAttributesEmptyRowAndManufacturers) {
    XItemStruct r = XItem(0, Head("P-100", "Top assembly", "B", Arr({"Released", "jdoe"})));
    r.MNFs = {Mnf("M-1", "Acme", "MPN-1")};
    r.MNFCount = 0;
    r.MnfVndFlag = 1;
    M().XItems = {r};
    M().ObjCount = 0;
    long nRow = 20;
    bld->FillItemDetail(0, nRow);

    ASSERT_EQ(S().Names().Items().size(), 1u);
    EXPECT_EQ(S().Names().Items()[0].sName, "ID_P_45100_B_0");
    EXPECT_EQ(S().Names().Items()[0].lRow1, 20);
    EXPECT_EQ(S().Names().Items()[0].lRow2, 20);

    ExpectKeyRow(20, "Item ID", "P-100", "Revision", "B", "Description", "Top assembly");
    EXPECT_EQ(Style(20, 1).lInteriorColorIndex, 15);
    EXPECT_EQ(Style(20, 6).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(20, 1));
    EXPECT_TRUE(BottomBorder(20, 6));
    EXPECT_FALSE(AnyMergeOnRow(20));
    ExpectListCaption(21, "Attributes");
    EXPECT_EQ(Text(22, 1), "Status");
    EXPECT_EQ(Text(22, 2), "Released");
    EXPECT_EQ(Text(22, 3), "Owner");
    EXPECT_EQ(Text(22, 4), "jdoe");
    ExpectEmptyRow(23);
    ExpectListCaption(24, "Manufacturers");
    ExpectKeyRow(25, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    EXPECT_EQ(nRow, 26);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(DetailTest, AnItemWithoutAttributeValuesStillGetsTheHeadingAndTheEmptyRow) {
    M().XItems = {XItem(0, Head("P", "d", "r"))};
    M().ObjCount = 0;
    long nRow = 3;
    bld->FillItemDetail(0, nRow);
    ExpectKeyRow(3, "Item ID", "P", "Revision", "r", "Description", "d");
    ExpectListCaption(4, "Attributes");
    ExpectEmptyRow(5);
    EXPECT_EQ(nRow, 6);
}

TEST_F(DetailTest, CollectionGivesNoBlockToRecordsBelowLevelZero) {
    Prepare("Item", "COLLECTION");
    M().XItems = {XItem(0, Head("A", "", "1")), XItem(1, Head("B", "", "1")),
                  XItem(0, Head("C", "", "1"))};
    M().ObjCount = 2;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    const auto& arr = S().Names().Items();
    ASSERT_EQ(arr.size(), 2u);
    EXPECT_EQ(arr[0].sName, "ID_A_1_0");
    EXPECT_EQ(arr[0].lRow1, 10);
    EXPECT_EQ(arr[1].sName, "ID_C_1_2");
    EXPECT_EQ(arr[1].lRow1, 13);
    EXPECT_EQ(Text(13, 2), "C");
    EXPECT_EQ(nRow, 16);
}

TEST_F(DetailTest, StructureGivesEveryRecordABlock) {
    M().XItems = {XItem(0, Head("A", "", "1")), XItem(1, Head("B", "", "1"))};
    M().ObjCount = 1;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    ASSERT_EQ(S().Names().Items().size(), 2u);
    EXPECT_EQ(S().Names().Items()[1].sName, "ID_B_1_1");
    EXPECT_EQ(S().Names().Items()[1].lRow1, 13);
}

TEST_F(DetailTest, NoObjectsWriteNoBlocks) {
    M().ObjCount = -1;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    bld->FillDocsDetail(nRow);
    bld->FillFoldersDetail(nRow);
    EXPECT_EQ(nRow, 10);
    EXPECT_TRUE(S().Names().Items().empty());
}

TEST_F(DetailTest, ARelatedItemLineHasNoFillNoBordersAndNoHeadingOutsideAnItemExport) {
    Prepare("Document", "STRUCTURE");
    long nRow = 5;
    bld->FillItem(Head("I-1", "Screw", "C", Arr({"s", "o", "u", "w"})), nRow, 0, false);
    ExpectKeyRow(5, "Item ID", "I-1", "Revision", "C", "Description", "Screw");
    EXPECT_EQ(Style(5, 1).lInteriorColorIndex, 0);
    EXPECT_FALSE(TopBorder(5, 1));
    EXPECT_FALSE(BottomBorder(5, 1));
    // Attributes without a heading: two rows, then the empty row.
    EXPECT_EQ(Text(6, 1), "Status");
    EXPECT_EQ(Text(7, 1), "Owner");
    EXPECT_EQ(Text(6, 3), "Unit");
    EXPECT_EQ(Text(7, 3), "Weight");
    ExpectEmptyRow(8);
    EXPECT_EQ(nRow, 9);
}

TEST_F(DetailTest, ItemCaptionsFallBackWithoutTheirSection) {
    Prepare("Document", "STRUCTURE");
    ReplaceSettings(SettingsWithout(ExampleSettings(), "ITEM_CAP_LBL"));
    long nRow = 5;
    bld->FillItem(Head("I-1", "Screw", "C"), nRow, 0, false);
    ExpectKeyRow(5, "ID", "I-1", "Revision", "C", "Description", "Screw");
}

// ---- document and folder blocks ----

TEST_F(DetailTest, DocumentBlockOrderItemsFoldersChildrenReferences) {
    Prepare("Document", "STRUCTURE");
    XDocStruct d = XDoc(0, Doc("D-1", "Drawing", "A", Arr({"DWG", "Released", "jdoe"})));
    d.Items = {Head("I-1", "Screw", "C")};
    d.ItemCount = 0;
    d.Folders = {Head("F-1", "Projects", "1")};
    d.FolderCount = 0;
    d.Docs = {Doc("D-9", "Spec", "B")};
    d.DocCount = 0;
    d.Children = "2!1!";
    M().XDocs = {d, XDoc(1, Doc("D-2", "Sheet 2", "A")), XDoc(1, Doc("D-3", "Sheet 3", "A"))};
    M().ObjCount = 2;
    long nRow = 12;
    bld->FillDocDetail(0, nRow);

    EXPECT_EQ(S().Names().Items()[0].sName, "ID_D_451_A_0");
    EXPECT_EQ(S().Names().Items()[0].lRow1, 12);
    ExpectKeyRow(12, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    EXPECT_EQ(Style(12, 1).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(12, 3));
    EXPECT_TRUE(BottomBorder(12, 3));
    EXPECT_FALSE(AnyMergeOnRow(12));
    ExpectListCaption(13, "Attributes");
    EXPECT_EQ(Text(14, 1), "Type");
    EXPECT_EQ(Text(14, 2), "DWG");
    EXPECT_EQ(Text(14, 5), "Author");
    EXPECT_EQ(Text(14, 6), "jdoe");
    // Related items.
    ExpectListCaption(15, "Items");
    ExpectKeyRow(16, "Item ID", "I-1", "Revision", "C", "Description", "Screw");
    ExpectEmptyRow(17);
    // Related folders.
    ExpectListCaption(18, "Folders");
    ExpectKeyRow(19, "Folder ID", "F-1", "Revision", "1", "Description", "Projects");
    // Child documents, in the order of the child list.
    ExpectListCaption(20, "Child Documents");
    ExpectKeyRow(21, "Doc. ID", "D-3", "Revision", "A", "Description", "Sheet 3");
    EXPECT_EQ(Style(21, 1).lInteriorColorIndex, 0);
    EXPECT_FALSE(TopBorder(21, 1));
    ExpectKeyRow(22, "Doc. ID", "D-2", "Revision", "A", "Description", "Sheet 2");
    // Reference documents.
    ExpectListCaption(23, "Reference Documents");
    ExpectKeyRow(24, "Doc. ID", "D-9", "Revision", "B", "Description", "Spec");
    EXPECT_EQ(nRow, 25);
    // The model's child list is left as it was.
    EXPECT_EQ(M().XDocs[0].Children, "2!1!");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(DetailTest, FolderBlockOrderChildrenItemsDocumentsReferences) {
    Prepare("Folder", "STRUCTURE");
    XFoldStruct f = XFolder(0, Head("F-1", "Projects", "1", Arr({"jdoe", "2020"})));
    f.Children = "1!";
    f.Items = {Head("I-1", "Screw", "C")};
    f.ItemCount = 0;
    f.Docs = {Doc("D-1", "Drawing", "A")};
    f.DocCount = 0;
    f.Folders = {Head("F-7", "Archive", "3")};
    f.FolderCount = 0;
    M().XFolders = {f, XFolder(1, Head("F-2", "Sub", "1"))};
    M().ObjCount = 1;
    long nRow = 12;
    bld->FillFolderDetail(0, nRow);

    EXPECT_EQ(S().Names().Items()[0].sName, "ID_F_451_1_0");
    ExpectKeyRow(12, "Folder ID", "F-1", "Revision", "1", "Description", "Projects");
    EXPECT_EQ(Style(12, 2).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(12, 2));
    ExpectListCaption(13, "Attributes");
    EXPECT_EQ(Text(14, 1), "Owner");
    EXPECT_EQ(Text(14, 2), "jdoe");
    EXPECT_EQ(Text(14, 3), "Created");
    ExpectListCaption(15, "Child Folders");
    ExpectKeyRow(16, "Folder ID", "F-2", "Revision", "1", "Description", "Sub");
    ExpectListCaption(17, "Items");
    ExpectKeyRow(18, "Item ID", "I-1", "Revision", "C", "Description", "Screw");
    ExpectEmptyRow(19);
    ExpectListCaption(20, "Documents");
    ExpectKeyRow(21, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    ExpectListCaption(22, "Reference Folders");
    ExpectKeyRow(23, "Folder ID", "F-7", "Revision", "3", "Description", "Archive");
    EXPECT_EQ(nRow, 24);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(DetailTest, AChildKeyThatNamesNoRecordEndsTheChildListWithALoggedError) {
    Prepare("Document", "STRUCTURE");
    M().XDocs = {XDoc(0, Doc("D-1", "", "A")), XDoc(1, Doc("D-2", "", "A"))};
    M().ObjCount = 1;
    std::string sChildren = "1!7!1!";
    long nRow = 4;
    bld->FillDocChild(sChildren, nRow);
    ExpectListCaption(4, "Child Documents");
    EXPECT_EQ(Text(5, 2), "D-2");
    EXPECT_EQ(nRow, 6);
    EXPECT_EQ(sChildren, "1!");
    ExpectOneErrorLine("Subscript out of range", 9, "FillDocChild");
}

TEST_F(DetailTest, FolderChildListConsumesTheKeysInOrder) {
    Prepare("Folder", "STRUCTURE");
    M().XFolders = {XFolder(0, Head("F-0", "", "")), XFolder(1, Head("F-1", "", "")),
                    XFolder(1, Head("F-2", "", ""))};
    M().ObjCount = 2;
    std::string sChildren = "1!2!";
    long nRow = 4;
    bld->FillFolderChild(sChildren, nRow);
    EXPECT_TRUE(sChildren.empty());
    EXPECT_EQ(Text(5, 2), "F-1");
    EXPECT_EQ(Text(6, 2), "F-2");
    EXPECT_EQ(nRow, 7);
}

TEST_F(DetailTest, ItemAndDocumentListsOfAFolderWithoutEntriesWriteTheirCaptionOnly) {
    Prepare("Folder", "STRUCTURE");
    M().XFolders = {XFolder(0, Head("F-0", "", ""))};
    M().ObjCount = 0;
    long nRow = 4;
    bld->FillItemListForFolder(0, nRow);
    bld->FillDocListForFolder(0, nRow);
    ExpectListCaption(4, "Items");
    ExpectListCaption(5, "Documents");
    EXPECT_EQ(nRow, 6);
}

TEST_F(DetailTest, AListOfARecordOutsideTheArrayLogsItsOwnName) {
    Prepare("Document", "STRUCTURE");
    long nRow = 4;
    bld->FillItemListForDoc(3, nRow);
    EXPECT_EQ(nRow, 4);
    ExpectOneErrorLine("Subscript out of range", 9, "FillItemListForDoc");
}

// ---- part list ----

TEST_F(DetailTest, OneChildWritesTheCaptionAndTwoRows) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "1!";
    M().XItems = {p, Child("C-1", "0010", "2.50", "R1-R3,R7")};
    M().ObjCount = 1;
    long nRow = 30;
    bld->FillChild(0, nRow);
    ExpectListCaption(30, "Part List");
    ExpectChildRows(31, "Child", M().XItems[1]);
    EXPECT_EQ(nRow, 33);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(DetailTest, FindNumbersAndQuantitiesStayTextAsExported) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "1!";
    M().XItems = {p, Child("C-1", "0010", "1,50", "")};
    M().ObjCount = 1;
    ASSERT_TRUE(bld->FillExlFile());
    // Block of item 0 starts on row 10: header, attributes heading, empty row, part list.
    long r = 14;
    EXPECT_EQ(Text(r, 1), "Child");
    EXPECT_EQ(Text(r, 4), "0010");
    EXPECT_EQ(Text(r, 6), "1,50");
    EXPECT_FALSE(HasNumber(r, 4));
    EXPECT_FALSE(HasNumber(r, 6));
    EXPECT_EQ(Style(r, 4).sNumberFormat, "@");
}

TEST_F(DetailTest, ChildrenComeInTheOrderOfTheChildList) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "3!1!2!";
    M().XItems = {p, Child("C-1", "10", "1", ""), Child("C-2", "20", "1", ""),
                  Child("C-3", "30", "1", "")};
    M().ObjCount = 3;
    long nRow = 1;
    bld->FillChild(0, nRow);
    EXPECT_EQ(Text(2, 2), "C-3");
    EXPECT_EQ(Text(4, 2), "C-1");
    EXPECT_EQ(Text(6, 2), "C-2");
    EXPECT_EQ(nRow, 8);
    EXPECT_EQ(M().XItems[0].Children, "3!1!2!");
}

TEST_F(DetailTest, AChildWithAlternatesAddsHeadingOneRowEachAndAnEmptyRow) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "1!2!";
    M().XItems = {p, Child("C-1", "10", "4", "R1", {"ALT-1", "ALT-2"}),
                  Child("C-2", "20", "1", "")};
    M().ObjCount = 2;
    long nRow = 1;
    bld->FillChild(0, nRow);
    ExpectListCaption(1, "Part List");
    ExpectChildRows(2, "Child", M().XItems[1]);
    // Alternates heading: A..B merged, grey, bold italic; the child's ID in grey beside it.
    EXPECT_EQ(Text(4, 1), "Local Alternative Items of Child");
    EXPECT_TRUE(BoldItalic(4, 1));
    EXPECT_TRUE(Merged(4, 1, 2));
    EXPECT_EQ(Style(4, 1).lFontColorIndex, 48);
    EXPECT_FALSE(TopBorder(4, 1));
    EXPECT_FALSE(BottomBorder(4, 1));
    EXPECT_EQ(Text(4, 3), "C-1");
    EXPECT_EQ(Style(4, 3).lFontColorIndex, 48);
    EXPECT_FALSE(Style(4, 3).bBold);
    EXPECT_EQ(Text(5, 1), "Alternate ID");
    EXPECT_TRUE(Bold(5, 1));
    EXPECT_EQ(Text(5, 2), "ALT-1");
    EXPECT_EQ(Text(6, 1), "Alternate ID");
    EXPECT_EQ(Text(6, 2), "ALT-2");
    ExpectEmptyRow(7);
    // The next child follows the empty row.
    ExpectChildRows(8, "Child", M().XItems[2]);
    EXPECT_EQ(nRow, 10);
}

TEST_F(DetailTest, ChildLabelsAreReadFromTheSectionCurrentAtTheTime) {
    std::string s = ExampleSettings();
    auto Replace = [&](const std::string& sFrom, const std::string& sTo, size_t nFrom) {
        size_t p = s.find(sFrom, nFrom);
        EXPECT_NE(p, std::string::npos);
        s.replace(p, sFrom.size(), sTo);
        return p;
    };
    size_t p = Replace("<CHILD>Child</CHILD>", "<CHILD>Child (list)</CHILD>", 0);
    p = Replace("<CHILD>Child</CHILD>", "<CHILD>Child (rows)</CHILD>", p);
    Replace("<CHILD>Child</CHILD>", "<CHILD>Child (alternates)</CHILD>", p);
    Prepare("Item", "STRUCTURE", s);
    XItemStruct p0 = XItem(0, Head("P", "", "A"));
    p0.Children = "1!2!3!";
    M().XItems = {p0, Child("C-1", "10", "1", ""), Child("C-2", "20", "1", "", {"ALT"}),
                  Child("C-3", "30", "1", "")};
    M().ObjCount = 3;
    long nRow = 1;
    bld->FillChild(0, nRow);
    EXPECT_EQ(Text(2, 1), "Child (list)");
    EXPECT_EQ(Text(4, 1), "Child (rows)");
    EXPECT_EQ(Text(9, 1), "Child (alternates)");
}

TEST_F(DetailTest, PartListCaptionsFallBackWithoutTheirSections) {
    Prepare("Item", "STRUCTURE");
    ReplaceSettings(SettingsWithout(ExampleSettings(), "PART_LIST_LBL"));
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "1!";
    M().XItems = {p, Child("C-1", "10", "1", "R1", {"ALT"})};
    M().ObjCount = 1;
    long nRow = 1;
    bld->FillChild(0, nRow);
    ExpectListCaption(1, "Part List");
    ExpectChildRows(2, "Child", M().XItems[1]);
    EXPECT_EQ(Text(4, 1), "Local Alternative Items of Child");
    EXPECT_EQ(Text(5, 1), "ALTERNATE ID");
    EXPECT_EQ(Text(5, 2), "ALT");
}

TEST_F(DetailTest, AnEntryThatNamesNoRecordEndsThePartList) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "1!9!1!";
    M().XItems = {p, Child("C-1", "10", "1", "")};
    M().ObjCount = 1;
    long nRow = 1;
    bld->FillChild(0, nRow);
    EXPECT_EQ(Text(2, 2), "C-1");
    EXPECT_EQ(nRow, 4);
    ExpectEmptyRow(4);
    ExpectOneErrorLine("Subscript out of range", 9, "FillChild");
}

TEST_F(DetailTest, AnEntryThatIsNoNumberIsATypeMismatch) {
    XItemStruct p = XItem(0, Head("P", "", "A"));
    p.Children = "x!";
    M().XItems = {p};
    M().ObjCount = 0;
    long nRow = 1;
    bld->FillChild(0, nRow);
    EXPECT_EQ(nRow, 2);
    ExpectOneErrorLine("Type mismatch", 13, "FillChild");
}

TEST_F(DetailTest, LocalAlternatesOnTheirOwn) {
    M().XItems = {Child("C-1", "10", "1", "", {"A1", "A2", "A3"})};
    M().ObjCount = 0;
    long nRow = 7;
    bld->FillLAIOfChild2(0, nRow);
    EXPECT_EQ(nRow, 10);
    EXPECT_EQ(Text(9, 2), "A3");
    EXPECT_EQ(Text(9, 1), "Alternate ID");
    long nBad = 3;
    bld->FillLAIOfChild2(5, nBad);
    EXPECT_EQ(nBad, 3);
    ExpectOneErrorLine("Subscript out of range", 9, "FillLAIOfChild2");
}
