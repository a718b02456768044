// The object fillers: keys, attribute lists, additional attributes, local alternates and
// reference designators, manufacturers and vendors, relation lists and datasets.
#include <string>
#include <vector>

#include "ParseFixture.h"

using namespace parsetest;

namespace {

using Strings = std::vector<std::string>;

// A grouping component that counts how often it is created and what it is given.
struct clsCountingGroup : IclsGroup {
    explicit clsCountingGroup(int& nCreated, std::vector<Strings>& arrCalls) : arrCalls_(arrCalls) {
        ++nCreated;
    }
    Strings Group(const Strings& arr) override {
        arrCalls_.push_back(arr);
        return clsGroupRanges().Group(arr);
    }
    std::vector<Strings>& arrCalls_;
};

// An item with the three key attributes and the five attributes of the item list.
const char* const kTopItem =
    R"(<Item id="ID-1" revision="REV-2" description="DESC-3" status="Released" owner="ann" )"
    R"(unit="EA" weight="1 kg" material="Steel">)";

}  // namespace

class FillersTest : public ParseFixture {};

// ---------------------------------------------------------------------------------------------
// Keys and attributes

TEST_F(FillersTest, KeysAreStoredAsId1Id3Id2) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(std::string(kTopItem) + "</Item>")));
    const ItemStruct& oHead = ctx.Model.XItems[0].Head;
    EXPECT_EQ(oHead.Key1, "ID-1");
    EXPECT_EQ(oHead.Key2, "DESC-3");
    EXPECT_EQ(oHead.Key3, "REV-2");
    ASSERT_TRUE(oHead.Attrs.has_value());
    EXPECT_EQ(*oHead.Attrs, (Strings{"Released", "ann", "EA", "1 kg", "Steel"}));
}

TEST_F(FillersTest, MissingAttributesGiveEmptyStrings) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Item revision="R" owner="bob"/>)")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    EXPECT_EQ(oRec.Head.Key1, "");
    EXPECT_EQ(oRec.Head.Key2, "");
    EXPECT_EQ(oRec.Head.Key3, "R");
    EXPECT_EQ(*oRec.Head.Attrs, (Strings{"", "bob", "", "", ""}));
    EXPECT_EQ(oRec.LAICount, -1);
    EXPECT_EQ(oRec.MNFCount, -1);
    EXPECT_EQ(oRec.MnfVndFlag, 0);
    EXPECT_EQ(oRec.VNDCount, -1);
    EXPECT_EQ(oRec.DocCount, -1);
    EXPECT_EQ(oRec.FolderCount, -1);
    EXPECT_TRUE(oRec.LAIs.empty());
    EXPECT_TRUE(oRec.MNFs.empty());
    EXPECT_TRUE(oRec.VNDs.empty());
    EXPECT_EQ(oRec.RefDes, "");
    EXPECT_FALSE(oRec.AddAttrs.has_value());
    ExpectNoLog();
}

