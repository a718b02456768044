// Loading the data file, the top level, and the walk that numbers the objects.
#include <string>

#include "ParseFixture.h"

using namespace parsetest;

namespace {

// Small builders for structures where only the shape matters.
std::string Item(const std::string& sId, const std::string& sInner = "") {
    return "<Item id=\"" + sId + "\">" + sInner + "</Item>";
}
std::string PS(const std::string& sInner) {
    return "<Item_PS>" + sInner + "</Item_PS>";
}

std::string Doc(const std::string& sId, const std::string& sInner = "") {
    return "<Document id=\"" + sId + "\">" + sInner + "</Document>";
}
std::string DocPS(const std::string& sInner) {
    return "<Document_PS>" + sInner + "</Document_PS>";
}

std::string Fold(const std::string& sId, const std::string& sInner = "") {
    return "<Folder id=\"" + sId + "\">" + sInner + "</Folder>";
}
std::string FoldPS(const std::string& sInner) {
    return "<Folder_PS>" + sInner + "</Folder_PS>";
}

}  // namespace

class WalkTest : public ParseFixture {};

TEST_F(WalkTest, TwoChildrenFirstWithOneChild) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A", PS(Item("A1")))) + PS(Item("B"))))));
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    ASSERT_EQ(arr.size(), 4u);
    EXPECT_EQ(arr[0].Head.Key1, "T");
    EXPECT_EQ(arr[1].Head.Key1, "A");
    EXPECT_EQ(arr[2].Head.Key1, "A1");
    EXPECT_EQ(arr[3].Head.Key1, "B");
    EXPECT_EQ(arr[0].Level, 0);
    EXPECT_EQ(arr[1].Level, 1);
    EXPECT_EQ(arr[2].Level, 2);
    EXPECT_EQ(arr[3].Level, 1);
    EXPECT_EQ(arr[0].Children, "1!3!");
    EXPECT_EQ(arr[1].Children, "2!");
    EXPECT_EQ(arr[2].Children, "");
    EXPECT_EQ(arr[3].Children, "");
    EXPECT_EQ(ctx.Model.RootObjName, "Item");
    ExpectNoLog();
}

TEST_F(WalkTest, ThreeChildrenAndLeaf) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A")) + PS(Item("B")) + PS(Item("C"))))));
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "1!2!3!");
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(ctx.Model.XItems[i].Level, 1);
        EXPECT_EQ(ctx.Model.XItems[i].Children, "");
    }
}

TEST_F(WalkTest, StructureElementsBetweenOtherChildren) {
    Init("item-structure.xml");
    // Relation elements and comments between the structure elements are passed over.
    ASSERT_TRUE(Parse(Root(Item("T", "<Item_Document/>" + PS(Item("A")) + "<!-- note -->" +
                                         "<Item_Folder/>" + PS(Item("B")) + "text"))));
    ASSERT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "1!2!");
    EXPECT_EQ(ctx.Model.XItems[2].Head.Key1, "B");
}

TEST_F(WalkTest, DeepLevelsClimbBackToEachAncestor) {
    Init("item-structure.xml");
    // T > A > A1 > A11, then A2 under A, then B under T.
    ASSERT_TRUE(Parse(Root(Item(
        "T", PS(Item("A", PS(Item("A1", PS(Item("A11")))) + PS(Item("A2")))) + PS(Item("B"))))));
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 5);
    const char* arrIds[] = {"T", "A", "A1", "A11", "A2", "B"};
    const int arrLevels[] = {0, 1, 2, 3, 2, 1};
    const char* arrChildren[] = {"1!5!", "2!4!", "3!", "", "", ""};
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(arr[i].Head.Key1, arrIds[i]) << i;
        EXPECT_EQ(arr[i].Level, arrLevels[i]) << i;
        EXPECT_EQ(arr[i].Children, arrChildren[i]) << i;
    }
}

TEST_F(WalkTest, VeryDeepStructureIsWalkedWithoutRecursion) {
    Init("item-structure.xml");
    const int nDepth = 50000;
    std::string sXml = "<Root_Element>";
    for (int i = 0; i < nDepth; ++i)
        sXml += "<Item id=\"I" + std::to_string(i) + "\"><Item_PS>";
    sXml += "<Item id=\"LEAF\"/>";
    for (int i = 0; i < nDepth; ++i)
        sXml += "</Item_PS></Item>";
    sXml += "</Root_Element>";
    ASSERT_TRUE(Parse(sXml));
    ASSERT_EQ(ctx.Model.ObjCount, nDepth);
    EXPECT_EQ(ctx.Model.XItems[nDepth].Head.Key1, "LEAF");
    EXPECT_EQ(ctx.Model.XItems[nDepth].Level, nDepth);
    EXPECT_EQ(ctx.Model.XItems[nDepth - 1].Children, std::to_string(nDepth) + "!");
}

