#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include <sys/stat.h>

#include "TestUtil.h"
#include "settings/clsXMLIniData.h"

using testutil::TempDir;

namespace {

const char* kSettings = R"(<?xml version="1.0"?>
<ROOT>
  <EMPTY_SECTION></EMPTY_SECTION>
  <ZERO>
    <A ORDER="0">a</A>
    <B>b</B>
  </ZERO>
  <TIES>
    <FIRST ORDER="2" FIELD="f1">first</FIRST>
    <SECOND ORDER="2" FIELD="f2">second</SECOND>
    <THIRD ORDER="1" FIELD="f3">third</THIRD>
  </TIES>
  <SECTION>
    <ID ORDER="1" FIELD="id" POS="7">Identifier</ID>
    <REV ORDER="2" FIELD="rev">Revision</REV>
    <DESC ORDER="3" FIELD="desc" POS="9">Des<b>crip</b>tion</DESC>
    <SKIP ORDER="0">Not ordered</SKIP>
  </SECTION>
  <VIS>
    <ATTRS>
      <A1 SHOW="True"/><A2 SHOW="True"/><A3 SHOW="False"/><A4 SHOW="True"/>
      <A5 SHOW="True"/><A6 SHOW="True"/>
    </ATTRS>
  </VIS>
  <DEEP><PATH><LABEL>deep label</LABEL></PATH></DEEP>
</ROOT>)";

}  // namespace

TEST(SetCurNode, SectionWithoutChildrenCountsAsMissingAndClearsTheCurrentNode) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    EXPECT_EQ(o.CurNodeChildNumber(), 4);
    EXPECT_FALSE(o.SetCurNode("EMPTY_SECTION"));
    EXPECT_EQ(o.CurNodeChildNumber(), 0);
    EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "");  // no current node: empty
    EXPECT_EQ(o.GetFieldNameUseCurNodeByID(1, "alt"), "alt");
    EXPECT_FALSE(o.SetCurNode("NO_SUCH_SECTION"));
    EXPECT_FALSE(o.SetCurNode("bad[[xpath"));
}

TEST(GetOrderedAttrList, AllOrdersZeroGiveNoListAndCountMinusOne) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    long lCount = 5;
    clsOrderArray arr;
    auto list = o.GetOrderedAttrList("ZERO", lCount, arr);
    EXPECT_EQ(lCount, -1);
    EXPECT_EQ(list.size(), 0u);
    list = o.GetOrderedAttrList("MISSING", lCount, arr);
    EXPECT_EQ(lCount, -1);
}

TEST(GetOrderedAttrList, ExchangeSortTieBreakOnTwoTwoOne) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    long lCount = -1;
    clsOrderArray arr;
    auto list = o.GetOrderedAttrList("TIES", lCount, arr);
    ASSERT_EQ(lCount, 2);
    std::vector<std::string> arrNames;
    for (long i = 0; i <= lCount; ++i)
        arrNames.push_back(list[arr[i][0]].node().name());
    // [2 (first), 2 (second), 1] ends as [1, 2 (second), 2 (first)].
    EXPECT_EQ(arrNames, (std::vector<std::string>{"THIRD", "SECOND", "FIRST"}));
    EXPECT_EQ(arr[0][1], 1);
    EXPECT_EQ(arr[1][1], 2);
    EXPECT_EQ(arr[2][1], 2);
}

TEST(GetOrderedAttrList, LeavesOutOrderZeroAndSortsByOrder) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    long lCount = -1;
    clsOrderArray arr;
    auto list = o.GetOrderedAttrList("SECTION", lCount, arr);
    ASSERT_EQ(lCount, 2);
    EXPECT_EQ(std::string(list[arr[0][0]].node().name()), "ID");
    EXPECT_EQ(std::string(list[arr[2][0]].node().name()), "DESC");
}