TEST_F(FillersTest, GetAttrAndFillXAttr2) {
    Init("item-structure.xml");
    pugi::xml_document oDoc;
    ASSERT_TRUE(oDoc.load_string(R"(<a x="1" y="it's &quot;q&quot;"/>)"));
    clsXMLPars oPars(ctx);
    pugi::xml_node a = oDoc.first_child();
    EXPECT_EQ(oPars.GetAttr(a, "x"), "1");
    EXPECT_EQ(oPars.GetAttr(a, "y"), "it's \"q\"");
    EXPECT_EQ(oPars.GetAttr(a, "z"), "");
    EXPECT_EQ(oPars.GetAttr(a, ""), "");
    EXPECT_EQ(oPars.GetAttr(pugi::xml_node(), "x"), "");

    clsVarTable tbl;
    tbl.ReDim(1, 2);
    tbl.Item(1, 0) = "y";
    tbl.Item(1, 1) = "missing";
    tbl.Item(1, 2) = "x";
    VarStrArray arr;
    EXPECT_TRUE(oPars.FillXAttr2(a, arr, tbl));
    EXPECT_EQ(arr, (Strings{"it's \"q\"", "", "1"}));

    // Without a name list the target is left as it is.
    VarStrArray arrKept = Strings{"kept"};
    EXPECT_TRUE(oPars.FillXAttr2(a, arrKept, clsVarTable()));
    EXPECT_EQ(arrKept, (Strings{"kept"}));
    ExpectNoLog();
}

TEST_F(FillersTest, EmptyManufacturerAndVendorListsLeaveAttrsEmpty) {
    Init("item-structure.xml");
    ctx.Labels.MnfAttrLabels.Erase();
    ctx.Labels.VndAttrLabels.Erase();
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_Manufacturer part_number="P1" mnf_status="A"><M id="M1" name="Maker"/></Item_Manufacturer>
        <Item_Vendor supplier_part_number="S1" lead_time="2d"><V id="V1" name="Shop"/></Item_Vendor>
      </Item>)")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.MNFCount, 0);
    EXPECT_FALSE(oRec.MNFs[0].Attrs.has_value());
    ASSERT_EQ(oRec.VNDCount, 0);
    EXPECT_FALSE(oRec.VNDs[0].Attrs.has_value());
    EXPECT_EQ(oRec.VNDs[0].Key1, "V1");
}

// ---------------------------------------------------------------------------------------------
// Find number, quantity and additional attributes

TEST_F(FillersTest, TopObjectHasNoStructureAttributes) {
    Init("item-structure.xml");
    // Attributes of those names on the root are not read for the top object.
    ASSERT_TRUE(Parse(R"(<Root_Element find_number="99" quantity="99">
        <Item id="T"><Item_PS find_number="10" quantity="4"><Item id="A"/></Item_PS></Item>
      </Root_Element>)"));
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 1);
    EXPECT_EQ(arr[0].PSAttr1, "");
    EXPECT_EQ(arr[0].PSAttr2, "");
    // PSAttr1 is the main-panel field of ORDER 5 (quantity), PSAttr2 the one of ORDER 3.
    EXPECT_EQ(arr[1].PSAttr1, "4");
    EXPECT_EQ(arr[1].PSAttr2, "10");
}

TEST_F(FillersTest, CollectionObjectsReadStructureAttributesOnTheRoot) {
    Init("item-collection.xml");
    ASSERT_TRUE(Parse(R"(<Root_Element quantity="7"><Item id="A"/><Item id="B"/></Root_Element>)"));
    EXPECT_EQ(ctx.Model.XItems[0].PSAttr1, "");
    EXPECT_EQ(ctx.Model.XItems[1].PSAttr1, "7");
}

namespace {
const char* const kAddTags = R"(
  <MAIN_ADD_LBL>
    <ITEM_EXTRA>
      <MAT ORDER="1" FIELD="material" OWNER="ITEM">Material</MAT>
      <QTY ORDER="2" FIELD="quantity" OWNER="ITEM_PS_DEF">Qty</QTY>
      <RD ORDER="3" FIELD="designator" OWNER="REF_DES_DEF">Ref. Des.</RD>
      <OTHER ORDER="4" FIELD="material" OWNER="DOC">Other</OTHER>
      <NOOWNER ORDER="5" FIELD="material">No owner</NOOWNER>
    </ITEM_EXTRA>
  </MAIN_ADD_LBL>
)";
}  // namespace

TEST_F(FillersTest, AdditionalAttributesOfItemsByOwner) {
    Init("item-structure.xml", kAddTags);
    ASSERT_TRUE(clsExportExcel::GetAdditionalTags(ctx, "ITEM_EXTRA"));
    ASSERT_TRUE(Parse(Root(R"(<Item id="T" material="Alu" quantity="5">
        <Item_PS quantity="3" material="ps">
          <Item id="A" material="Brass" quantity="8"/>
          <Ref_Des designator="R2"/><Ref_Des designator="R1"/>
        </Item_PS>
      </Item>)")));
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 1);
    // The top object: no structure element, so no ITEM_PS_DEF value.
    EXPECT_EQ(arr[0].AddAttrs, (Strings{"Alu", "", "", "", ""}));
    EXPECT_EQ(arr[1].AddAttrs, (Strings{"Brass", "3", "R1,R2", "", ""}));
    ExpectNoLog();
}

namespace {
// Owner kinds mean nothing for documents and folders: every entry is read on the object.
const char* const kDocFolderTags = R"(<MAIN_ADD_LBL><OBJ_EXTRA>
    <A ORDER="1" FIELD="author" OWNER="ITEM_PS_DEF">Author</A>
    <B ORDER="2" FIELD="owner" OWNER="REF_DES_DEF">Owner</B>
  </OBJ_EXTRA></MAIN_ADD_LBL>)";
}  // namespace

