// Anchor names, the name sanitiser and the hyperlinks of the main panel.
#include "BldExcelTest.h"

using namespace wbtest;

namespace {

class LinksTest : public BldExcelTest {};

std::string San(const std::string& s) {
    return Access::SanitizeName(s);
}

}  // namespace

TEST_F(LinksTest, SanitiserKeepsDigitsLettersUnderscoreAndBackslash) {
    EXPECT_EQ(San(""), "");
    EXPECT_EQ(San("AbcXYZ019"), "AbcXYZ019");
    EXPECT_EQ(San("A_B"), "A_B");
    EXPECT_EQ(San("a\\b"), "a\\b");
}

// "[", "]", "^" and the back-quote lie between "Z" and "a", but a defined name may not hold them.
TEST_F(LinksTest, SanitiserWritesCharactersNoNameMayHoldAsTheirCode) {
    EXPECT_EQ(San("[x]"), "_91x_93");
    EXPECT_EQ(San("^`"), "_94_96");
    EXPECT_EQ(San("A[1]"), "A_911_93");
}

TEST_F(LinksTest, SanitiserWritesEveryOtherCharacterAsItsCode) {
    EXPECT_EQ(San(" "), "_32");
    EXPECT_EQ(San("P-100"), "P_45100");
    EXPECT_EQ(San("1.0"), "1_460");
    EXPECT_EQ(San("a/b"), "a_47b");
    EXPECT_EQ(San("{}@:;?!'\"~|"), "_123_125_64_58_59_63_33_39_34_126_124");
    EXPECT_EQ(San("\t"), "_9");
}

TEST_F(LinksTest, SanitiserWritesNonAsciiCharactersAsTheirWindows1252Code) {
    EXPECT_EQ(San("Ä"), "_196");
    EXPECT_EQ(San("Größe"), "Gr_246_223e");
    EXPECT_EQ(San("é"), "_233");
    EXPECT_EQ(San("€"), "_128");
    EXPECT_EQ(San("„x“"), "_132x_147");
    EXPECT_EQ(San("Œ"), "_140");
    // Characters outside the code page become "?".
    EXPECT_EQ(San("あ"), "_63");
    EXPECT_EQ(San("Ā"), "_63");
    EXPECT_EQ(San("😀"), "_63");
    // A stray byte that begins no character is one character outside the code page.
    EXPECT_EQ(San(std::string("a\xff") + "b"), "a_63b");
    EXPECT_EQ(San(std::string("\xc3")), "_63");
}

TEST_F(LinksTest, SanitiserHasNoLengthLimit) {
    std::string s(300, '-');
    std::string sOut = San(s);
    EXPECT_EQ(sOut.size(), 900u);
}

TEST_F(LinksTest, AnchorNamesJoinIdentifierRevisionAndIndex) {
    M().XItems.resize(5);
    M().XItems[4].Head = Head("P-100", "ignored description", "B");
    M().XItems[0].Head = Head("", "x", "");
    EXPECT_EQ(bld->GetItemHyperlinkName(4), "ID_P_45100_B_4");
    EXPECT_EQ(bld->GetItemHyperlinkName(0), "ID___0");
    M().XDocs = {XDoc(0, Doc("D 1", "", "A.1"))};
    EXPECT_EQ(bld->GetDocHyperlinkName(0), "ID_D_321_A_461_0");
    M().XFolders = {XFolder(0, Head("Ä", "", "x"))};
    EXPECT_EQ(bld->GetFolderHyperlinkName(0), "ID__196_x_0");
}

TEST_F(LinksTest, EqualMiddlePartsStayDistinctThroughTheIndex) {
    M().XItems = {XItem(0, Head("A_B", "", "C")), XItem(0, Head("A", "", "B_C"))};
    EXPECT_EQ(bld->GetItemHyperlinkName(0), "ID_A_B_C_0");
    EXPECT_EQ(bld->GetItemHyperlinkName(1), "ID_A_B_C_1");
}