TEST(GetAttrRows, FiveVisibleAttributesWithFourOrFiveColumnsNeedThreeRows) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    EXPECT_EQ(o.GetAttrRows("ATTRS", "SHOW", 4), 3);  // pairs 2: 5 / 2 = 2, remainder 1
    EXPECT_EQ(o.GetAttrRows("ATTRS", "SHOW", 5), 3);  // pairs 2 as well
    EXPECT_EQ(o.GetAttrRows("ATTRS", "SHOW", 6), 2);  // pairs 3
    EXPECT_EQ(o.GetAttrRows("ATTRS", "SHOW", 10), 1);
    EXPECT_EQ(o.GetAttrRows("ATTRS", "SHOW", 1), 0);  // pairs 0: the division fails
    EXPECT_EQ(o.GetAttrRows("ATTRS", "NOPE", 4), 0);
}

TEST(Lookups, ByIdByLabelAndByPath) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "Identifier");
    EXPECT_EQ(o.GetLabelUseCurNodeByID(3), "Description");  // string-value of the node
    EXPECT_EQ(o.GetLabelUseCurNodeByID(9), "");
    EXPECT_EQ(o.GetFieldNameUseCurNodeByID(2), "rev");
    EXPECT_EQ(o.GetFieldNameUseCurNodeByID(9, "alt"), "alt");
    EXPECT_EQ(o.GetLabelUseCurNode("REV"), "Revision");
    EXPECT_EQ(o.GetNodeNameUseCurNodeByLabel("Revision"), "REV");
    EXPECT_EQ(o.GetFieldNameUseCurNodeByLabel("Identifier"), "id");
    EXPECT_EQ(o.GetNodeNameUseCurNodeByLabel("O'Brien"), "");  // an apostrophe finds nothing
    EXPECT_EQ(o.GetLabelUsePath("DEEP/PATH/LABEL"), "deep label");
    EXPECT_EQ(o.GetLabelUsePath("//LABEL"), "deep label");
    EXPECT_EQ(o.GetLabelUsePathByID("SECTION", 2), "Revision");
    EXPECT_EQ(o.GetNodeNameUsePathByLabel("SECTION", "Identifier"), "ID");
}

TEST(Lookups, IndexAndPositionArguments) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    std::string sIndex = "x";  // any non-empty text asks for the attribute
    EXPECT_EQ(o.GetLabelUseCurNodeByID(1, &sIndex, "POS"), "Identifier");
    EXPECT_EQ(sIndex, "7");
    std::string sEmpty;
    o.GetLabelUseCurNodeByID(1, &sEmpty, "POS");
    EXPECT_EQ(sEmpty, "");  // an empty index is left untouched
    std::string sPos = "old";
    EXPECT_EQ(o.GetNodeNameUseCurNodeByLabel("Description", true, &sPos, "POS"), "DESC");
    EXPECT_EQ(sPos, "9");
    sPos = "old";
    EXPECT_EQ(o.GetFieldNameUseCurNodeByLabel("Nothing", true, &sPos, "POS"), "");
    EXPECT_EQ(sPos, "");  // no match: emptied
}

TEST(GetAttrValue, MissingAttributeIsEmpty) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    pugi::xml_node n = o.CurNode().child("ID");
    EXPECT_EQ(o.GetAttrValue(n, "FIELD"), "id");
    EXPECT_EQ(o.GetAttrValue(n, "NOPE"), "");
}

TEST(LoadXDoc, ParseErrorMessageStartsWithTheDateAndNamesLineAndPosition) {
    TempDir tmp;
    std::string sPath = tmp.File("bad.xml");
    testutil::WriteFile(sPath, "<ROOT>\n  <A>text</A>\n  <B></C>\n</ROOT>\n");
    clsXMLIniData o;
    std::string sErr;
    EXPECT_FALSE(o.LoadXDoc(sPath, sErr));
    std::smatch m;
    ASSERT_TRUE(std::regex_match(
        sErr, m,
        std::regex(std::string("^") + testutil::kDateTimeRegex +
                   " IniDoc Load Parse error: (.+) On Line: (\\d+) At Position: (\\d+)$")))
        << sErr;
    EXPECT_EQ(m[2].str(), "Start-end tags mismatch");
    EXPECT_EQ(m[3].str(), "3");
    EXPECT_EQ(m[4].str(), "8");  // the offending "C" of "</C>"
}