TEST_F(FillersTest, AdditionalAttributesOfDocumentsAreReadOnTheNode) {
    Init("doc-structure.xml", kDocFolderTags);
    ASSERT_TRUE(clsExportExcel::GetAdditionalTags(ctx, "OBJ_EXTRA"));
    ASSERT_TRUE(Parse(Root(R"(<Document id="D" author="ann" owner="bob">
        <Document_PS author="x" owner="y"><Document id="D1" author="cy"/></Document_PS>
      </Document>)")));
    EXPECT_EQ(ctx.Model.XDocs[0].AddAttrs, (Strings{"ann", "bob"}));
    EXPECT_EQ(ctx.Model.XDocs[1].AddAttrs, (Strings{"cy", ""}));
}

TEST_F(FillersTest, AdditionalAttributesOfFoldersAreReadOnTheNode) {
    Init("folder-structure.xml", kDocFolderTags);
    ASSERT_TRUE(clsExportExcel::GetAdditionalTags(ctx, "OBJ_EXTRA"));
    ASSERT_TRUE(Parse(Root(R"(<Folder id="F" owner="carl"/>)")));
    EXPECT_EQ(ctx.Model.XFolders[0].AddAttrs, (Strings{"", "carl"}));
}

// ---------------------------------------------------------------------------------------------
// Local alternates and reference designators

TEST_F(FillersTest, LocalAlternatesAndReferenceDesignators) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_PS find_number="10" quantity="6">
          <Item id="A"/>
          <Ref_Des designator="R3"/><Ref_Des designator="R1"/><Ref_Des designator="C2"/>
          <Ref_Des designator="R2"/><Ref_Des designator="C1"/><Ref_Des designator="U5"/>
          <Local_Alternate alternate_id="A-ALT1" id="not-this"/>
          <Local_Alternate alternate_id="A-ALT2"/>
        </Item_PS>
      </Item>)")));
    const XItemStruct& oRec = ctx.Model.XItems[1];
    EXPECT_EQ(oRec.RefDes, "C1,C2,R1-R3,U5");
    ASSERT_EQ(oRec.LAICount, 1);
    ASSERT_EQ(oRec.LAIs.size(), 2u);
    EXPECT_EQ(oRec.LAIs[0].Key1, "A-ALT1");
    EXPECT_EQ(oRec.LAIs[1].Key1, "A-ALT2");
    EXPECT_EQ(oRec.LAIs[0].Key2, "");
    EXPECT_FALSE(oRec.LAIs[0].Attrs.has_value());
    EXPECT_EQ(ctx.Model.XItems[0].LAICount, -1);
    EXPECT_EQ(ctx.Model.XItems[0].RefDes, "");
}

TEST_F(FillersTest, GroupingComponentIsCreatedOnlyForItemsWithDesignators) {
    Init("item-structure.xml");
    int nCreated = 0;
    std::vector<Strings> arrCalls;
    ctx.Options.Components.RegisterGroup(
        GROUP_PROG_ID, [&] { return std::make_unique<clsCountingGroup>(nCreated, arrCalls); });
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_PS><Item id="A"/></Item_PS>
        <Item_PS><Item id="B"/><Ref_Des designator="X2"/><Ref_Des designator="X1"/></Item_PS>
        <Item_PS><Item id="C"/><Local_Alternate alternate_id="C2"/></Item_PS>
      </Item>)")));
    EXPECT_EQ(nCreated, 1);
    ASSERT_EQ(arrCalls.size(), 1u);
    EXPECT_EQ(arrCalls[0], (Strings{"X2", "X1"}));
    EXPECT_EQ(ctx.Model.XItems[1].RefDes, "");
    EXPECT_EQ(ctx.Model.XItems[2].RefDes, "X1,X2");
    EXPECT_EQ(ctx.Model.XItems[3].RefDes, "");
}

TEST_F(FillersTest, ItemWithoutDesignatorsNeedsNoGroupingComponent) {
    Init("item-structure.xml");
    ctx.Options.Components.Unregister(GROUP_PROG_ID);
    ASSERT_TRUE(Parse(Root(R"(<Item id="T"><Item_PS><Item id="A"/></Item_PS></Item>)")));
    EXPECT_EQ(ctx.Model.ObjCount, 1);
    ExpectNoLog();
}

TEST_F(FillersTest, MissingGroupingComponentIsLoggedAndTheWalkGoesOn) {
    Init("item-structure.xml");
    ctx.Options.Components.Unregister(GROUP_PROG_ID);
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_PS quantity="2"><Item id="A"/><Ref_Des designator="R1"/></Item_PS>
        <Item_PS><Item id="B"/></Item_PS>
      </Item>)")));
    EXPECT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XItems[1].RefDes, "");
    EXPECT_EQ(ctx.Model.XItems[1].PSAttr1, "2");
    EXPECT_EQ(ctx.Model.XItems[2].Head.Key1, "B");
    ExpectLog({ErrorLine("Run-time error: ActiveX component can't create object", 429,
                         "FillLAIAndRefDes")});
}

