// The settings check: what it reports for the example settings and for broken ones, its JSON
// form, and that it follows the builder: every place where the builder reads the settings is
// reached by the check's synthetic exports, and the builder reads the settings nowhere else.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <tuple>

#include "TestUtil.h"
#include "driver/clsSettingsCheck.h"
#include "orvExportExcel.h"
#include "orvSettingsCheck.h"
#include "support/modEnvironment.h"
#include "xlmodel/JsonLite.h"

namespace fs = std::filesystem;

namespace {

using FindingKey = std::tuple<std::string, std::string>;  // kind, path

std::string ExampleSettings() {
    return testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
}

void Replace(std::string& s, const std::string& sFrom, const std::string& sTo) {
    const size_t p = s.find(sFrom);
    ASSERT_NE(p, std::string::npos) << sFrom;
    s.replace(p, sFrom.size(), sTo);
}

// The example settings with five faults: a misspelt label, the alternates heading moved from
// the child-list section to the part-list section beside the child label, a duplicate ORDER, a
// missing FIELD and a missing message.
std::string BrokenSettings() {
    std::string s = ExampleSettings();
    Replace(s, "<CAPTION_LBL>Manufacturers</CAPTION_LBL>",
            "<CAPTON_LBL>Manufacturers</CAPTON_LBL>");
    const std::string sAlternates =
        "<LOCAL_ALTERNATIVE_ITEMS_OF_CHILD>Local Alternative Items of "
        "Child</LOCAL_ALTERNATIVE_ITEMS_OF_CHILD>";
    Replace(s, "        " + sAlternates + "\n", "");
    Replace(s, "      <CHILD>Child</CHILD>\n      <CHILD_LIST_LBL>",
            "      <CHILD>Child</CHILD>\n      " + sAlternates + "\n      <CHILD_LIST_LBL>");
    Replace(s, "<MATERIAL ORDER=\"5\"", "<MATERIAL ORDER=\"4\"");
    Replace(s, "<ITEM_REV ORDER=\"2\" FIELD=\"revision\">", "<ITEM_REV ORDER=\"2\">");
    Replace(s, "<MSG_ON_LINE>on line</MSG_ON_LINE>", "");
    return s;
}

std::set<FindingKey> Keys(const clsSettingsCheckResult& r) {
    std::set<FindingKey> set;
    for (const clsSettingsFinding& f : r.arrFindings)
        set.emplace(f.sKind, f.sPath);
    return set;
}

const clsSettingsFinding* FindingAt(const clsSettingsCheckResult& r, const std::string& sKind,
                                    const std::string& sPath) {
    for (const clsSettingsFinding& f : r.arrFindings)
        if (f.sKind == sKind && f.sPath == sPath) return &f;
    return nullptr;
}

const clsSettingsRead* ReadAt(const clsSettingsCheckResult& r, const std::string& sPath) {
    for (const clsSettingsRead& o : r.arrReads)
        if (o.sPath == sPath) return &o;
    return nullptr;
}

const std::vector<std::string> kAllExports = {"items/structure",     "items/collection",
                                              "documents/structure", "documents/collection",
                                              "folders/structure",   "folders/collection"};
const std::vector<std::string> kItemExports = {"items/structure", "items/collection"};

class SettingsCheckTest : public ::testing::Test {
protected:
    void SetUp() override { modEnvironment::ResetAppDataRootCache(); }
    void TearDown() override { modEnvironment::ResetAppDataRootCache(); }

    clsSettingsCheckResult Check(const std::string& sSettingsText, const std::string& sSetup = "") {
        const std::string sPath = tmp.File("settings.xml");
        testutil::WriteFile(sPath, sSettingsText);
        return CheckSettings(sPath, sSetup);
    }

    testutil::TempDir tmp;
    // A per-user folder with the export folder: a log line written by mistake would land here.
    testutil::ScopedEnv env{"APPDATA", tmp.Str()};
};

}  // namespace

TEST_F(SettingsCheckTest, TheExampleSettingsHaveNoFindings) {
    const clsSettingsCheckResult r = CheckSettings(testutil::ExamplesDir() + "/settings.xml");
    EXPECT_EQ(r.iStatus, 0) << FormatSettingsCheckText(r);
    EXPECT_EQ(r.arrFindings.size(), 0u);
    EXPECT_EQ(r.arrExports, kAllExports);
    EXPECT_GT(r.arrReads.size(), 100u);
}