TEST(LoadXString, ParseErrorUsesTheStringWording) {
    clsXMLIniData o;
    std::string sErr;
    EXPECT_FALSE(o.LoadXString("<SETUP><A></SETUP>", sErr));
    EXPECT_NE(sErr.find(" String Load Parse error: "), std::string::npos) << sErr;
    EXPECT_NE(sErr.find(" On Line: 1 At Position: "), std::string::npos) << sErr;
}

TEST(LoadXDoc, MissingFileFailsWithAMessage) {
    clsXMLIniData o;
    std::string sErr;
    EXPECT_FALSE(o.LoadXDoc("/no/such/file.xml", sErr));
    EXPECT_FALSE(sErr.empty());
}

TEST(LoadXDoc, SuccessLeavesTheMessageAsItWas) {
    TempDir tmp;
    std::string sPath = tmp.File("ok.xml");
    testutil::WriteFile(sPath, kSettings);
    clsXMLIniData o;
    std::string sErr = "unchanged";
    EXPECT_TRUE(o.LoadXDoc(sPath, sErr));
    EXPECT_EQ(sErr, "unchanged");
}

TEST(NodeText, IsTheStringValueOfAllDescendantText) {
    pugi::xml_document d;
    ASSERT_TRUE(d.load_string("<a>x<b>y<c>z</c></b><!--no-->w</a>", clsXMLIniData::ParseOptions()));
    EXPECT_EQ(clsXMLIniData::NodeText(d.document_element()), "xyzw");
    EXPECT_EQ(clsXMLIniData::NodeText(pugi::xml_node()), "");
}

TEST(NodeText, WhitespaceOnlyTextIsNotANode) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString("<R><S>\n   \n</S><T>\n  <U>u</U>\n</T></R>", sErr));
    EXPECT_FALSE(o.SetCurNode("S"));  // only blanks: no child node, so missing
    ASSERT_TRUE(o.SetCurNode("T"));
    EXPECT_EQ(o.CurNodeChildNumber(), 1);
}

TEST(GetOrderedAttrList, AnOrderBeyondALongRefusesTheList) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(
        o.LoadXString("<R><S><A ORDER=\"1\">a</A><B ORDER=\"3000000000\">b</B></S>"
                      "<T><A ORDER=\"2147483647\">a</A></T></R>",
                      sErr));
    long lCount = 7;
    clsOrderArray arr;
    auto list = o.GetOrderedAttrList("S", lCount, arr);
    EXPECT_EQ(lCount, -1);
    EXPECT_EQ(list.size(), 0u);
    list = o.GetOrderedAttrList("T", lCount, arr);
    EXPECT_EQ(lCount, 0);
    EXPECT_EQ(arr[0][1], 2147483647L);
}

TEST(Lookups, NoMatchEmptiesThePositionWhateverTheFlag) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    std::string sPos = "old";
    EXPECT_EQ(o.GetNodeNameUseCurNodeByLabel("Nothing", false, &sPos, "POS"), "");
    EXPECT_EQ(sPos, "");
    sPos = "old";
    EXPECT_EQ(o.GetNodeNameUseCurNodeByLabel("Identifier", false, &sPos, "POS"), "ID");
    EXPECT_EQ(sPos, "old");  // a match without the flag leaves it alone
}

// ---------------------------------------------------------------------------------------------
// Positions of load errors count characters