TEST_F(WalkTest, CollectionOfThreeSiblings) {
    Init("item-collection.xml");
    ASSERT_TRUE(
        Parse(Root(Item("A") + "<Other/><!-- between -->" + Item("B") + "<Other/>" + Item("C"))));
    ASSERT_EQ(ctx.Model.ObjCount, 2);
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(arr.size(), 3u);
    const char* arrIds[] = {"A", "B", "C"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(arr[i].Head.Key1, arrIds[i]);
        EXPECT_EQ(arr[i].Level, 0);
        EXPECT_EQ(arr[i].Children, "");
    }
    ExpectNoLog();
}

TEST_F(WalkTest, CollectionObjectsAreWalkedIntoWhenTheyHaveStructure) {
    Init("item-collection.xml");
    ASSERT_TRUE(Parse(Root(Item("A", PS(Item("A1")) + PS(Item("A2"))) + Item("B"))));
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    const auto& arr = ctx.Model.XItems;
    EXPECT_EQ(arr[0].Children, "1!2!");
    EXPECT_EQ(arr[1].Level, 1);
    EXPECT_EQ(arr[2].Level, 1);
    EXPECT_EQ(arr[3].Head.Key1, "B");
    EXPECT_EQ(arr[3].Level, 0);
}

TEST_F(WalkTest, StructureExportReadsOnlyTheFirstTopObject) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A"))) + Item("SECOND", PS(Item("S1"))))));
    EXPECT_EQ(ctx.Model.ObjCount, 1);
    ASSERT_EQ(ctx.Model.XItems.size(), 2u);
    EXPECT_EQ(ctx.Model.XItems[1].Head.Key1, "A");
}

TEST_F(WalkTest, StructureExportOfALeafTopObject) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T") + Item("SECOND"))));
    EXPECT_EQ(ctx.Model.ObjCount, 0);
    EXPECT_EQ(ctx.Model.XItems.size(), 1u);
}

TEST_F(WalkTest, RootOfWrongName) {
    Init("item-structure.xml");
    EXPECT_FALSE(Parse("<Export>" + Item("T") + "</Export>"));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_TRUE(ctx.Model.XItems.empty());
    ExpectLog({PlainLine("The root node Root_Element was not found. Error in the XML structure:")});
}

TEST_F(WalkTest, FirstChildOfWrongKind) {
    Init("item-structure.xml");
    EXPECT_FALSE(Parse(Root(Doc("D1") + Item("T"))));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_TRUE(ctx.Model.XItems.empty());
    EXPECT_TRUE(ctx.Model.XDocs.empty());
    EXPECT_EQ(ctx.Model.RootObjName, "Document");
    ExpectLog(
        {PlainLine("Item is not the first child node of the root. Error in the XML structure:")});
}

TEST_F(WalkTest, FirstChildOfAnotherKindThanTheExport) {
    // A document export whose data file holds items.
    Init("doc-structure.xml");
    EXPECT_FALSE(Parse(Root(Item("T"))));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_TRUE(ctx.Model.XItems.empty());
    ExpectLog({PlainLine(
        "Document is not the first child node of the root. Error in the XML structure:")});
}

TEST_F(WalkTest, CommentBeforeTheFirstObjectIsTheFirstChild) {
    Init("item-structure.xml");
    EXPECT_FALSE(Parse(Root("<!-- exported by PLM -->" + Item("T"))));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_EQ(ctx.Model.RootObjName, "#comment");
    ExpectLog(
        {PlainLine("Item is not the first child node of the root. Error in the XML structure:")});
}

TEST_F(WalkTest, WhitespaceBeforeTheFirstObjectIsNoNode) {
    Init("item-structure.xml");
    EXPECT_TRUE(Parse("<Root_Element>\n   \t\n" + Item("T") + "\n</Root_Element>"));
    EXPECT_EQ(ctx.Model.ObjCount, 0);
    ExpectNoLog();
}