TEST_F(FillersTest, GroupingWithoutRangesKeepsTheComponentsOrder) {
    Init("item-structure.xml");
    ctx.Options.Components.RegisterGroup(GROUP_PROG_ID,
                                         [] { return std::make_unique<clsGroupNone>(); });
    ASSERT_TRUE(Parse(Root(R"(<Item id="T"><Item_PS><Item id="A"/>
        <Ref_Des designator="R2"/><Ref_Des designator=""/><Ref_Des designator="R1"/>
      </Item_PS></Item>)")));
    EXPECT_EQ(ctx.Model.XItems[1].RefDes, "R2,,R1");
}

// ---------------------------------------------------------------------------------------------
// Manufacturers and vendors

namespace {

std::string Mnf(const std::string& sPart, const std::string& sId) {
    return "<Item_Manufacturer part_number=\"" + sPart + "\" mnf_status=\"ok-" + sId +
           "\" country=\"DE\"><Manufacturer id=\"" + sId + "\" name=\"Name " + sId +
           "\"/></Item_Manufacturer>";
}

// A vendor attached to a manufacturer: vendor object and manufacturer object as children.
std::string MnfVendor(const std::string& sMnfPart, const std::string& sSpn,
                      const std::string& sId) {
    return "<Item_Vendor supplier_part_number=\"" + sSpn + "\" mnf_part_number=\"" + sMnfPart +
           "\" lead_time=\"1w\" price=\"2.50\"><Vendor id=\"" + sId + "\" name=\"Vendor " + sId +
           "\"/><Manufacturer id=\"M\"/></Item_Vendor>";
}

// A vendor of the item itself: one child.
std::string ItemVendor(const std::string& sSpn, const std::string& sId) {
    return "<Item_Vendor supplier_part_number=\"" + sSpn +
           "\" lead_time=\"3d\" price=\"9\"><Vendor id=\"" + sId + "\" name=\"Vendor " + sId +
           "\"/></Item_Vendor>";
}

}  // namespace

TEST_F(FillersTest, ManufacturersAllWithoutVendorsGiveFlag1) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root("<Item id=\"T\">" + Mnf("P1", "M1") + Mnf("P2", "M2") + "</Item>")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.MNFCount, 1);
    EXPECT_EQ(oRec.MnfVndFlag, 1);
    EXPECT_EQ(oRec.VNDCount, -1);
    const MNFStruct& m = oRec.MNFs[1];
    EXPECT_EQ(m.Key1, "M2");
    EXPECT_EQ(m.Key2, "Name M2");
    EXPECT_EQ(m.Key3, "P2");
    EXPECT_EQ(*m.Attrs, (Strings{"ok-M2", "DE"}));
    EXPECT_EQ(m.VendorCount, -1);
    EXPECT_TRUE(m.Vendors.empty());
}

TEST_F(FillersTest, ManufacturersAllWithVendorsGiveFlag2) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root("<Item id=\"T\">" + Mnf("P1", "M1") + Mnf("P2", "M2") +
                           MnfVendor("P1", "S1", "V1") + MnfVendor("P2", "S2", "V2") +
                           MnfVendor("P1", "S3", "V3") + "</Item>")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    EXPECT_EQ(oRec.MnfVndFlag, 2);
    ASSERT_EQ(oRec.MNFs[0].VendorCount, 1);
    EXPECT_EQ(oRec.MNFs[0].Vendors[0].Key1, "V1");
    EXPECT_EQ(oRec.MNFs[0].Vendors[0].Key2, "Vendor V1");
    EXPECT_EQ(oRec.MNFs[0].Vendors[0].Key3, "S1");
    EXPECT_EQ(*oRec.MNFs[0].Vendors[0].Attrs, (Strings{"1w", "2.50"}));
    EXPECT_EQ(oRec.MNFs[0].Vendors[1].Key1, "V3");
    ASSERT_EQ(oRec.MNFs[1].VendorCount, 0);
    EXPECT_EQ(oRec.MNFs[1].Vendors[0].Key3, "S2");
    // Every vendor element belongs to a manufacturer.
    EXPECT_EQ(oRec.VNDCount, -1);
    EXPECT_TRUE(oRec.VNDs.empty());
}

TEST_F(FillersTest, ManufacturersWithAndWithoutVendorsGiveFlag3) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root("<Item id=\"T\">" + Mnf("P1", "M1") + Mnf("P2", "M2") +
                           MnfVendor("P2", "S1", "V1") + "</Item>")));
    EXPECT_EQ(ctx.Model.XItems[0].MnfVndFlag, 3);
    EXPECT_EQ(ctx.Model.XItems[0].MNFs[0].VendorCount, -1);
    EXPECT_EQ(ctx.Model.XItems[0].MNFs[1].VendorCount, 0);
}