TEST_F(SettingsCheckTest, ThePartListReadsItsLabelsInTheSectionCurrentAtThatMoment) {
    const clsSettingsCheckResult r = CheckSettings(testutil::ExamplesDir() + "/settings.xml");
    // The first child reads its label in the part-list section, a child after a plain child in
    // the child-list section, a child after one with alternates in the alternates section.
    for (const std::string sSection : {"", "/CHILD_LIST_LBL", "/ALTERNATE_LIST_LBL"}) {
        const std::string sPath = "PROPERTY_LBL/PART_LIST_LBL" + sSection + "/CHILD";
        const clsSettingsRead* o = ReadAt(r, sPath);
        ASSERT_NE(o, nullptr) << sPath;
        EXPECT_EQ(o->sKind, "label");
        EXPECT_EQ(o->sText, "Child");
        EXPECT_TRUE(o->bHasDefault);
        EXPECT_EQ(o->sDefault, "Child");
        EXPECT_EQ(o->arrExports, kItemExports);
    }
    // The alternates heading only ever in the child-list section.
    const clsSettingsRead* o =
        ReadAt(r, "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->sDefault, "Local Alternative Items of Child");
    EXPECT_EQ(ReadAt(r, "PROPERTY_LBL/PART_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD"), nullptr);
    // A label by ORDER names the element it found.
    o = ReadAt(r, "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/*[@ORDER = 1]");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->sFound, "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/FIND_NO");
    EXPECT_EQ(o->sText, "Find No");
    // Panel titles belong to their own export only.
    o = ReadAt(r, "GLOBAL/DOC_COLLECTION/MAIN_PANEL");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->arrExports, std::vector<std::string>{"documents/collection"});
    // Field names, messages and configured names are listed too.
    o = ReadAt(r, "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/*[@ORDER = 1]/@FIELD");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->sKind, "field");
    EXPECT_EQ(o->sText, "id");
    o = ReadAt(r, "//MSG_FILE");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->sKind, "message");
    EXPECT_EQ(o->sText, "The data file ");
    o = ReadAt(r, "//CUSTOM_OBJECTS/ITEM");
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->sKind, "name");
    EXPECT_EQ(o->arrExports, kAllExports);
}

TEST_F(SettingsCheckTest, EachFaultIsReportedWithItsPath) {
    const clsSettingsCheckResult r = Check(BrokenSettings());
    EXPECT_EQ(r.iStatus, 1);
    const std::string sAttrs = "PROPERTY_LBL/ITEM_LBL/ITEM_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    const std::set<FindingKey> setWant = {
        {"message", "//MSG_ON_LINE"},
        {"fallback", "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD"},
        {"fallback", "PROPERTY_LBL/MNF_LBL/CAPTION_LBL"},
        {"field", "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/*[@ORDER = 2]/@FIELD"},
        {"order", sAttrs + "/MATERIAL"},
        {"unused", "PROPERTY_LBL/PART_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD"},
        {"unused", "PROPERTY_LBL/MNF_LBL/CAPTON_LBL"},
    };
    EXPECT_EQ(Keys(r), setWant) << FormatSettingsCheckText(r);

    const clsSettingsFinding* f = FindingAt(r, "unused", "PROPERTY_LBL/MNF_LBL/CAPTON_LBL");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "no export reads it; did you mean CAPTION_LBL? The export reads "
              "PROPERTY_LBL/MNF_LBL/CAPTION_LBL");
    f = FindingAt(r, "unused", "PROPERTY_LBL/PART_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "no export reads it; the export reads LOCAL_ALTERNATIVE_ITEMS_OF_CHILD at "
              "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD");
    f = FindingAt(r, "fallback", "PROPERTY_LBL/MNF_LBL/CAPTION_LBL");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "not found: the export shows the built-in text \"Manufacturers\"");
    EXPECT_EQ(f->arrExports, kItemExports);
    f = FindingAt(r, "order", sAttrs + "/MATERIAL");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "ORDER 4 is also given to " + sAttrs + "/WEIGHT");
    f = FindingAt(r, "field", "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/*[@ORDER = 2]/@FIELD");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/ITEM_REV has no FIELD: the export cannot name "
              "the data attribute it reads here");
    EXPECT_EQ(f->arrExports, kAllExports);
    f = FindingAt(r, "message", "//MSG_ON_LINE");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "not found: the log lines that use this message show nothing in its place");

    // The report names each of them with its path.
    const std::string sText = FormatSettingsCheckText(r);
    EXPECT_NE(sText.find("Findings: 7\n"), std::string::npos) << sText;
    for (const auto& [sKind, sPath] : setWant)
        EXPECT_NE(sText.find("  " + sKind + ": " + sPath + ": "), std::string::npos) << sPath;
}

