// The main panel: heading row and object rows for items, documents and folders.
#include "BldExcelTest.h"

using namespace wbtest;

namespace {

class MainPanelTest : public BldExcelTest {
protected:
    void Tags(long k) {
        ctx->Labels.AdditionalTagTable.ReDim(2, k - 1);
        for (long j = 0; j < k; ++j) {
            ctx->Labels.AdditionalTagTable.Item(0, j) = "field" + std::to_string(j);
            ctx->Labels.AdditionalTagTable.Item(1, j) = "Tag " + std::to_string(j);
        }
    }
    XItemStruct Item(int32_t nLevel, const std::string& sId) {
        XItemStruct r = XItem(nLevel, Head(sId, sId + " desc", sId + " rev"));
        r.PSAttr1 = sId + " qty";
        r.PSAttr2 = sId + " fn";
        return r;
    }
};

}  // namespace

TEST_F(MainPanelTest, ItemHeadingsStructure) {
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 1), "Level");
    EXPECT_EQ(Text(5, 2), "Item ID");
    EXPECT_EQ(Text(5, 3), "Find No");
    EXPECT_EQ(Text(5, 4), "Description");
    EXPECT_EQ(Text(5, 5), "Quantity");
    EXPECT_EQ(Text(5, 6), "Revision");
    EXPECT_TRUE(IsEmpty(5, 7));
}

TEST_F(MainPanelTest, ItemHeadingsCollectionSkipTheLevelCaption) {
    Prepare("Item", "COLLECTION");
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 1), "Item ID");
    EXPECT_EQ(Text(5, 2), "Find No");
    EXPECT_EQ(Text(5, 5), "Revision");
    EXPECT_TRUE(IsEmpty(5, 6));
}

TEST_F(MainPanelTest, AttributeCaptionsFollowTheFixedCaptions) {
    Tags(2);
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 7), "Tag 0");
    EXPECT_EQ(Text(5, 8), "Tag 1");
    Prepare("Item", "COLLECTION");
    Tags(2);
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 6), "Tag 0");
    EXPECT_EQ(Text(5, 7), "Tag 1");
}

TEST_F(MainPanelTest, TheKindWordComesFromTheRootObjectName) {
    Prepare("Document", "STRUCTURE");
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 2), "Doc. ID");
    EXPECT_EQ(Text(5, 6), "Status");
    Prepare("Folder", "STRUCTURE");
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 2), "Folder ID");
    EXPECT_EQ(Text(5, 5), "Owner");
    EXPECT_TRUE(IsEmpty(5, 6));
    // A root name that is no configured object name gives no list and no captions at all.
    Prepare("Item", "STRUCTURE");
    M().RootObjName = "Something";
    Tags(1);
    bld->FillMainPanelCaption(5);
    for (long c = 1; c <= 8; ++c)
        EXPECT_TRUE(IsEmpty(5, c));
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(MainPanelTest, OnlyTheLevelLabelInACollectionPutsAttributeCaptionsFromColumnOne) {
    std::string s = ExampleSettings();
    size_t a = s.find("<ITEM_ID ORDER=\"2\">");
    size_t b = s.find("</ITEM>", a);
    s = s.substr(0, a) + s.substr(b);
    Prepare("Item", "COLLECTION", s);
    Tags(2);
    bld->FillMainPanelCaption(5);
    EXPECT_EQ(Text(5, 1), "Tag 0");
    EXPECT_EQ(Text(5, 2), "Tag 1");
    // The object rows still put the attribute values from column 6: the misalignment stands.
    M().XItems = {Item(0, "A")};
    M().XItems[0].AddAttrs = Arr({"x0", "x1"});
    M().ObjCount = 0;
    long nCount = -5;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 1);
    EXPECT_EQ(Text(6, 6), "x0");
    EXPECT_EQ(Text(6, 7), "x1");
}

TEST_F(MainPanelTest, NoObjectsWritesNoRowsInBothModes) {
    M().ObjCount = -1;
    long nCount = 99;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 0);
    Prepare("Item", "COLLECTION");
    nCount = 99;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 0);
    for (long c = 1; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(6, c));
}

TEST_F(MainPanelTest, StructureRowsHoldTheLevelAsANumberAndTheFieldsAsText) {
    M().XItems = {Item(0, "P"), Item(1, "C1"), Item(2, "C2")};
    M().ObjCount = 2;
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 3);
    EXPECT_TRUE(HasNumber(6, 1));
    EXPECT_EQ(Number(6, 1), 0);
    EXPECT_EQ(Number(8, 1), 2);
    // ID, find number, description, quantity, revision.
    EXPECT_EQ(Text(7, 2), "C1");
    EXPECT_EQ(Text(7, 3), "C1 fn");
    EXPECT_EQ(Text(7, 4), "C1 desc");
    EXPECT_EQ(Text(7, 5), "C1 qty");
    EXPECT_EQ(Text(7, 6), "C1 rev");
    EXPECT_FALSE(HasNumber(7, 2));
    EXPECT_TRUE(IsEmpty(7, 7));
}