TEST_F(FillersTest, MergeMnfVndFlag) {
    Init("item-structure.xml");
    clsXMLPars oPars(ctx);
    auto merge = [&](int16_t iFlag, int16_t iValue) {
        oPars.MergeMnfVndFlag(iFlag, iValue);
        return iFlag;
    };
    EXPECT_EQ(merge(0, 1), 1);
    EXPECT_EQ(merge(0, 2), 2);
    EXPECT_EQ(merge(1, 1), 1);
    EXPECT_EQ(merge(1, 2), 3);
    EXPECT_EQ(merge(2, 2), 2);
    EXPECT_EQ(merge(2, 1), 3);
    EXPECT_EQ(merge(3, 1), 3);
    EXPECT_EQ(merge(3, 2), 3);
}

TEST_F(FillersTest, VendorWithOneChildIsAnItemVendorWithTwoItIsNot) {
    Init("item-structure.xml");
    ASSERT_TRUE(
        Parse(Root("<Item id=\"T\">" + ItemVendor("S1", "V1") +
                   MnfVendor("NO-SUCH-MNF", "S2", "V2") + ItemVendor("S3", "V3") + "</Item>")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    EXPECT_EQ(oRec.MNFCount, -1);
    EXPECT_EQ(oRec.MnfVndFlag, 0);
    // Three vendor elements, none under a manufacturer: room for three, two filled.
    ASSERT_EQ(oRec.VNDCount, 2);
    EXPECT_EQ(oRec.VNDs[0].Key1, "V1");
    EXPECT_EQ(oRec.VNDs[0].Key2, "Vendor V1");
    EXPECT_EQ(oRec.VNDs[0].Key3, "S1");
    EXPECT_EQ(*oRec.VNDs[0].Attrs, (Strings{"3d", "9"}));
    EXPECT_EQ(oRec.VNDs[1].Key1, "V3");
    EXPECT_EQ(oRec.VNDs[2].Key1, "");
    ExpectNoLog();
}

TEST_F(FillersTest, ItemVendorsBesideManufacturerVendors) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root("<Item id=\"T\">" + Mnf("P1", "M1") + MnfVendor("P1", "S1", "V1") +
                           ItemVendor("S2", "V2") + "</Item>")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    EXPECT_EQ(oRec.MnfVndFlag, 2);
    ASSERT_EQ(oRec.VNDCount, 0);
    ASSERT_EQ(oRec.VNDs.size(), 1u);
    EXPECT_EQ(oRec.VNDs[0].Key1, "V2");
    EXPECT_EQ(oRec.VNDs[0].Key3, "S2");
}

TEST_F(FillersTest, AnItemVendorListThatFailsKeepsWhatItReadWithCountZero) {
    Init("item-structure.xml");
    // Two vendor elements of one child node each; the first names the listed manufacturer, so
    // it counts among the manufacturer's vendors and VNDs has room for one vendor only. The
    // first vendor fills it, the second does not fit.
    ASSERT_TRUE(Parse(Root(
        "<Item id=\"T\">" + Mnf("P1", "M1") +
        R"(<Item_Vendor supplier_part_number="S1" mnf_part_number="P1" lead_time="1w" price="2">)"
        R"(<Vendor id="V1" name="Vendor V1"/></Item_Vendor>)" +
        ItemVendor("S2", "V2") + "</Item>")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.MNFCount, 0);
    ASSERT_EQ(oRec.MNFs[0].VendorCount, 0);
    EXPECT_EQ(oRec.MNFs[0].Vendors[0].Key1, "V1");
    EXPECT_EQ(oRec.MnfVndFlag, 2);
    ASSERT_EQ(oRec.VNDCount, 0);
    ASSERT_EQ(oRec.VNDs.size(), 1u);
    EXPECT_EQ(oRec.VNDs[0].Key1, "V1");
    EXPECT_EQ(oRec.VNDs[0].Key2, "Vendor V1");
    EXPECT_EQ(oRec.VNDs[0].Key3, "S1");
    EXPECT_EQ(*oRec.VNDs[0].Attrs, (Strings{"1w", "2"}));
    EXPECT_EQ(testutil::ReadLogMasked(ctx.LogFilePath),
              "Run-time error: Subscript out of range 9 {now} in "
              "orvExportExcel:clsXMLPars[FillVNDOfItem]\r\n");
}

TEST_F(FillersTest, CommentCountsAsAChildNodeOfAVendor) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_Vendor supplier_part_number="S1"><!-- preferred --><Vendor id="V1"/></Item_Vendor>
        <Item_Vendor supplier_part_number="S2">
          <Vendor id="V2"/>
        </Item_Vendor>
      </Item>)")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.VNDCount, 1);
    EXPECT_EQ(oRec.VNDs[0].Key1, "V2");
}