TEST_F(WalkTest, EmptyRootFillsNothingAndLogsNothing) {
    Init("item-structure.xml");
    for (const char* sXml : {"<Root_Element/>", "<Root_Element></Root_Element>",
                             "<Root_Element>\n  \t\r\n</Root_Element>"}) {
        SCOPED_TRACE(sXml);
        EXPECT_FALSE(Parse(sXml));
        EXPECT_EQ(ctx.Model.ObjCount, -1);
        EXPECT_TRUE(ctx.Model.XItems.empty());
        EXPECT_EQ(ctx.Model.RootObjName, "");
        EXPECT_FALSE(std::filesystem::exists(ctx.LogFilePath));
    }
}

TEST_F(WalkTest, RootHoldingOnlyACommentHasAFirstChildOfTheWrongKind) {
    Init("item-structure.xml");
    EXPECT_FALSE(Parse(Root("<!-- nothing exported -->")));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_EQ(ctx.Model.RootObjName, "#comment");
    EXPECT_EQ(
        testutil::ReadLogMasked(ctx.LogFilePath),
        "Item is not the first child node of the root. Error in the XML structure: {now}\r\n");
}

TEST_F(WalkTest, ElementsInADefaultNamespaceAreMatchedByTheirNames) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse("<Root_Element xmlns=\"urn:example:plm\">" +
                      Item("T", PS(Item("A")) + PS(Item("B"))) + "</Root_Element>"));
    ASSERT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XItems[2].Head.Key1, "B");
    ExpectNoLog();
}

TEST_F(WalkTest, EmptyFirstStructureElementIsLoggedAndSkipped) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", "<Item_PS/>"))));
    EXPECT_EQ(ctx.Model.ObjCount, 0);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "");
    ExpectLog({StructureLine("Error in the XML structure: Item_PS of item T has no children.")});
}

TEST_F(WalkTest, EmptyStructureElementAfterAChildNamesTheParent) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A", PS(Item("A1")))) + "<Item_PS></Item_PS>"))));
    EXPECT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "1!");
    ExpectLog({StructureLine("Error in the XML structure: Item_PS of item T has no children.")});
}

TEST_F(WalkTest, EmptyStructureElementEndsTheChildrenOfItsParent) {
    // The walk does not look past an empty structure element for further children of the same
    // parent; it climbs back to the parent's own siblings.
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(
        Item("T", PS(Item("A", PS(Item("A1")) + "<Item_PS/>" + PS(Item("A2")))) + PS(Item("B"))))));
    const auto& arr = ctx.Model.XItems;
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(arr[2].Head.Key1, "A1");
    EXPECT_EQ(arr[3].Head.Key1, "B");
    EXPECT_EQ(arr[0].Children, "1!3!");
    EXPECT_EQ(arr[1].Children, "2!");
    ExpectLog({StructureLine("Error in the XML structure: Item_PS of item A has no children.")});
}

TEST_F(WalkTest, StructureElementWithAnotherFirstChildIsNotDescended) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Doc("D1")) + PS(Item("A"))))));
    EXPECT_EQ(ctx.Model.ObjCount, 0);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "");
    ExpectNoLog();
}

TEST_F(WalkTest, StructureElementStartingWithACommentIsNotDescended) {
    Init("item-structure.xml");
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A")) + PS("<!-- c -->" + Item("B"))))));
    EXPECT_EQ(ctx.Model.ObjCount, 1);
    EXPECT_EQ(ctx.Model.XItems[0].Children, "1!");
    ExpectNoLog();
}

TEST_F(WalkTest, MalformedFileLogsReasonLineAndPosition) {
    Init("item-structure.xml");
    EXPECT_FALSE(Parse("<Root_Element>\n  <Item id=\"T\">\n  </Itemx>\n</Root_Element>\n"));
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    ExpectLog({PlainLine(
        "The data file could not be parsed: Start-end tags mismatch on line 3 at position 5")});
}

TEST_F(WalkTest, LoadErrorPositionCountsCharacters) {
    Init("item-structure.xml");
    const std::string sExpected =
        "The data file could not be parsed: Start-end tags mismatch on line 2 at position 23 "
        "{now}\r\n";
    for (const char* sName : {"Pump", "P\xC3\xBCmp",
                              "\xE6\xB3\xB5\xE6\xB3\xB5"
                              "\xE6\xB3\xB5\xE6\xB3\xB5"}) {
        SCOPED_TRACE(sName);
        std::filesystem::remove(ctx.LogFilePath);
        // The "C" of "</C>" is the 23rd character of the second line, whatever the bytes.
        EXPECT_FALSE(Parse(std::string("<Root_Element>\n  <Item name=\"") + sName +
                           "\"></C>\n</Root_Element>"));
        EXPECT_EQ(testutil::ReadLogMasked(ctx.LogFilePath), sExpected);
    }
}

