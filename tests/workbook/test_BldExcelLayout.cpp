// Whole blocks and whole sheets, row by row.
#include "BldExcelTest.h"

using namespace wbtest;

namespace {

class LayoutTest : public BldExcelTest {
protected:
    // An item with every kind of relation: a part list with alternates, a document with two
    // files, a folder, two manufacturers (one with suppliers) and a supplier of its own.
    void RichItem(int16_t nMnfVndFlag) {
        XItemStruct p = XItem(0, Head("P-100", "Top assembly", "B",
                                      Arr({"Released", "jdoe", "pcs", "2 kg", "Steel"})));
        p.Children = "1!2!";
        p.Docs = {
            Doc("D-1", "Drawing", "A", Arr({"DWG", "Released", "asmith"}),
                {File("C:\\docs\\d1.pdf", Arr({"PDF", "12 kB"})), File("\\\\srv\\share\\d1.dwg")})};
        p.DocCount = 0;
        p.Folders = {Head("F-1", "Folder one", "1", Arr({"jdoe", "2020-01-01"}))};
        p.FolderCount = 0;
        p.MNFs = {Mnf("M-1", "Acme", "MPN-1", Arr({"Active", "US"})),
                  Mnf("M-2", "Bolt Co", "MPN-2", Arr({"Obsolete", "DE"}),
                      {Head("V-1", "Distri", "SPN-1", Arr({"2 weeks", "1.20"}))})};
        p.MNFCount = 1;
        p.MnfVndFlag = nMnfVndFlag;
        p.VNDs = {Head("V-9", "Direct", "SPN-9", Arr({"3 days", "0.90"}))};
        p.VNDCount = 0;

        XItemStruct c1 = XItem(1, Head("C-1", "Bolt", "A"));
        c1.PSAttr2 = "0010";
        c1.PSAttr1 = "010";
        c1.RefDes = "R1,R2";
        c1.LAIs = {Head("ALT-1", "", ""), Head("ALT-2", "", "")};
        c1.LAICount = 1;
        XItemStruct c2 = XItem(1, Head("C-2", "Nut", "-"));
        c2.PSAttr2 = "20";
        c2.PSAttr1 = "2.50";
        M().XItems = {p, c1, c2};
        M().ObjCount = 2;
    }
};

}  // namespace