TEST_F(FillersTest, ManufacturerKeyWithApostropheAndQuote) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(
        R"(<Item id="T">
          <Item_Manufacturer part_number="O'Neil &quot;7&quot;"><Manufacturer id="M1" name="O'Neil"/></Item_Manufacturer>
          <Item_Manufacturer part_number="O'Neil"><Manufacturer id="M2"/></Item_Manufacturer>
          <Item_Vendor supplier_part_number="S1" mnf_part_number="O'Neil &quot;7&quot;"><Vendor id="V1"/><M/></Item_Vendor>
          <Item_Vendor supplier_part_number="S2" mnf_part_number="O'Neil"><Vendor id="V2"/><M/></Item_Vendor>
          <Item_Vendor supplier_part_number="S3" mnf_part_number="O'Neil &quot;7&quot;"><Vendor id="V3"/><M/></Item_Vendor>
        </Item>)")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.MNFCount, 1);
    EXPECT_EQ(oRec.MNFs[0].Key3, "O'Neil \"7\"");
    ASSERT_EQ(oRec.MNFs[0].VendorCount, 1);
    EXPECT_EQ(oRec.MNFs[0].Vendors[0].Key1, "V1");
    EXPECT_EQ(oRec.MNFs[0].Vendors[1].Key1, "V3");
    ASSERT_EQ(oRec.MNFs[1].VendorCount, 0);
    EXPECT_EQ(oRec.MNFs[1].Vendors[0].Key1, "V2");
    EXPECT_EQ(oRec.MnfVndFlag, 2);
    EXPECT_EQ(oRec.VNDCount, -1);
    ExpectNoLog();
}

TEST_F(FillersTest, VendorsAreFoundAmongTheItemsOwnChildrenOnly) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root("<Item id=\"T\">" + Mnf("P1", "M1") + "<Item_PS><Item id=\"A\">" +
                           MnfVendor("P1", "S9", "V9") + "</Item></Item_PS></Item>")));
    EXPECT_EQ(ctx.Model.XItems[0].MNFs[0].VendorCount, -1);
    EXPECT_EQ(ctx.Model.XItems[0].MnfVndFlag, 1);
}

TEST_F(FillersTest, ManufacturerWithoutChildHasOnlyItsOwnKey) {
    Init("item-structure.xml");
    ASSERT_TRUE(
        Parse(Root(R"(<Item id="T"><Item_Manufacturer part_number="P" country="FR"/></Item>)")));
    const MNFStruct& m = ctx.Model.XItems[0].MNFs[0];
    EXPECT_EQ(m.Key1, "");
    EXPECT_EQ(m.Key2, "");
    EXPECT_EQ(m.Key3, "P");
    EXPECT_EQ(*m.Attrs, (Strings{"", "FR"}));
}

// ---------------------------------------------------------------------------------------------
// Relation lists and datasets

TEST_F(FillersTest, RelationToAnObjectOfAnotherKindLeavesAnEmptyEntry) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Item id="T">
        <Item_Document><Folder id="WRONG"/></Item_Document>
        <Item_Document><Document id="D1" revision="B" description="Drawing" doc_type="DRW" status="Rel" author="ann"/></Item_Document>
        <Item_Document/>
        <Item_Folder><Folder id="F1" revision="1" description="Lib" owner="bob" created="2020"/></Item_Folder>
        <Item_Folder><!-- c --><Folder id="F2"/></Item_Folder>
      </Item>)")));
    const XItemStruct& oRec = ctx.Model.XItems[0];
    ASSERT_EQ(oRec.DocCount, 2);
    ASSERT_EQ(oRec.Docs.size(), 3u);
    EXPECT_EQ(oRec.Docs[0].Key1, "");
    EXPECT_FALSE(oRec.Docs[0].Attrs.has_value());
    EXPECT_EQ(oRec.Docs[0].FileCount, -1);
    EXPECT_EQ(oRec.Docs[1].Key1, "D1");
    EXPECT_EQ(oRec.Docs[1].Key2, "Drawing");
    EXPECT_EQ(oRec.Docs[1].Key3, "B");
    EXPECT_EQ(*oRec.Docs[1].Attrs, (Strings{"DRW", "Rel", "ann"}));
    EXPECT_EQ(oRec.Docs[2].Key1, "");
    ASSERT_EQ(oRec.FolderCount, 1);
    EXPECT_EQ(oRec.Folders[0].Key1, "F1");
    EXPECT_EQ(oRec.Folders[0].Key2, "Lib");
    EXPECT_EQ(oRec.Folders[0].Key3, "1");
    EXPECT_EQ(*oRec.Folders[0].Attrs, (Strings{"bob", "2020"}));
    EXPECT_EQ(oRec.Folders[1].Key1, "");
    ExpectNoLog();
}