TEST_F(SettingsCheckTest, TheJsonFormHoldsTheSameFindingsAndReads) {
    const clsSettingsCheckResult r = Check(BrokenSettings());
    const jsonlite::Value v = jsonlite::Parse(FormatSettingsCheckJson(r));
    EXPECT_EQ(v["status"].Num(), 1);
    EXPECT_EQ(v["exports"].Size(), kAllExports.size());
    ASSERT_EQ(v["findings"].Size(), r.arrFindings.size());
    for (size_t i = 0; i < r.arrFindings.size(); ++i) {
        const clsSettingsFinding& f = r.arrFindings[i];
        const jsonlite::Value& j = v["findings"][i];
        EXPECT_EQ(j["kind"].Str(), f.sKind);
        EXPECT_EQ(j["path"].Str(), f.sPath);
        EXPECT_EQ(j["detail"].Str(), f.sDetail);
        ASSERT_EQ(j["exports"].Size(), f.arrExports.size());
        for (size_t k = 0; k < f.arrExports.size(); ++k)
            EXPECT_EQ(j["exports"][k].Str(), f.arrExports[k]);
    }
    ASSERT_EQ(v["reads"].Size(), r.arrReads.size());
    const clsSettingsRead* o =
        ReadAt(r, "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD");
    ASSERT_NE(o, nullptr);
    const size_t i = static_cast<size_t>(o - r.arrReads.data());
    EXPECT_EQ(v["reads"][i]["path"].Str(), o->sPath);
    EXPECT_TRUE(v["reads"][i]["found"].IsNull());
    EXPECT_EQ(v["reads"][i]["text"].Str(), "");
    EXPECT_EQ(v["reads"][i]["default"].Str(), "Local Alternative Items of Child");
    EXPECT_TRUE(v["reads"][i]["falls_back"].Bool());
}

TEST_F(SettingsCheckTest, ALabelInAMissingSectionFallsBackWithTheSectionNamed) {
    std::string s = ExampleSettings();
    const size_t a = s.find("    <MNF_VND_LBL>");
    const size_t b = s.find("</MNF_VND_LBL>") + std::string("</MNF_VND_LBL>\n").size();
    s.erase(a, b - a);
    const clsSettingsCheckResult r = Check(s);
    EXPECT_EQ(r.iStatus, 1);
    const std::set<FindingKey> setWant = {
        {"fallback", "PROPERTY_LBL/MNF_VND_LBL/MNF_CAP_LBL"},
        {"fallback", "PROPERTY_LBL/MNF_VND_LBL/VND_CAP_LBL"},
    };
    EXPECT_EQ(Keys(r), setWant) << FormatSettingsCheckText(r);
    const clsSettingsFinding* f = FindingAt(r, "fallback", "PROPERTY_LBL/MNF_VND_LBL/MNF_CAP_LBL");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "the section PROPERTY_LBL/MNF_VND_LBL is missing or empty: the export shows "
              "nothing (no built-in text)");
    const clsSettingsRead* o = ReadAt(r, "PROPERTY_LBL/MNF_VND_LBL/MNF_CAP_LBL");
    ASSERT_NE(o, nullptr);
    EXPECT_TRUE(o->bSectionMissing);
    EXPECT_TRUE(o->bHasDefault);
    EXPECT_EQ(o->sDefault, "");
}

