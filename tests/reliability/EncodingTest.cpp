// Encodings of the settings and data files, the setup string's declaration, and text that a
// workbook cannot hold as it is.
#include "ReliabilityFixture.h"
#include "xl/xlText.h"

using namespace reliability;

namespace {

// UTF-8 to UTF-16 (with a byte-order mark) in the given byte order.
std::string Utf16(const std::string& s, bool bBigEndian) {
    std::u32string u;
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        char32_t cp;
        size_t n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
        cp = n == 1 ? c : n == 2 ? (c & 0x1F) : n == 3 ? (c & 0x0F) : (c & 0x07);
        for (size_t k = 1; k < n; ++k)
            cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        u.push_back(cp);
        i += n;
    }
    std::string out;
    auto Put = [&](char16_t w) {
        char a = static_cast<char>(w >> 8), b = static_cast<char>(w & 0xFF);
        out += bBigEndian ? std::string{a, b} : std::string{b, a};
    };
    Put(0xFEFF);
    for (char32_t cp : u) {
        if (cp >= 0x10000) {
            cp -= 0x10000;
            Put(static_cast<char16_t>(0xD800 + (cp >> 10)));
            Put(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            Put(static_cast<char16_t>(cp));
        }
    }
    return out;
}

const std::string kText =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xC3\x84\xC3\x96\xC3\x9C \xC3\xA9t\xC3\xA9";  // Grüße ÄÖÜ été
const std::string kTextLatin1 =
    "Gr\xFC\xDF"
    "e \xC4\xD6\xDC \xE9t\xE9";

std::string DataWith(const std::string& sDecl, const std::string& sDescription) {
    return sDecl + "<Root_Element>" + ItemXml("A-1", sDescription) + "</Root_Element>";
}

// The settings with their declaration replaced and the main panel's title changed to sTitle.
std::string SettingsWith(const std::string& sDecl, const std::string& sTitle) {
    std::string s = testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
    if (s.rfind("<?xml", 0) == 0) s = s.substr(s.find("?>") + 2);
    const std::string sFrom = "<MAIN_PANEL>";
    size_t p = s.find(sFrom);
    size_t e = s.find("</MAIN_PANEL>", p);
    s = s.substr(0, p + sFrom.size()) + sTitle + s.substr(e);
    return sDecl + s;
}

}  // namespace