TEST_F(MainPanelTest, CollectionRowsListLevelZeroOnlyWithoutGaps) {
    Prepare("Item", "COLLECTION");
    M().XItems = {Item(0, "A"), Item(1, "B"), Item(2, "C"), Item(0, "D")};
    M().ObjCount = 3;
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 2);
    EXPECT_EQ(Text(6, 1), "A");
    EXPECT_EQ(Text(6, 5), "A rev");
    EXPECT_EQ(Text(7, 1), "D");
    for (long c = 1; c <= 6; ++c)
        EXPECT_TRUE(IsEmpty(8, c));
}

TEST_F(MainPanelTest, ACollectionWithoutLevelZeroWritesNoRows) {
    Prepare("Item", "COLLECTION");
    M().XItems = {Item(1, "A"), Item(2, "B")};
    M().ObjCount = 1;
    long nCount = 7;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 0);
    EXPECT_TRUE(IsEmpty(6, 1));
}

TEST_F(MainPanelTest, AttributeValuesStandUnderTheirCaptions) {
    Tags(2);
    M().XItems = {Item(0, "P")};
    M().XItems[0].AddAttrs = Arr({"a0", "a1"});
    M().ObjCount = 0;
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(Text(6, 7), "a0");
    EXPECT_EQ(Text(6, 8), "a1");
}

TEST_F(MainPanelTest, WithoutAdditionalTagsNeitherCaptionsNorValuesAreWritten) {
    M().XItems = {Item(0, "P")};
    M().XItems[0].AddAttrs = Arr({"a0", "a1"});
    M().ObjCount = 0;
    bld->FillMainPanelCaption(5);
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_TRUE(IsEmpty(5, 7));
    EXPECT_TRUE(IsEmpty(6, 7));
    EXPECT_TRUE(IsEmpty(6, 8));
}

TEST_F(MainPanelTest, DocumentRows) {
    Prepare("Document", "STRUCTURE");
    Tags(1);
    XDocStruct d = XDoc(0, Doc("D-1", "Drawing", "A"));
    d.MainAttr5 = "DWG";
    d.MainAttr6 = "Released";
    d.AddAttrs = Arr({"extra"});
    M().XDocs = {d};
    M().ObjCount = 0;
    long nCount = 0;
    bld->FillMainPanelDocs(nCount, 6);
    EXPECT_EQ(nCount, 1);
    EXPECT_EQ(Number(6, 1), 0);
    EXPECT_EQ(Text(6, 2), "D-1");
    EXPECT_EQ(Text(6, 3), "A");
    EXPECT_EQ(Text(6, 4), "Drawing");
    EXPECT_EQ(Text(6, 5), "DWG");
    EXPECT_EQ(Text(6, 6), "Released");
    EXPECT_EQ(Text(6, 7), "extra");
}

TEST_F(MainPanelTest, FolderRowsLeaveTheFifthColumnEmpty) {
    Prepare("Folder", "COLLECTION");
    Tags(1);
    XFoldStruct f = XFolder(0, Head("F-1", "Projects", "2"));
    f.MainAttr5 = "jdoe";
    f.AddAttrs = Arr({"extra"});
    M().XFolders = {f, XFolder(3, Head("F-2", "", ""))};
    M().XFolders[1].AddAttrs = Arr({"x"});
    M().ObjCount = 1;
    long nCount = 0;
    bld->FillMainPanelFolders(nCount, 6);
    EXPECT_EQ(nCount, 1);
    EXPECT_EQ(Text(6, 1), "F-1");
    EXPECT_EQ(Text(6, 2), "2");
    EXPECT_EQ(Text(6, 3), "Projects");
    EXPECT_EQ(Text(6, 4), "jdoe");
    EXPECT_TRUE(IsEmpty(6, 5));
    EXPECT_EQ(Text(6, 6), "extra");
    EXPECT_TRUE(IsEmpty(7, 1));
}

TEST_F(MainPanelTest, ACountBeyondTheArrayStopsTheRowsWithALoggedError) {
    M().XItems = {Item(0, "P"), Item(1, "C")};
    M().ObjCount = 3;
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 2);
    EXPECT_EQ(Text(7, 2), "C");
    ExpectOneErrorLine("Subscript out of range", 9, "FillMainPanelItems");
}

TEST_F(MainPanelTest, AMissingAttributeArrayFailsThatRowOnly) {
    Tags(1);
    M().XItems = {Item(0, "P"), Item(1, "C")};
    M().XItems[1].AddAttrs = Arr({"c0"});
    M().ObjCount = 1;
    long nCount = 0;
    bld->FillMainPanelItems(nCount, 6);
    EXPECT_EQ(nCount, 2);
    EXPECT_EQ(Text(6, 2), "P");
    EXPECT_TRUE(IsEmpty(6, 7));
    EXPECT_EQ(Text(7, 7), "c0");
    ExpectOneErrorLine("Type mismatch", 13, "FillMainPanelItem");
}