namespace {

// The message of a failed load with its date-time written as "{now}".
std::string Masked(const std::string& sErr) {
    return std::regex_replace(sErr, std::regex(testutil::kDateTimeRegex), "{now}");
}

std::string FileLoadError(const std::string& sBytes) {
    TempDir tmp;
    const std::string sPath = tmp.File("settings.xml");
    testutil::WriteFile(sPath, sBytes);
    clsXMLIniData o;
    std::string sErr;
    EXPECT_FALSE(o.LoadXDoc(sPath, sErr));
    return Masked(sErr);
}

std::string StringLoadError(const std::string& sText) {
    clsXMLIniData o;
    std::string sErr;
    EXPECT_FALSE(o.LoadXString(sText, sErr));
    return Masked(sErr);
}

// UTF-8 to UTF-16 LE with a byte-order mark (the texts here are within the BMP).
std::string Utf16Le(const std::string& s) {
    std::string out = "\xFF\xFE";
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        char32_t cp = c;
        size_t n = 1;
        if (c >= 0xE0) {
            cp = ((c & 0x0F) << 12) | ((s[i + 1] & 0x3F) << 6) | (s[i + 2] & 0x3F);
            n = 3;
        } else if (c >= 0xC0) {
            cp = ((c & 0x1F) << 6) | (s[i + 1] & 0x3F);
            n = 2;
        }
        out += static_cast<char>(cp & 0xFF);
        out += static_cast<char>(cp >> 8);
        i += n;
    }
    return out;
}

}  // namespace