TEST_F(SettingsCheckTest, ORDERProblemsAreReported) {
    std::string s = ExampleSettings();
    Replace(s, "<WEIGHT ORDER=\"4\"", "<WEIGHT ORDER=\"four\"");
    Replace(s, "<UNIT ORDER=\"3\"", "<UNIT ORDER=\"3000000000\"");
    Replace(s, "<OWNER ORDER=\"5\"", "<OWNER ORDER=\"5.5\"");
    Replace(s, "<QUANTITY ORDER=\"2\">Quantity", "<QUANTITY ORDER=\"3\">Quantity");
    Replace(s, "<REF_DES ORDER=\"4\">", "<REF_DES>");
    const clsSettingsCheckResult r = Check(s);
    const std::string sAttrs = "PROPERTY_LBL/ITEM_LBL/ITEM_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    const std::string sChildList = "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL";
    const clsSettingsFinding* f = FindingAt(r, "order", sAttrs + "/WEIGHT");
    ASSERT_NE(f, nullptr) << FormatSettingsCheckText(r);
    EXPECT_EQ(f->sDetail,
              "ORDER \"four\" is not a number: the export leaves it out of lists and a lookup by "
              "ORDER never finds it");
    f = FindingAt(r, "order", sAttrs + "/UNIT");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "ORDER \"3000000000\" is too large: a section read as a list gives no list at all");
    f = FindingAt(r, "order", "MAIN_LBL/FOLDER/OWNER");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "ORDER \"5.5\" is not a whole number: a list places it as if rounded, a lookup by "
              "ORDER never finds it");
    // A list holding an ORDER beyond a Long gives no list: its captions are missing, and every
    // export stops, since every export needs the item attributes.
    EXPECT_NE(FindingAt(r, "missing", sAttrs + "/*[@ORDER > 0]"), nullptr);
    f = FindingAt(r, "export", sAttrs);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail,
              "missing or empty: the export stops before the workbook (MSG_INCOR_INI_FILE_DATA)");
    EXPECT_EQ(f->arrExports, kAllExports);
    f = FindingAt(r, "order", sAttrs);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "no element has ORDER 3 to 4 (the ORDERs here: 1, 2, 5)");
    // QUANTITY comes first: a lookup by ORDER 3 reads it, never DESCRIPTION.
    EXPECT_EQ(FindingAt(r, "order", sChildList + "/QUANTITY"), nullptr);
    f = FindingAt(r, "order", sChildList + "/DESCRIPTION");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "ORDER 3 is also given to " + sChildList +
                              "/QUANTITY: a lookup by ORDER reads only the first");
    f = FindingAt(r, "order", sChildList + "/REF_DES");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "no ORDER: the export reads this section by ORDER and never reads it");
    f = FindingAt(r, "order", sChildList);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "no element has ORDER 2 (the ORDERs here: 1, 3, 3)");
    EXPECT_NE(FindingAt(r, "fallback", sChildList + "/*[@ORDER = 2]"), nullptr);
    EXPECT_NE(FindingAt(r, "fallback", sChildList + "/*[@ORDER = 4]"), nullptr);
    // Elements an ORDER finding names are not listed as unused as well.
    EXPECT_EQ(FindingAt(r, "unused", sChildList + "/REF_DES"), nullptr);
    EXPECT_EQ(FindingAt(r, "unused", sChildList + "/DESCRIPTION"), nullptr);
}

TEST_F(SettingsCheckTest, MissingMessagesAndNamesAreReported) {
    std::string s = ExampleSettings();
    Replace(s, "<FOLDER>Folder</FOLDER>", "");
    const clsSettingsCheckResult r = Check(s);
    const clsSettingsFinding* f = FindingAt(r, "message", "//CUSTOM_OBJECTS/FOLDER");
    ASSERT_NE(f, nullptr) << FormatSettingsCheckText(r);
    EXPECT_EQ(f->sDetail,
              "not found: the export cannot recognise this element or attribute of the data "
              "file");
    // No folder export can be named, so none can run.
    f = FindingAt(r, "export", "CUSTOM_OBJECTS");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->arrExports, (std::vector<std::string>{"folders/structure", "folders/collection"}));

    s = ExampleSettings();
    const size_t a = s.find("  <MESSAGES>");
    s.erase(a, s.find("</MESSAGES>") + std::string("</MESSAGES>").size() - a);
    const clsSettingsCheckResult r2 = Check(s);
    f = FindingAt(r2, "message", "MESSAGES");
    ASSERT_NE(f, nullptr) << FormatSettingsCheckText(r2);
    EXPECT_EQ(f->arrExports, kAllExports);
    f = FindingAt(r2, "log", "");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->sDetail, "the export logs: Resources was not initialized");
}