TEST_F(FillersTest, DocumentRecordWithRelationsAndFiles) {
    Init("doc-structure.xml");
    ASSERT_TRUE(Parse(Root(
        R"(<Document id="D" revision="C" description="Manual" doc_type="MAN" status="Released" author="ann">
        <Document_Dataset><Dataset file_name="a.pdf" file_type="PDF" file_size="1 MB"/></Document_Dataset>
        <Document_Dataset><Dataset file_name="b.docx" file_type="DOCX"/></Document_Dataset>
        <Document_Item><Item id="I1" revision="A" description="Pump" status="Rel" owner="o" unit="EA" weight="1" material="m"/></Document_Item>
        <Document_Item><Document id="WRONG"/></Document_Item>
        <Document_Folder><Folder id="F1" owner="bob"/></Document_Folder>
        <Document_Document><Document id="D2" revision="A">
          <Document_Dataset><Dataset file_name="c.txt"/></Document_Dataset>
        </Document></Document_Document>
      </Document>)")));
    const XDocStruct& oRec = ctx.Model.XDocs[0];
    EXPECT_EQ(oRec.Level, 0);
    EXPECT_EQ(oRec.Head.Key1, "D");
    EXPECT_EQ(oRec.Head.Key2, "Manual");
    EXPECT_EQ(oRec.Head.Key3, "C");
    EXPECT_EQ(*oRec.Head.Attrs, (Strings{"MAN", "Released", "ann"}));
    // Main-panel fields ORDER 5 (doc_type) and ORDER 6 (status).
    EXPECT_EQ(oRec.MainAttr5, "MAN");
    EXPECT_EQ(oRec.MainAttr6, "Released");
    ASSERT_EQ(oRec.Head.FileCount, 1);
    EXPECT_EQ(oRec.Head.Files[0].FileName, "a.pdf");
    EXPECT_EQ(*oRec.Head.Files[0].Attrs, (Strings{"PDF", "1 MB"}));
    EXPECT_EQ(oRec.Head.Files[1].FileName, "b.docx");
    EXPECT_EQ(*oRec.Head.Files[1].Attrs, (Strings{"DOCX", ""}));
    ASSERT_EQ(oRec.ItemCount, 1);
    EXPECT_EQ(oRec.Items[0].Key1, "I1");
    EXPECT_EQ(oRec.Items[0].Key2, "Pump");
    EXPECT_EQ(*oRec.Items[0].Attrs, (Strings{"Rel", "o", "EA", "1", "m"}));
    EXPECT_EQ(oRec.Items[1].Key1, "");
    ASSERT_EQ(oRec.FolderCount, 0);
    EXPECT_EQ(oRec.Folders[0].Key1, "F1");
    ASSERT_EQ(oRec.DocCount, 0);
    EXPECT_EQ(oRec.Docs[0].Key1, "D2");
    ASSERT_EQ(oRec.Docs[0].FileCount, 0);
    EXPECT_EQ(oRec.Docs[0].Files[0].FileName, "c.txt");
    EXPECT_EQ(oRec.Children, "");
    ExpectNoLog();
}

TEST_F(FillersTest, DocumentWithoutDatasetsHasFileCountMinus1) {
    Init("doc-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Document id="D"/>)")));
    EXPECT_EQ(ctx.Model.XDocs[0].Head.FileCount, -1);
    EXPECT_TRUE(ctx.Model.XDocs[0].Head.Files.empty());
    EXPECT_EQ(ctx.Model.XDocs[0].ItemCount, -1);
    EXPECT_EQ(ctx.Model.XDocs[0].FolderCount, -1);
    EXPECT_EQ(ctx.Model.XDocs[0].DocCount, -1);
}

TEST_F(FillersTest, DatasetHolderFaultsAreLoggedAndLeaveEmptyFiles) {
    Init("doc-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Document id="D-7">
        <Document_Dataset><File file_name="x.pdf"/></Document_Dataset>
        <Document_Dataset/>
        <Document_Dataset><Dataset file_name="ok.pdf"/></Document_Dataset>
        <Document_Dataset><!-- none --></Document_Dataset>
      </Document>)")));
    const DocStruct& oHead = ctx.Model.XDocs[0].Head;
    ASSERT_EQ(oHead.FileCount, 3);
    EXPECT_EQ(oHead.Files[0].FileName, "");
    EXPECT_FALSE(oHead.Files[0].Attrs.has_value());
    EXPECT_EQ(oHead.Files[1].FileName, "");
    EXPECT_EQ(oHead.Files[2].FileName, "ok.pdf");
    EXPECT_EQ(oHead.Files[3].FileName, "");
    ExpectLog({
        PlainLine("Error in the XML structure: File child of node Document_Dataset of document "
                  "D-7 is not a dataset."),
        PlainLine("Error in the XML structure: dataset holder Document_Dataset of document D-7 "
                  "has no children."),
        PlainLine("Error in the XML structure: #comment child of node Document_Dataset of "
                  "document D-7 is not a dataset."),
    });
}