TEST(LoadXDoc, TheErrorPositionCountsCharactersNotBytes) {
    const std::string sExpected =
        "{now} IniDoc Load Parse error: Start-end tags mismatch On Line: 2 At Position: 11";
    // "  <B>" and three letters: the "C" of "</C>" is the 11th character of the line.
    EXPECT_EQ(FileLoadError("<ROOT>\n  <B>eee</C>\n</ROOT>\n"), sExpected);
    EXPECT_EQ(FileLoadError("<ROOT>\n  <B>\xC3\xA9\xC3\xA9\xC3\xA9</C>\n</ROOT>\n"), sExpected);
    // Three-byte characters and the byte-order mark of a UTF-8 file are one character or none.
    EXPECT_EQ(FileLoadError("\xEF\xBB\xBF<ROOT>\n  <B>\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC</C>\n"
                            "</ROOT>\n"),
              sExpected);
    // The same text in UTF-16 and in ISO-8859-1 is read as characters too.
    EXPECT_EQ(FileLoadError(Utf16Le("<ROOT>\n  <B>\xC3\xA9\xC3\xA9\xC3\xA9</C>\n</ROOT>\n")),
              sExpected);
    EXPECT_EQ(FileLoadError("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                            "<ROOT>\n  <B>\xE9\xE9\xE9</C>\n</ROOT>\n"),
              "{now} IniDoc Load Parse error: Start-end tags mismatch On Line: 3 At Position: 11");
}

TEST(LoadXDoc, ACharacterBeyondTheBmpTakesTwoPositionsAsInUtf16) {
    EXPECT_EQ(FileLoadError("<ROOT>\n  <B>\xF0\x9F\x98\x80</C>\n</ROOT>\n"),
              FileLoadError("<ROOT>\n  <B>ee</C>\n</ROOT>\n"));
}

TEST(LoadXDoc, CrLfAndALoneCrEndALine) {
    EXPECT_EQ(FileLoadError("<ROOT>\r\n  <B>\xC3\xA9</C>\r\n</ROOT>\r\n"),
              "{now} IniDoc Load Parse error: Start-end tags mismatch On Line: 2 At Position: 9");
    EXPECT_EQ(FileLoadError("<ROOT>\r<A/>\r  <B>\xC3\xA9</C>\r</ROOT>\r"),
              "{now} IniDoc Load Parse error: Start-end tags mismatch On Line: 3 At Position: 9");
}

TEST(LoadXDoc, AnInvalidCharacterIsPlacedInCharactersToo) {
    EXPECT_EQ(FileLoadError("<ROOT>\n  <B>\xC3\xA9\xC3\xA9\x01</B>\n</ROOT>\n"),
              "{now} IniDoc Load Parse error: Invalid character (code 1) in the document On "
              "Line: 2 At Position: 8");
}

// The document is searched in blocks of bytes; the character is found at any offset, the first
// of two when there are two, whichever block each falls in.
TEST(LoadXDoc, AnInvalidCharacterIsFoundWhereverItStands) {
    for (size_t lPad : {0u, 1u, 50u, 51u, 52u, 53u, 54u, 114u, 115u, 116u, 117u, 200u, 1000u}) {
        SCOPED_TRACE("padding: " + std::to_string(lPad));
        // "<ROOT><B>" is 9 bytes: the character is byte 9 + lPad, position 10 + lPad.
        const std::string sHead = "<ROOT><B>" + std::string(lPad, 'e');
        const std::string sWant =
            "{now} IniDoc Load Parse error: Invalid character (code 2) in the "
            "document On Line: 1 At Position: " +
            std::to_string(10 + lPad);
        EXPECT_EQ(FileLoadError(sHead + "\x02</B>\n</ROOT>\n"), sWant);
        EXPECT_EQ(FileLoadError(sHead + "\x02" + std::string(70, 'f') + "\x03</B></ROOT>"), sWant);
        // Tabs, line feeds and carriage returns are allowed around it.
        EXPECT_EQ(FileLoadError(sHead + "\x02\t\r\n</B></ROOT>"), sWant);
    }
    TempDir tmp;
    const std::string sPath = tmp.File("settings.xml");
    testutil::WriteFile(sPath, "<ROOT><B>" + std::string(300, 'e') + "\t\n\r</B></ROOT>");
    clsXMLIniData o;
    std::string sErr;
    EXPECT_TRUE(o.LoadXDoc(sPath, sErr)) << sErr;
}

TEST(LoadXString, TheErrorPositionCountsCharactersNotBytes) {
    const std::string sExpected =
        "{now} String Load Parse error: Start-end tags mismatch On Line: 1 At Position: 16";
    EXPECT_EQ(StringLoadError("<SETUP><B>eee</C></SETUP>"), sExpected);
    EXPECT_EQ(StringLoadError("<SETUP><B>\xC3\xA9\xC3\xA9\xC3\xA9</C></SETUP>"), sExpected);
}

// ---------------------------------------------------------------------------------------------
// Paths that select an attribute

TEST(Lookups, APathThatSelectsAnAttributeGivesItsValue) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    EXPECT_EQ(o.GetLabelUsePath("SECTION/DESC/@FIELD"), "desc");
    EXPECT_EQ(o.GetLabelUsePath("SECTION/*[@POS]/@POS"), "7");
    EXPECT_EQ(o.GetLabelUsePath("//@FIELD"), "f1");  // the first in document order
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    EXPECT_EQ(o.GetLabelUseCurNode("ID/@FIELD"), "id");
    EXPECT_EQ(o.GetLabelUseCurNode("*[@ORDER = 3]/@POS"), "9");
    EXPECT_EQ(o.GetLabelUseCurNode("ID/@NOPE"), "");
    // An attribute has no attributes of its own: an index asked for comes back empty.
    std::string sIndex = "x";
    EXPECT_EQ(o.GetLabelUseCurNode("ID/@FIELD", &sIndex, "POS"), "id");
    EXPECT_EQ(sIndex, "");
    sIndex = "x";
    EXPECT_EQ(o.GetLabelUsePath("SECTION/ID/@FIELD", &sIndex, "POS"), "id");
    EXPECT_EQ(sIndex, "");
}