TEST_F(SettingsCheckTest, ASetupStringChecksItsExportAndCountsEveryExportForUnusedElements) {
    const std::string sSetup =
        testutil::ReadFile(testutil::ExamplesDir() + "/setup/doc-collection.xml");
    clsSettingsCheckResult r = Check(ExampleSettings(), sSetup);
    EXPECT_EQ(r.iStatus, 0) << FormatSettingsCheckText(r);
    EXPECT_EQ(r.arrExports, std::vector<std::string>{"documents/collection"});
    for (const clsSettingsRead& o : r.arrReads)
        EXPECT_EQ(o.arrExports, std::vector<std::string>{"documents/collection"}) << o.sPath;
    EXPECT_EQ(ReadAt(r, "PROPERTY_LBL/PART_LIST_LBL/CHILD"), nullptr);
    EXPECT_NE(ReadAt(r, "GLOBAL/DOC_COLLECTION/PROPERTY_PANEL"), nullptr);

    // A fault only the item exports meet is not this export's.
    r = Check(BrokenSettings(), sSetup);
    EXPECT_EQ(FindingAt(r, "fallback", "PROPERTY_LBL/MNF_LBL/CAPTION_LBL"), nullptr);
    EXPECT_NE(FindingAt(r, "unused", "PROPERTY_LBL/MNF_LBL/CAPTON_LBL"), nullptr);
}

TEST_F(SettingsCheckTest, UnreadableSettingsOrSetupGiveStatusTwo) {
    clsSettingsCheckResult r = CheckSettings(tmp.File("none.xml"));
    EXPECT_EQ(r.iStatus, 2);
    EXPECT_EQ(r.sError, "The settings file " + tmp.File("none.xml") + " was not found.");

    r = Check("<EXPORT_SETTINGS>\n<MESSAGES>\n</EXPORT_SETTINGS>\n");
    EXPECT_EQ(r.iStatus, 2);
    EXPECT_TRUE(std::regex_match(
        r.sError, std::regex("The settings file .*settings\\.xml cannot be read: " +
                             std::string(testutil::kDateTimeRegex) +
                             " IniDoc Load Parse error: Start-end tags mismatch On Line: 3 At "
                             "Position: 3")))
        << r.sError;

    r = Check(ExampleSettings(), "<SETUP><OBJECT_TYPE>Part</OBJECT_TYPE></SETUP>");
    EXPECT_EQ(r.iStatus, 2);
    EXPECT_EQ(r.sError,
              "The setup string's OBJECT_TYPE \"Part\" names no export of these settings (items "
              "\"Item\", documents \"Document\", folders \"Folder\").");
    r = Check(ExampleSettings(), "<SETUP><OBJECT_TYPE>Item</OBJECT_TYPE></SETUP>");
    EXPECT_EQ(r.iStatus, 2);
    EXPECT_EQ(r.sError, "The setup string's SPACE_TYPE \"\" is neither STRUCTURE nor COLLECTION.");
    const jsonlite::Value v = jsonlite::Parse(FormatSettingsCheckJson(r));
    EXPECT_EQ(v["status"].Num(), 2);
    EXPECT_EQ(v["error"].Str(), r.sError);
}

TEST_F(SettingsCheckTest, TheCheckWritesNothing) {
    const std::string sLogDir = tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export";
    fs::create_directories(sLogDir);
    const std::string sSettings = tmp.File("settings.xml");
    testutil::WriteFile(sSettings, BrokenSettings());
    const clsSettingsCheckResult r = CheckSettings(sSettings);
    EXPECT_EQ(r.iStatus, 1);
    std::vector<std::string> arrFiles;
    for (const auto& e : fs::recursive_directory_iterator(tmp.Path()))
        arrFiles.push_back(fs::relative(e.path(), tmp.Path()).string());
    std::sort(arrFiles.begin(), arrFiles.end());
    EXPECT_EQ(arrFiles, (std::vector<std::string>{
                            "Korvane", "Korvane/Addin Modules", "Korvane/Addin Modules/Zenfold",
                            "Korvane/Addin Modules/Zenfold/Export", "settings.xml"}));
}