TEST_F(LinksTest, AnchorNamesWithBracketsCaretAndBackQuote) {
    M().XItems = {XItem(0, Head("[x]", "", "^`\\"))};
    EXPECT_EQ(bld->GetItemHyperlinkName(0), "ID__91x_93__94_96\\_0");
}

// Every object keeps its block and its link, whatever characters its identifier holds.
TEST_F(LinksTest, PartNumbersWithBracketsKeepTheirBlocksAndLinks) {
    M().XItems = {XItem(0, Head("A[1]", "", "^`")), XItem(0, Head("B 2", "", "]"))};
    M().ObjCount = 1;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    EXPECT_TRUE(bld->FillHyperlinkStruct());
    ASSERT_EQ(S().Names().Items().size(), 2u);
    EXPECT_EQ(S().Names().Items()[0].sName, "ID_A_911_93__94_96_0");
    EXPECT_EQ(S().Names().Items()[1].sName, "ID_B_322__93_1");
    ASSERT_EQ(S().Hyperlinks().Items().size(), 2u);
    EXPECT_EQ(S().Hyperlinks().Items()[0].SubAddress(), S().Names().Items()[0].sName);
    EXPECT_EQ(S().Hyperlinks().Items()[1].SubAddress(), S().Names().Items()[1].sName);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LinksTest, AnIndexOutsideTheArrayGivesAnEmptyNameAndALogLine) {
    EXPECT_EQ(bld->GetItemHyperlinkName(0), "");
    ExpectOneErrorLine("Subscript out of range", 9, "GetItemHyperlinkName");
}

TEST_F(LinksTest, DocAndFolderNameErrorsAreLoggedUnderTheirNames) {
    EXPECT_EQ(bld->GetDocHyperlinkName(-1), "");
    EXPECT_EQ(bld->GetFolderHyperlinkName(3), "");
    auto arr = LogLines();
    ASSERT_EQ(arr.size(), 2u);
    EXPECT_TRUE(std::regex_match(
        arr[0], std::regex(ErrorLineRegex("Subscript out of range", 9, "GetDocHyperlinkName"))));
    EXPECT_TRUE(std::regex_match(
        arr[1], std::regex(ErrorLineRegex("Subscript out of range", 9, "GetFolderHyperlinkName"))));
}

TEST_F(LinksTest, NoObjectsAddNoHyperlinksAndSucceed) {
    M().ObjCount = -1;
    EXPECT_TRUE(bld->FillHyperlinkStruct());
    EXPECT_TRUE(bld->FillHyperlinkCollect());
    EXPECT_TRUE(S().Hyperlinks().Items().empty());
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LinksTest, StructureLinksEveryRowFromColumnB) {
    M().XItems = {XItem(0, Head("P", "", "A")), XItem(1, Head("C-1", "", "B")),
                  XItem(2, Head("C-2", "", "C"))};
    M().ObjCount = 2;
    ASSERT_TRUE(bld->FillHyperlinkStruct());
    const auto& arr = S().Hyperlinks().Items();
    ASSERT_EQ(arr.size(), 3u);
    for (long i = 0; i < 3; ++i) {
        EXPECT_EQ(arr[i].lRow, 6 + i);
        EXPECT_EQ(arr[i].lCol, 2);
        EXPECT_EQ(arr[i].Address(), "");
        EXPECT_EQ(arr[i].SubAddress(), bld->GetItemHyperlinkName(i));
    }
    EXPECT_EQ(arr[1].SubAddress(), "ID_C_451_B_1");
}