TEST(SetCurNode, AnAttributeHasNoChildNodesSoItIsNoSection) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(o.LoadXString(kSettings, sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    EXPECT_FALSE(o.SetCurNode("SECTION/ID/@FIELD"));
    EXPECT_FALSE(o.CurNode());
    EXPECT_EQ(o.CurNodeChildNumber(), 0);
    EXPECT_EQ(o.GetLabelUseCurNode("ID"), "");  // the section chosen before is gone
    EXPECT_EQ(o.GetLabelUsePathByID("SECTION/ID/@FIELD", 1), "");
}

// ---------------------------------------------------------------------------------------------
// Namespaces

TEST(Lookups, ElementsInADefaultNamespaceAreFoundByTheirNames) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(
        o.LoadXString("<ROOT xmlns=\"urn:example:settings\"><SECTION>"
                      "<ID ORDER=\"1\" FIELD=\"id\">Identifier</ID></SECTION></ROOT>",
                      sErr));
    ASSERT_TRUE(o.SetCurNode("SECTION"));
    EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "Identifier");
    EXPECT_EQ(o.GetFieldNameUseCurNodeByID(1), "id");
    EXPECT_EQ(o.GetLabelUsePath("//ID"), "Identifier");
}

// A label asked for again gives the same answer, for each section and ORDER of its own, and a
// document loaded anew answers from its own labels.
TEST(Lookups, ByIdAskedAgainPerSectionAndPerDocument) {
    clsXMLIniData o;
    std::string sErr;
    ASSERT_TRUE(
        o.LoadXString("<R><A><X ORDER=\"1\">a1</X><X ORDER=\"2\">a2</X></A>"
                      "<B><X ORDER=\"1\">b1</X></B></R>",
                      sErr));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(o.SetCurNode("A"));
        EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "a1");
        EXPECT_EQ(o.GetLabelUseCurNodeByID(2), "a2");
        EXPECT_EQ(o.GetLabelUseCurNodeByID(3), "");
        ASSERT_TRUE(o.SetCurNode("B"));
        EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "b1");
        EXPECT_EQ(o.GetLabelUseCurNodeByID(2), "");
    }
    ASSERT_TRUE(o.LoadXString("<R><A><X ORDER=\"1\">new</X></A></R>", sErr));
    ASSERT_TRUE(o.SetCurNode("A"));
    EXPECT_EQ(o.GetLabelUseCurNodeByID(1), "new");
    EXPECT_EQ(o.GetLabelUseCurNodeByID(2), "");
}

// A file that reports no size (a pipe) is read to its end however long it is, in pieces that
// grow; with a byte-order mark as without one, the document holds the whole text.
TEST(LoadXDoc, APipeIsReadToItsEndInPiecesThatGrow) {
    for (const std::string& sBom : {std::string(), std::string("\xEF\xBB\xBF")}) {
        TempDir tmp;
        const std::string sPath = tmp.File("settings.xml");
        ASSERT_EQ(::mkfifo(sPath.c_str(), 0600), 0);
        // About 700 KB: several times the first piece.
        std::string sText = sBom + "<ROOT>";
        for (int i = 0; i < 20000; ++i)
            sText += "<E n=\"" + std::to_string(i) + "\">" + std::string(16, 'x') + "</E>";
        sText += "<LAST/></ROOT>";
        std::thread oWriter([&] { testutil::WriteFile(sPath, sText); });
        pugi::xml_document oDoc;
        std::string sReason;
        long lLine = -1, lPos = -1;
        const bool bLoaded = clsXMLIniData::LoadFileInto(oDoc, sPath, sReason, lLine, lPos);
        oWriter.join();
        ASSERT_TRUE(bLoaded) << sReason;
        const pugi::xml_node oRoot = oDoc.child("ROOT");
        EXPECT_EQ(std::distance(oRoot.children("E").begin(), oRoot.children("E").end()), 20000);
        EXPECT_STREQ(oRoot.last_child().name(), "LAST");
        EXPECT_STREQ(oRoot.find_child_by_attribute("E", "n", "19999").child_value(),
                     std::string(16, 'x').c_str());
    }
}