TEST_F(LayoutTest, ItemBlockWithEveryRelation) {
    RichItem(3);
    long nRow = 20;
    bld->FillItemDetail(0, nRow);

    EXPECT_EQ(S().Names().Items().at(0).sName, "ID_P_45100_B_0");
    EXPECT_EQ(S().Names().Items().at(0).lRow1, 20);
    // Header and attributes.
    ExpectKeyRow(20, "Item ID", "P-100", "Revision", "B", "Description", "Top assembly");
    EXPECT_EQ(Style(20, 1).lInteriorColorIndex, 15);
    EXPECT_TRUE(TopBorder(20, 1));
    EXPECT_TRUE(BottomBorder(20, 1));
    ExpectListCaption(21, "Attributes");
    EXPECT_EQ(Text(22, 1), "Status");
    EXPECT_EQ(Text(22, 2), "Released");
    EXPECT_EQ(Text(23, 1), "Owner");
    EXPECT_EQ(Text(23, 2), "jdoe");
    EXPECT_EQ(Text(22, 3), "Unit");
    EXPECT_EQ(Text(23, 3), "Weight");
    EXPECT_EQ(Text(22, 5), "Material");
    EXPECT_EQ(Text(22, 6), "Steel");
    EXPECT_TRUE(IsEmpty(23, 5));
    ExpectEmptyRow(24);
    // Part list.
    ExpectListCaption(25, "Part List");
    ExpectKeyRow(26, "Child", "C-1", "Find No", "0010", "Quantity", "010");
    EXPECT_EQ(Text(27, 1), "Description");
    EXPECT_EQ(Text(27, 2), "Bolt");
    EXPECT_EQ(Text(27, 3), "Reference Designators");
    EXPECT_EQ(Text(27, 4), "R1,R2");
    EXPECT_TRUE(Merged(27, 4, 6));
    EXPECT_EQ(Text(28, 1), "Local Alternative Items of Child");
    EXPECT_TRUE(Merged(28, 1, 2));
    EXPECT_EQ(Text(28, 3), "C-1");
    EXPECT_EQ(Style(28, 3).lFontColorIndex, 48);
    EXPECT_EQ(Text(29, 2), "ALT-1");
    EXPECT_EQ(Text(30, 2), "ALT-2");
    ExpectEmptyRow(31);
    ExpectKeyRow(32, "Child", "C-2", "Find No", "20", "Quantity", "2.50");
    EXPECT_EQ(Text(33, 2), "Nut");
    EXPECT_EQ(Text(33, 4), "");
    // Documents with their files.
    ExpectListCaption(34, "Documents");
    ExpectKeyRow(35, "Doc. ID", "D-1", "Revision", "A", "Description", "Drawing");
    EXPECT_FALSE(TopBorder(35, 1));
    EXPECT_EQ(Text(36, 1), "Type");
    EXPECT_EQ(Text(36, 3), "Status");
    EXPECT_EQ(Text(36, 5), "Author");
    EXPECT_EQ(Text(36, 6), "asmith");
    EXPECT_EQ(Text(37, 1), "Files of Document");
    EXPECT_TRUE(Merged(37, 1, 6));
    EXPECT_EQ(Style(37, 1).lFontColorIndex, 48);
    EXPECT_EQ(Text(38, 1), "File Name");
    EXPECT_EQ(Text(38, 2), "C:\\docs\\d1.pdf");
    EXPECT_EQ(Text(39, 1), "File Type");
    EXPECT_EQ(Text(39, 4), "12 kB");
    ExpectEmptyRow(40);
    EXPECT_EQ(Text(41, 2), "\\\\srv\\share\\d1.dwg");
    ExpectEmptyRow(42);
    // Folders.
    ExpectListCaption(43, "Folders");
    ExpectKeyRow(44, "Folder ID", "F-1", "Revision", "1", "Description", "Folder one");
    EXPECT_EQ(Text(45, 1), "Owner");
    EXPECT_EQ(Text(45, 4), "2020-01-01");
    // Manufacturers, suppliers, manufacturers with their suppliers.
    ExpectListCaption(46, "Manufacturers");
    ExpectKeyRow(47, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    ExpectKeyRow(48, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    ExpectListCaption(49, "Suppliers");
    ExpectKeyRow(50, "Sup. ID", "V-9", "SPN", "SPN-9", "Name", "Direct");
    EXPECT_EQ(Text(51, 1), "Lead Time");
    EXPECT_EQ(Text(51, 2), "3 days");
    ExpectListCaption(52, "Manufacturers and their Suppliers");
    ExpectKeyRow(53, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    EXPECT_EQ(Text(54, 2), "Active");
    ExpectKeyRow(55, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    EXPECT_EQ(Text(56, 4), "DE");
    EXPECT_EQ(Text(57, 1), "Suppliers of Manufacturer");
    EXPECT_TRUE(Merged(57, 1, 2));
    ExpectKeyRow(58, "Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri");
    EXPECT_EQ(Text(59, 4), "1.20");
    EXPECT_EQ(nRow, 60);
    ExpectEmptyRow(60);

    // Two hyperlinks to the files, nothing else.
    ASSERT_EQ(S().Hyperlinks().Items().size(), 2u);
    EXPECT_EQ(S().Hyperlinks().Items()[0].lRow, 38);
    EXPECT_EQ(S().Hyperlinks().Items()[0].Address(), "C:\\docs\\d1.pdf");
    EXPECT_EQ(S().Hyperlinks().Items()[1].lRow, 41);
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LayoutTest, ItemBlockWithManufacturersOnly) {
    RichItem(1);
    M().XItems[0].VNDCount = -1;
    M().XItems[0].VNDs.clear();
    long nRow = 20;
    bld->FillItemDetail(0, nRow);
    ExpectListCaption(46, "Manufacturers");
    ExpectKeyRow(48, "Man. ID", "M-2", "MPN", "MPN-2", "Name", "Bolt Co");
    EXPECT_EQ(nRow, 49);
    ExpectEmptyRow(49);
}

TEST_F(LayoutTest, ItemBlockWithManufacturersAndTheirSuppliersOnly) {
    RichItem(2);
    M().XItems[0].VNDCount = -1;
    M().XItems[0].VNDs.clear();
    long nRow = 20;
    bld->FillItemDetail(0, nRow);
    ExpectListCaption(46, "Manufacturers and their Suppliers");
    ExpectKeyRow(47, "Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme");
    EXPECT_EQ(Text(48, 2), "Active");
    EXPECT_EQ(Text(51, 1), "Suppliers of Manufacturer");
    ExpectKeyRow(52, "Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri");
    EXPECT_EQ(nRow, 54);
}

TEST_F(LayoutTest, DocumentExportStructureWholeSheet) {
    Prepare("Document", "STRUCTURE");
    XDocStruct d0 = XDoc(0, Doc("D-1", "Assembly drawing", "A", Arr({"DWG", "Released", "jdoe"}),
                                {File("C:\\d\\a.pdf", Arr({"PDF", "1 MB"}))}));
    d0.MainAttr5 = "DWG";
    d0.MainAttr6 = "Released";
    d0.Items = {Head("I-1", "Screw", "C", Arr({"Released", "jdoe", "pcs", "1 g", "Steel"}))};
    d0.ItemCount = 0;
    d0.Children = "1!";
    XDocStruct d1 = XDoc(1, Doc("D-2", "Sheet 2", "B"));
    d1.MainAttr5 = "DWG";
    M().XDocs = {d0, d1};
    M().ObjCount = 1;
    ASSERT_TRUE(bld->FillExlFile());

    EXPECT_EQ(Text(4, 1), "Main Panel: Document Structure");
    EXPECT_EQ(Text(5, 2), "Doc. ID");
    EXPECT_EQ(Number(6, 1), 0);
    EXPECT_EQ(Text(6, 2), "D-1");
    EXPECT_EQ(Text(6, 3), "A");
    EXPECT_EQ(Text(6, 4), "Assembly drawing");
    EXPECT_EQ(Text(6, 5), "DWG");
    EXPECT_EQ(Text(6, 6), "Released");
    EXPECT_EQ(Number(7, 1), 1);
    EXPECT_EQ(Text(7, 2), "D-2");
    EXPECT_EQ(Text(9, 1), "Property Panel: Documents");

    // Block of D-1 from row 10.
    ExpectKeyRow(10, "Doc. ID", "D-1", "Revision", "A", "Description", "Assembly drawing");
    EXPECT_EQ(Style(10, 1).lInteriorColorIndex, 15);
    ExpectListCaption(11, "Attributes");
    EXPECT_EQ(Text(12, 2), "DWG");
    EXPECT_EQ(Text(13, 1), "Files of Document");
    EXPECT_EQ(Text(14, 2), "C:\\d\\a.pdf");
    EXPECT_EQ(Text(15, 3), "Size");
    ExpectEmptyRow(16);
    ExpectListCaption(17, "Items");
    ExpectKeyRow(18, "Item ID", "I-1", "Revision", "C", "Description", "Screw");
    // A related item in a document export has no attributes heading.
    EXPECT_EQ(Text(19, 1), "Status");
    EXPECT_EQ(Text(20, 1), "Owner");
    ExpectEmptyRow(21);
    ExpectListCaption(22, "Child Documents");
    ExpectKeyRow(23, "Doc. ID", "D-2", "Revision", "B", "Description", "Sheet 2");
    // Block of D-2.
    ExpectKeyRow(24, "Doc. ID", "D-2", "Revision", "B", "Description", "Sheet 2");
    EXPECT_EQ(Style(24, 1).lInteriorColorIndex, 15);
    ExpectListCaption(25, "Attributes");

    const auto& arrNames = S().Names().Items();
    ASSERT_EQ(arrNames.size(), 2u);
    EXPECT_EQ(arrNames[0].sName, "ID_D_451_A_0");
    EXPECT_EQ(arrNames[0].lRow1, 10);
    EXPECT_EQ(arrNames[1].sName, "ID_D_452_B_1");
    EXPECT_EQ(arrNames[1].lRow1, 24);
    // Main-panel links in column B, the file link in the block.
    const auto& arrLinks = S().Hyperlinks().Items();
    ASSERT_EQ(arrLinks.size(), 3u);
    EXPECT_EQ(arrLinks[0].lRow, 14);
    EXPECT_EQ(arrLinks[0].Address(), "C:\\d\\a.pdf");
    EXPECT_EQ(arrLinks[1].lRow, 6);
    EXPECT_EQ(arrLinks[1].lCol, 2);
    EXPECT_EQ(arrLinks[1].SubAddress(), "ID_D_451_A_0");
    EXPECT_EQ(arrLinks[2].lRow, 7);
    EXPECT_EQ(arrLinks[2].SubAddress(), "ID_D_452_B_1");
    EXPECT_EQ(S().PageSetup().sPrintArea, "$A$1:$F$26");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LayoutTest, FolderExportCollectionWholeSheet) {
    Prepare("Folder", "COLLECTION");
    XFoldStruct f0 = XFolder(0, Head("F-1", "Projects", "1", Arr({"jdoe", "2020"})));
    f0.MainAttr5 = "jdoe";
    f0.Children = "1!";
    f0.Docs = {Doc("D-1", "Plan", "A")};
    f0.DocCount = 0;
    XFoldStruct f1 = XFolder(1, Head("F-2", "Sub", "1"));
    XFoldStruct f2 = XFolder(0, Head("F-3", "Archive", "2"));
    f2.Folders = {Head("F-1", "Projects", "1")};
    f2.FolderCount = 0;
    M().XFolders = {f0, f1, f2};
    M().ObjCount = 2;
    ASSERT_TRUE(bld->FillExlFile());

    EXPECT_EQ(Text(4, 1), "Main Panel: Folder Collection");
    EXPECT_EQ(Text(5, 1), "Folder ID");
    EXPECT_EQ(Text(5, 4), "Owner");
    EXPECT_EQ(Text(6, 1), "F-1");
    EXPECT_EQ(Text(6, 2), "1");
    EXPECT_EQ(Text(6, 3), "Projects");
    EXPECT_EQ(Text(6, 4), "jdoe");
    EXPECT_EQ(Text(7, 1), "F-3");
    EXPECT_TRUE(IsEmpty(8, 1));
    EXPECT_EQ(Text(9, 1), "Property Panel: Folders");

    ExpectKeyRow(10, "Folder ID", "F-1", "Revision", "1", "Description", "Projects");
    ExpectListCaption(11, "Attributes");
    EXPECT_EQ(Text(12, 1), "Owner");
    ExpectListCaption(13, "Child Folders");
    ExpectKeyRow(14, "Folder ID", "F-2", "Revision", "1", "Description", "Sub");
    ExpectListCaption(15, "Documents");
    ExpectKeyRow(16, "Doc. ID", "D-1", "Revision", "A", "Description", "Plan");
    ExpectKeyRow(17, "Folder ID", "F-3", "Revision", "2", "Description", "Archive");
    ExpectListCaption(18, "Attributes");
    ExpectListCaption(19, "Reference Folders");
    ExpectKeyRow(20, "Folder ID", "F-1", "Revision", "1", "Description", "Projects");

    const auto& arrNames = S().Names().Items();
    ASSERT_EQ(arrNames.size(), 2u);
    EXPECT_EQ(arrNames[0].sName, "ID_F_451_1_0");
    EXPECT_EQ(arrNames[0].lRow1, 10);
    EXPECT_EQ(arrNames[1].sName, "ID_F_453_2_2");
    EXPECT_EQ(arrNames[1].lRow1, 17);
    const auto& arrLinks = S().Hyperlinks().Items();
    ASSERT_EQ(arrLinks.size(), 2u);
    EXPECT_EQ(arrLinks[0].lRow, 6);
    EXPECT_EQ(arrLinks[0].lCol, 1);
    EXPECT_EQ(arrLinks[0].SubAddress(), "ID_F_451_1_0");
    EXPECT_EQ(arrLinks[1].lRow, 7);
    EXPECT_EQ(arrLinks[1].lCol, 1);
    EXPECT_EQ(arrLinks[1].SubAddress(), "ID_F_453_2_2");
    EXPECT_EQ(S().PageSetup().sPrintArea, "$A$1:$F$21");
    EXPECT_TRUE(LogLines().empty());
}

TEST_F(LayoutTest, ItemExportStructureAgainstCollection) {
    RichItem(0);
    M().XItems[0].VNDCount = -1;
    ASSERT_TRUE(bld->FillExlFile());
    // Structure: every item has a main-panel row (levels in A) and a block.
    EXPECT_EQ(Number(6, 1), 0);
    EXPECT_EQ(Number(7, 1), 1);
    EXPECT_EQ(Number(8, 1), 1);
    EXPECT_EQ(Text(6, 2), "P-100");
    EXPECT_EQ(Text(6, 3), "");  // the top object has no find number
    EXPECT_EQ(Text(7, 3), "0010");
    EXPECT_EQ(Text(7, 5), "010");
    EXPECT_EQ(Text(10, 1), "Property Panel: Items");
    EXPECT_EQ(S().Names().Items().size(), 3u);
    EXPECT_EQ(S().Names().Items()[0].lRow1, 11);
    long nStructLinks = 0;
    for (const auto& h : S().Hyperlinks().Items()) {
        if (h.Address().empty()) {
            ++nStructLinks;
            EXPECT_EQ(h.lCol, 2);
        }
    }
    EXPECT_EQ(nStructLinks, 3);

    Prepare("Item", "COLLECTION");
    RichItem(0);
    M().XItems[0].VNDCount = -1;
    ASSERT_TRUE(bld->FillExlFile());
    // Collection: only the top item is listed and gets a block; no level column.
    EXPECT_EQ(Text(4, 1), "Main Panel: Item Collection");
    EXPECT_EQ(Text(5, 1), "Item ID");
    EXPECT_EQ(Text(6, 1), "P-100");
    EXPECT_FALSE(HasNumber(6, 1));
    EXPECT_TRUE(IsEmpty(7, 1));
    EXPECT_EQ(Text(8, 1), "Property Panel: Items");
    EXPECT_EQ(S().Names().Items().size(), 1u);
    EXPECT_EQ(S().Names().Items()[0].lRow1, 9);
    long nCollLinks = 0;
    for (const auto& h : S().Hyperlinks().Items()) {
        if (h.Address().empty()) {
            ++nCollLinks;
            EXPECT_EQ(h.lRow, 6);
            EXPECT_EQ(h.lCol, 1);
            EXPECT_EQ(h.SubAddress(), "ID_P_45100_B_0");
        }
    }
    EXPECT_EQ(nCollLinks, 1);
    // The block holds the part list as in a structure export.
    EXPECT_EQ(Text(14, 1), "Part List");
    EXPECT_TRUE(LogLines().empty());
}