TEST_F(FillersTest, DatasetFaultOfARelatedDocumentNamesThatDocument) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(R"(<Item id="T"><Item_Document><Document id="REL-1">
        <Document_Dataset/></Document></Item_Document></Item>)")));
    EXPECT_EQ(ctx.Model.XItems[0].Docs[0].FileCount, 0);
    ExpectLog(
        {PlainLine("Error in the XML structure: dataset holder Document_Dataset of "
                   "document REL-1 has no children.")});
}

TEST_F(FillersTest, FolderRecordWithRelations) {
    Init("folder-structure.xml");
    ASSERT_TRUE(
        Parse(Root(R"(<Folder id="F" revision="2" description="Project" owner="ann" created="2024">
        <Folder_Item><Item id="I1" description="Pump"/></Folder_Item>
        <Folder_Document><Document id="D1"><Document_Dataset><Dataset file_name="p.pdf"/></Document_Dataset></Document></Folder_Document>
        <Folder_Document><Item id="WRONG"/></Folder_Document>
        <Folder_Folder><Folder id="F9" description="Lib"/></Folder_Folder>
      </Folder>)")));
    const XFoldStruct& oRec = ctx.Model.XFolders[0];
    EXPECT_EQ(oRec.Head.Key1, "F");
    EXPECT_EQ(oRec.Head.Key2, "Project");
    EXPECT_EQ(oRec.Head.Key3, "2");
    EXPECT_EQ(*oRec.Head.Attrs, (Strings{"ann", "2024"}));
    // Main-panel field ORDER 5 of folders: owner.
    EXPECT_EQ(oRec.MainAttr5, "ann");
    ASSERT_EQ(oRec.ItemCount, 0);
    EXPECT_EQ(oRec.Items[0].Key2, "Pump");
    ASSERT_EQ(oRec.DocCount, 1);
    EXPECT_EQ(oRec.Docs[0].Files[0].FileName, "p.pdf");
    EXPECT_EQ(oRec.Docs[1].Key1, "");
    ASSERT_EQ(oRec.FolderCount, 0);
    EXPECT_EQ(oRec.Folders[0].Key2, "Lib");
    ExpectNoLog();
}

TEST_F(FillersTest, ErrorInAFillerIsLoggedWithItsTag) {
    Init("item-structure.xml");
    clsXMLPars oPars(ctx);
    pugi::xml_document oDoc;
    ASSERT_TRUE(oDoc.load_string("<Item id='x'/>"));
    // No record at index 5.
    EXPECT_EQ(oPars.FillMNFArray(oDoc.first_child(), 5), 0);
    EXPECT_FALSE(oPars.FillItemOfObjItem(oDoc.first_child(), 5, 0));
    ExpectLog({ErrorLine("Run-time error: Subscript out of range", 9, "FillMNFArray"),
               ErrorLine("Run-time error: Subscript out of range", 9, "FillItemOfObjItem")});
}

TEST_F(FillersTest, EveryListFillerThatFailsReturnsZero) {
    Init("item-structure.xml");
    clsXMLPars oPars(ctx);
    pugi::xml_document oDoc;
    ASSERT_TRUE(oDoc.load_string("<Item id='x'/>"));
    const pugi::xml_node n = oDoc.first_child();
    // No record at index 5, in any of the three arrays.
    const std::vector<std::pair<std::string, long>> arr = {
        {"FillMNFArray", oPars.FillMNFArray(n, 5)},
        {"FillVNDOfMNF", oPars.FillVNDOfMNF(n, 5, 0)},
        {"FillVNDOfItem", oPars.FillVNDOfItem(n, 5, 0)},
        {"FillDocArrayForItem", oPars.FillDocArrayForItem(n, 5)},
        {"FillFolderArrayForItem", oPars.FillFolderArrayForItem(n, 5)},
        {"FillItemArrayForDoc", oPars.FillItemArrayForDoc(n, 5)},
        {"FillFolderArrayForDoc", oPars.FillFolderArrayForDoc(n, 5)},
        {"FillDocArrayForDoc", oPars.FillDocArrayForDoc(n, 5)},
        {"FillItemArrayForFold", oPars.FillItemArrayForFold(n, 5)},
        {"FillDocArrayForFold", oPars.FillDocArrayForFold(n, 5)},
        {"FillFolderArrayForFolder", oPars.FillFolderArrayForFolder(n, 5)}};
    std::string sExpected;
    for (const auto& [sProc, lResult] : arr) {
        EXPECT_EQ(lResult, 0) << sProc;
        sExpected +=
            "Run-time error: Subscript out of range 9 {now} in orvExportExcel:clsXMLPars[" + sProc +
            "]\r\n";
    }
    EXPECT_EQ(testutil::ReadLogMasked(ctx.LogFilePath), sExpected);
}