TEST_F(SettingsCheckTest, TheCEntryPointGivesTheSameReport) {
    const std::string sPath = tmp.File("settings.xml");
    testutil::WriteFile(sPath, BrokenSettings());
    const std::string sText = FormatSettingsCheckText(CheckSettings(sPath));
    size_t lNeeded = 0;
    EXPECT_EQ(orvExportExcel_CheckSettings(sPath.c_str(), nullptr, 0, nullptr, 0, &lNeeded), 1);
    EXPECT_EQ(lNeeded, sText.size() + 1);
    std::vector<char> buf(lNeeded);
    EXPECT_EQ(orvExportExcel_CheckSettings(sPath.c_str(), "", 0, buf.data(), buf.size(), nullptr),
              1);
    EXPECT_EQ(std::string(buf.data()), sText);
    char sShort[8];
    EXPECT_EQ(orvExportExcel_CheckSettings(sPath.c_str(), "", 1, sShort, sizeof sShort, &lNeeded),
              1);
    EXPECT_EQ(std::string(sShort), "{\n  \"st");  // seven bytes and the NUL
    EXPECT_EQ(orvExportExcel_CheckSettings(nullptr, nullptr, 1, sShort, sizeof sShort, nullptr), 2);
}

namespace {

// The call sites of the builder's ways into the settings: "file:line".
std::set<std::string> BuilderSettingsCallSites() {
    static const std::regex reCall(
        R"(\b(GetCaptionById|GetCaptionByName|GetCaptionByPath|GetLabelList|SelectLabels)\()");
    std::set<std::string> set;
    for (const auto& e : fs::directory_iterator(testutil::SourceDir() + "/src/workbook")) {
        if (e.path().extension() != ".cpp") continue;
        std::ifstream in(e.path());
        long lLine = 0;
        for (std::string s; std::getline(in, s);) {
            ++lLine;
            const size_t lCode = s.find_first_not_of(' ');
            if (lCode == std::string::npos || s.compare(lCode, 2, "//") == 0) continue;
            for (std::sregex_iterator it(s.begin(), s.end(), reCall), end; it != end; ++it) {
                const size_t p = static_cast<size_t>(it->position());
                if (p >= 13 && s.compare(p - 13, 13, "clsBldExcel::") == 0) continue;
                set.insert(e.path().filename().string() + ":" + std::to_string(lLine));
            }
        }
    }
    return set;
}

}  // namespace

// A lookup added to the builder in a block the synthetic exports do not reach would be missing
// from the report: every call site must have been recorded.
TEST_F(SettingsCheckTest, EveryPlaceWhereTheBuilderReadsTheSettingsIsReached) {
    clsSettingsCheck oCheck;
    const clsSettingsCheckResult r =
        oCheck.Run(testutil::ExamplesDir() + "/settings.xml", std::string());
    ASSERT_EQ(r.iStatus, 0);
    std::set<std::string> setRecorded;
    for (const clsLookupRecord& rec : oCheck.Recorder().Records())
        if (!rec.sSite.empty()) setRecorded.insert(rec.sSite);
    const std::set<std::string> setSites = BuilderSettingsCallSites();
    ASSERT_GT(setSites.size(), 40u);
    for (const std::string& sSite : setSites)
        EXPECT_TRUE(setRecorded.count(sSite)) << sSite << " is never reached by the check";
    for (const std::string& sSite : setRecorded)
        EXPECT_TRUE(setSites.count(sSite)) << sSite << " is no call site the scan found";
}

// A lookup that bypassed those helpers would not tell the check its built-in text.
TEST_F(SettingsCheckTest, TheBuilderReadsTheSettingsOnlyThroughItsHelpers) {
    static const std::regex reDef(R"(^\S.*\bclsBldExcel::(\w+)\()");
    const std::set<std::string> setHelpers = {"GetCaptionById",   "GetCaptionByName",
                                              "GetCaptionByPath", "GetLabelList",
                                              "SelectLabels",     "Ini",
                                              "Recorder"};
    long lUses = 0;
    for (const auto& e : fs::directory_iterator(testutil::SourceDir() + "/src/workbook")) {
        if (e.path().extension() != ".cpp") continue;
        std::ifstream in(e.path());
        std::string sFunction;
        long lLine = 0;
        for (std::string s; std::getline(in, s);) {
            ++lLine;
            std::smatch m;
            if (std::regex_search(s, m, reDef)) sFunction = m[1];
            if (s.find("Ini()") == std::string::npos && s.find("ctx_.IniData") == std::string::npos)
                continue;
            ++lUses;
            EXPECT_TRUE(setHelpers.count(sFunction))
                << e.path().filename().string() << ":" << lLine << " in " << sFunction
                << " reads the settings directly";
        }
    }
    EXPECT_GE(lUses, 6);
}