TEST_F(WalkTest, MissingFileIsNotLoaded) {
    Init("item-structure.xml");
    clsXMLPars oPars(ctx);
    std::unique_ptr<pugi::xml_document> oDoc;
    EXPECT_FALSE(oPars.LoadCurrentXML(oDoc, oDir.File("missing.xml")));
    ExpectLog({PlainLine(
        "The data file could not be parsed: File could not be opened on line 0 at position 0")});
}

TEST_F(WalkTest, GetRootAndNextSibling) {
    Init("item-structure.xml");
    pugi::xml_document oDoc;
    ASSERT_TRUE(oDoc.load_string("<Root_Element><a/><!--c--><b/>text<a/><b/></Root_Element>",
                                 clsXMLIniData::ParseOptions()));
    clsXMLPars oPars(ctx);
    EXPECT_EQ(oPars.GetRoot(oDoc, "Root_Element"), oDoc.document_element());
    EXPECT_FALSE(oPars.GetRoot(oDoc, "root_element"));
    pugi::xml_node oFirst = oDoc.document_element().first_child();
    pugi::xml_node oB = oPars.GetNextSiblingDefNode(oFirst, "b");
    ASSERT_TRUE(oB);
    EXPECT_EQ(oB.previous_sibling().type(), pugi::node_comment);
    pugi::xml_node oA = oPars.GetNextSiblingDefNode(oB, "a");
    ASSERT_TRUE(oA);
    EXPECT_FALSE(oPars.GetNextSiblingDefNode(oA, "a"));
}

TEST_F(WalkTest, DocumentStructure) {
    Init("doc-structure.xml");
    ASSERT_TRUE(Parse(Root(Doc("D", DocPS(Doc("D1", DocPS(Doc("D11")))) + "<Document_Document>" +
                                        Doc("REL") + "</Document_Document>" + DocPS(Doc("D2"))))));
    const auto& arr = ctx.Model.XDocs;
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(arr[0].Children, "1!3!");
    EXPECT_EQ(arr[1].Children, "2!");
    EXPECT_EQ(arr[2].Level, 2);
    EXPECT_EQ(arr[3].Head.Key1, "D2");
    EXPECT_EQ(arr[3].Level, 1);
    // The related document is a relation, not a child.
    EXPECT_EQ(arr[0].DocCount, 0);
    EXPECT_EQ(arr[0].Docs[0].Key1, "REL");
    EXPECT_EQ(ctx.Model.RootObjName, "Document");
}

TEST_F(WalkTest, EmptyDocumentStructureElementNamesTheDocument) {
    Init("doc-structure.xml");
    ASSERT_TRUE(Parse(Root(Doc("D", DocPS(Doc("D1")) + "<Document_PS/>"))));
    EXPECT_EQ(ctx.Model.ObjCount, 1);
    ExpectLog(
        {StructureLine("Error in the XML structure: Document_PS of document D has no children.")});
}

TEST_F(WalkTest, DocumentCollection) {
    Init("doc-collection.xml");
    ASSERT_TRUE(Parse(Root(Doc("D1") + Doc("D2", DocPS(Doc("D21"))) + Doc("D3"))));
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(ctx.Model.XDocs[1].Children, "2!");
    EXPECT_EQ(ctx.Model.XDocs[3].Head.Key1, "D3");
    EXPECT_EQ(ctx.Model.XDocs[3].Level, 0);
}

TEST_F(WalkTest, FolderStructure) {
    Init("folder-structure.xml");
    ASSERT_TRUE(Parse(Root(Fold("F", FoldPS(Fold("F1")) + FoldPS(Fold("F2", FoldPS(Fold("F21"))))) +
                           Fold("IGNORED"))));
    const auto& arr = ctx.Model.XFolders;
    ASSERT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(arr[0].Children, "1!2!");
    EXPECT_EQ(arr[2].Children, "3!");
    EXPECT_EQ(arr[3].Level, 2);
    EXPECT_EQ(ctx.Model.RootObjName, "Folder");
}

TEST_F(WalkTest, EmptyFolderStructureElementNamesTheFolder) {
    Init("folder-structure.xml");
    ASSERT_TRUE(Parse(Root(Fold("F", "<Folder_PS/>"))));
    EXPECT_EQ(ctx.Model.ObjCount, 0);
    ExpectLog(
        {StructureLine("Error in the XML structure: Folder_PS of folder F has no children.")});
}