TEST_F(ReliabilityTest, DataAndSettingsAreReadInEveryEncodingTheyDeclare) {
    struct Case {
        const char* sName;
        std::function<std::string(const std::string&)> fnEncode;  // of a UTF-8 document
        std::string sDecl;
        std::string sValue;  // the text as written in the document's own encoding
    };
    const std::vector<Case> arr = {
        {"utf8", [](const std::string& s) { return s; }, "<?xml version=\"1.0\"?>", kText},
        {"utf8_bom", [](const std::string& s) { return "\xEF\xBB\xBF" + s; },
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>", kText},
        {"utf16le", [](const std::string& s) { return Utf16(s, false); },
         "<?xml version=\"1.0\" encoding=\"UTF-16\"?>", kText},
        {"utf16be", [](const std::string& s) { return Utf16(s, true); },
         "<?xml version=\"1.0\" encoding=\"UTF-16\"?>", kText},
        {"latin1", [](const std::string& s) { return s; },
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>", kTextLatin1},
        {"cp1252", [](const std::string& s) { return s; },
         "<?xml version='1.0' encoding='windows-1252'?>", kTextLatin1},
    };
    for (const Case& c : arr) {
        SCOPED_TRACE(c.sName);
        fs::remove(sExportDir + "ExportExcel.log");
        const std::string sSet = (dataDir / "settings.xml").string();
        // UTF-16 documents are made from UTF-8 text; the 8-bit ones hold their bytes as they are.
        const bool b16 = std::string(c.sName).rfind("utf16", 0) == 0;
        testutil::WriteFile(sSet, c.fnEncode(SettingsWith(c.sDecl, b16 ? kText : c.sValue)));
        testutil::WriteFile(sData, c.fnEncode(DataWith(c.sDecl, b16 ? kText : c.sValue)));
        ASSERT_TRUE(Run(sData, sSet, SetupXml("wb"))) << Joined(Log());
        const std::string s = ReadBack((dataDir / "wb.xlsx").string());
        ASSERT_EQ(s.rfind("OK\n", 0), 0u) << s;
        EXPECT_NE(s.find("A4=\"" + kText + "\""), std::string::npos) << s;    // the panel title
        EXPECT_NE(s.find("=\"" + kText + "\"\nF6"), std::string::npos) << s;  // the description
    }
}

TEST_F(ReliabilityTest, AnEncodingThatCannotBeReadFailsWithAClearLine) {
    for (const char* sEnc : {"EBCDIC-US", "Shift_JIS", "UTF-7", "x-unknown"}) {
        SCOPED_TRACE(sEnc);
        fs::remove(sExportDir + "ExportExcel.log");
        const std::string sDecl = std::string("<?xml version=\"1.0\" encoding=\"") + sEnc + "\"?>";
        EXPECT_FALSE(RunData(DataWith(sDecl, "x"), SetupXml("wb")));
        auto arr = Log();
        ASSERT_EQ(arr.size(), 1u) << Joined(arr);
        EXPECT_EQ(arr[0].rfind(std::string("The data file could not be parsed: The declared "
                                           "encoding \"") +
                                   sEnc + "\" cannot be read on line 1 at position 31 ",
                               0),
                  0u)
            << arr[0];

        fs::remove(sExportDir + "ExportExcel.log");
        const std::string sSet = (dataDir / "settings.xml").string();
        testutil::WriteFile(sSet, SettingsWith(sDecl, "x"));
        EXPECT_FALSE(Run(sData, sSet, SetupXml("wb")));
        arr = Log();
        ASSERT_EQ(arr.size(), 1u) << Joined(arr);
        EXPECT_NE(arr[0].find(std::string(" IniDoc Load Parse error: The declared encoding \"") +
                              sEnc + "\" cannot be read On Line: 1 At Position: 31"),
                  std::string::npos)
            << arr[0];
        EXPECT_FALSE(fs::exists(dataDir / "wb.xlsx"));
    }
}

TEST_F(ReliabilityTest, TheSetupStringIsUtf8WhateverItsDeclarationSays) {
    const std::string sSetup = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + SetupXml(kText);
    testutil::WriteFile(sData, DataWith("", "x"));
    ASSERT_TRUE(Run(sData, sSettings, sSetup)) << Joined(Log());
    const std::string s = ReadBack((dataDir / (kText + ".xlsx")).string());
    EXPECT_NE(s.find("B2=\"" + kText + "\""), std::string::npos) << s;
}

TEST_F(ReliabilityTest, TextAWorkbookCannotHoldIsMadeStorable) {
    // Ill-formed UTF-8 bytes in a UTF-8 file, and characters XML 1.0 does not allow, given by
    // character references (the parser decodes them).
    const std::string sDesc =
        "a\xFF"
        "b\xC3(c&#1;d&#x1F;e&#9;f&#xFFFE;g&#xB;h";
    ASSERT_TRUE(RunData(DataWith("", sDesc), SetupXml("wb"))) << Joined(Log());
    const std::string s = ReadBack((dataDir / "wb.xlsx").string());
    ASSERT_EQ(s.rfind("OK\n", 0), 0u) << s;
    EXPECT_NE(s.find("\"a\xEF\xBF\xBD"
                     "b\xEF\xBF\xBD(cde\\tf\xEF\xBF\xBDgh\""),
              std::string::npos)
        << s;
}

TEST(WorkbookText, KeepsWhatAWorkbookHoldsAndRepairsTheRest) {
    EXPECT_TRUE(xl::IsWorkbookText("plain \t\r\n text \xE2\x82\xAC \xF0\x9F\x98\x80"));
    EXPECT_EQ(xl::WorkbookText("ok"), "ok");
    EXPECT_EQ(xl::WorkbookText(std::string("a\0b\x01\x1F"
                                           "c",
                                           6)),
              "abc");
    EXPECT_EQ(xl::WorkbookText("\x80"), "\xEF\xBF\xBD");
    EXPECT_EQ(xl::WorkbookText("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong
    EXPECT_EQ(xl::WorkbookText("\xED\xA0\x80"),
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");        // surrogate
    EXPECT_EQ(xl::WorkbookText("\xE2\x82"), "\xEF\xBF\xBD");  // truncated: one maximal subpart
    EXPECT_EQ(xl::WorkbookText("\xE2\x82x"), "\xEF\xBF\xBDx");
    EXPECT_EQ(xl::WorkbookText("\xF4\x90\x80\x80"),
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");  // beyond U+10FFFF
    EXPECT_EQ(xl::WorkbookText("\xEF\xBF\xBE\xEF\xBF\xBF"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(xl::WorkbookText("\xC2\x85"), "\xC2\x85");  // C1 controls are XML characters
}