TEST_F(LinksTest, CollectionLinksStayContiguousAndPointAtTheirOwnIndex) {
    Prepare("Document", "COLLECTION");
    M().XDocs = {XDoc(0, Doc("D-0", "", "A")), XDoc(1, Doc("D-1", "", "A")),
                 XDoc(2, Doc("D-2", "", "A")), XDoc(0, Doc("D-3", "", "A")),
                 XDoc(1, Doc("D-4", "", "A")), XDoc(0, Doc("D-5", "", "A"))};
    M().ObjCount = 5;
    ASSERT_TRUE(bld->FillHyperlinkCollect());
    const auto& arr = S().Hyperlinks().Items();
    ASSERT_EQ(arr.size(), 3u);
    EXPECT_EQ(arr[0].lRow, 6);
    EXPECT_EQ(arr[0].lCol, 1);
    EXPECT_EQ(arr[0].SubAddress(), "ID_D_450_A_0");
    EXPECT_EQ(arr[1].lRow, 7);
    EXPECT_EQ(arr[1].SubAddress(), "ID_D_453_A_3");
    EXPECT_EQ(arr[2].lRow, 8);
    EXPECT_EQ(arr[2].lCol, 1);
    EXPECT_EQ(arr[2].SubAddress(), "ID_D_455_A_5");
    EXPECT_EQ(arr[2].Address(), "");
}

TEST_F(LinksTest, FolderLinks) {
    Prepare("Folder", "STRUCTURE");
    M().XFolders = {XFolder(0, Head("F", "", "1"))};
    M().ObjCount = 0;
    ASSERT_TRUE(bld->FillHyperlinkStruct());
    ASSERT_EQ(S().Hyperlinks().Items().size(), 1u);
    EXPECT_EQ(S().Hyperlinks().Items()[0].SubAddress(), "ID_F_1_0");
}

TEST_F(LinksTest, AnUnknownKindAddsNothing) {
    M().ExportKind = 5;
    M().XItems = {XItem(0, Head("P", "", "A"))};
    M().ObjCount = 0;
    EXPECT_TRUE(bld->FillHyperlinkStruct());
    EXPECT_TRUE(bld->FillHyperlinkCollect());
    EXPECT_TRUE(S().Hyperlinks().Items().empty());
}

TEST_F(LinksTest, ACollectionCountBeyondTheArrayStopsWithALoggedError) {
    Prepare("Item", "COLLECTION");
    M().XItems = {XItem(0, Head("P", "", "A"))};
    M().ObjCount = 2;
    EXPECT_FALSE(bld->FillHyperlinkCollect());
    EXPECT_EQ(S().Hyperlinks().Items().size(), 1u);
    ExpectOneErrorLine("Subscript out of range", 9, "FillHyperlinkCollect");
}

TEST_F(LinksTest, AnchorNamesOfOrdinaryIdentifiersAreAcceptedAsDefinedNames) {
    M().XItems = {XItem(0, Head("A b-c.d/e", "", "1\\2")), XItem(0, Head("Größe €", "", "")),
                  XItem(0, Head("", "", ""))};
    M().ObjCount = 2;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    ASSERT_EQ(S().Names().Items().size(), 3u);
    EXPECT_EQ(S().Names().Items()[0].sName, "ID_A_32b_45c_46d_47e_1\\2_0");
    EXPECT_EQ(S().Names().Items()[1].sName, "ID_Gr_246_223e_32_128__1");
    EXPECT_EQ(S().Names().Items()[2].sName, "ID___2");
    EXPECT_TRUE(LogLines().empty());
}

// The brackets, the caret and the back-quote pass the sanitiser but the spreadsheet refuses them
// in a defined name: that object's block is not written (the failure is logged) and the blocks
// of the other objects are not affected.
TEST_F(LinksTest, AnAnchorNameTheSpreadsheetRefusesCostsOnlyThatBlock) {
    // Past 255 characters no name is valid.
    M().XItems = {XItem(0, Head(std::string(300, 'L'), "", "A")), XItem(0, Head("P", "", "A"))};
    M().ObjCount = 1;
    long nRow = 10;
    bld->FillItemsDetail(nRow);
    ASSERT_EQ(S().Names().Items().size(), 1u);
    EXPECT_EQ(S().Names().Items()[0].sName, "ID_P_A_1");
    EXPECT_EQ(S().Names().Items()[0].lRow1, 10);
    EXPECT_EQ(Text(10, 2), "P");
    EXPECT_EQ(nRow, 13);
    ExpectOneErrorLine("Application-defined or object-defined error", 1004, "FillItemDetail");
}