TEST_F(WalkTest, FolderCollection) {
    Init("folder-collection.xml");
    ASSERT_TRUE(Parse(Root(Fold("F1") + Fold("F2") + Fold("F3"))));
    EXPECT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XFolders[2].Head.Key1, "F3");
}

TEST_F(WalkTest, ProgressIsReportedPerObject) {
    Init("item-structure.xml");
    std::vector<long> arrDone;
    long lFinalTotal = -1;
    ctx.Options.OnProgress = [&](const clsProgress& p) {
        EXPECT_EQ(p.eStage, clsProgress::Stage::Parsing);
        arrDone.push_back(p.lDone);
        if (p.lTotal) lFinalTotal = p.lTotal;
    };
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A")) + PS(Item("B"))))));
    EXPECT_EQ(arrDone, (std::vector<long>{1, 2, 3, 3}));
    EXPECT_EQ(lFinalTotal, 3);
}

namespace {

// The elements named sName in a document.
size_t CountElements(const pugi::xml_document& oDoc, const std::string& sName) {
    size_t n = 0;
    for (const pugi::xpath_node& x : oDoc.select_nodes(("//" + sName).c_str()))
        n += x.node() ? 1 : 0;
    return n;
}

}  // namespace

// What the walk has read goes out of the document as it goes, so that the export's records take
// its room: the structure elements of walked children, and the objects of a collection before
// the last one.
TEST_F(WalkTest, WalkedStructureElementsLeaveTheDocument) {
    Init("item-structure.xml");
    const std::string sPath = oDir.File("structure.xml");
    testutil::WriteFile(
        sPath, Root(Item("T", PS(Item("A", PS(Item("A1")))) + PS(Item("B")) + "<Item_Document/>")));
    clsXMLPars oPars(ctx);
    std::unique_ptr<pugi::xml_document> oDoc;
    ASSERT_TRUE(oPars.LoadCurrentXML(oDoc, sPath));
    EXPECT_EQ(CountElements(*oDoc, "Item"), 4u);
    ASSERT_TRUE(oPars.MainXStruct(*oDoc));
    EXPECT_EQ(ctx.Model.ObjCount, 3);
    // The walk ends on the top object's last child, whose structure element stays.
    EXPECT_EQ(CountElements(*oDoc, "Item"), 2u);
    EXPECT_EQ(CountElements(*oDoc, "Item_PS"), 1u);
    EXPECT_EQ(
        oDoc->document_element().first_child().first_child().first_child().attribute("id").value(),
        std::string("B"));
    EXPECT_EQ(CountElements(*oDoc, "Item_Document"), 1u);
}

TEST_F(WalkTest, WalkedObjectsOfACollectionLeaveTheDocument) {
    Init("item-collection.xml");
    std::unique_ptr<pugi::xml_document> oDoc;
    const std::string sCollection = oDir.File("collection.xml");
    testutil::WriteFile(sCollection,
                        Root(Item("A", PS(Item("A1"))) + "<Other/>" + Item("B") + Item("C")));
    clsXMLPars oPars2(ctx);
    ASSERT_TRUE(oPars2.LoadCurrentXML(oDoc, sCollection));
    ASSERT_TRUE(oPars2.MainXStruct(*oDoc));
    EXPECT_EQ(ctx.Model.ObjCount, 3);
    EXPECT_EQ(ctx.Model.XItems[3].Head.Key1, "C");
    EXPECT_EQ(CountElements(*oDoc, "Item"), 1u);
    EXPECT_EQ(CountElements(*oDoc, "Other"), 1u);
}

// An element far deeper than the stack goes out of the document with the object that holds it,
// a leaf at a time.
TEST_F(WalkTest, ADeepElementInsideAWalkedObjectLeavesWithoutRecursion) {
    Init("item-structure.xml");
    const int nDepth = 200000;
    std::string sDeep;
    for (int i = 0; i < nDepth; ++i)
        sDeep += "<Deep>";
    for (int i = 0; i < nDepth; ++i)
        sDeep += "</Deep>";
    ASSERT_TRUE(Parse(Root(Item("T", PS(Item("A", sDeep)) + PS(Item("B"))))));
    ASSERT_EQ(ctx.Model.ObjCount, 2);
    EXPECT_EQ(ctx.Model.XItems[2].Head.Key1, "B");
    EXPECT_EQ(ctx.Model.XItems[0].Children, "1!2!");
}
