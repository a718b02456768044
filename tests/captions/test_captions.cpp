#include <gtest/gtest.h>

#include <regex>

#include "TestUtil.h"
#include "driver/clsExportExcel.h"

using testutil::TempDir;

namespace {

const std::string kSetupItem =
    "<SETUP><PROJECT>Apollo</PROJECT><WORKBOOK_NAME>Apollo BOM</WORKBOOK_NAME>"
    "<EXPORTED_BY>jdoe</EXPORTED_BY><EXPORT_DATE>yesterday</EXPORT_DATE>"
    "<OBJECT_TYPE>Item</OBJECT_TYPE><SPACE_TYPE>STRUCTURE</SPACE_TYPE></SETUP>";

// A context holding the example settings, with its message table loaded.
class CaptionTest : public ::testing::Test {
protected:
    void SetUp() override { Load(testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml")); }
    void Load(const std::string& sSettings) {
        ctx = clsExportContext();
        ctx.LogFilePath = tmp.File("ExportExcel.log");
        ctx.Res.MsgRunError = "Run-time error: ";
        ctx.IniData = std::make_unique<clsXMLIniData>();
        std::string sErr;
        ASSERT_TRUE(ctx.IniData->LoadXString(sSettings, sErr)) << sErr;
        modResources::InitResources(ctx, ctx.IniData.get());
    }
    // The example settings with the caption section replaced.
    void LoadWithCaptions(const std::string& sCaptionSection) {
        std::string s = testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
        size_t a = s.find("<EXL_CAPTION_LBL>");
        size_t b = s.find("</EXL_CAPTION_LBL>") + std::string("</EXL_CAPTION_LBL>").size();
        Load(s.substr(0, a) + sCaptionSection + s.substr(b));
    }
    TempDir tmp;
    clsExportContext ctx;
};

}  // namespace

TEST_F(CaptionTest, CaptionTableTakesLabelsFromSettingsAndValuesFromTheSetupString) {
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    const clsVarTable& t = ctx.Labels.CaptionTable;
    ASSERT_EQ(t.UBound(1), 1);
    ASSERT_EQ(t.UBound(2), 3);
    EXPECT_EQ(t.Item(0, 0), "Project");
    EXPECT_EQ(t.Item(1, 0), "Apollo");
    EXPECT_EQ(t.Item(0, 1), "Workbook");
    EXPECT_EQ(t.Item(1, 1), "Apollo BOM");
    EXPECT_EQ(t.Item(0, 2), "Exported by");
    EXPECT_EQ(t.Item(1, 2), "jdoe");
    EXPECT_EQ(ctx.Model.ExportKind, 1);
    EXPECT_EQ(ctx.Model.IsStructure, 1);
    EXPECT_EQ(ctx.Model.ObjectType, "Item");
    EXPECT_EQ(ctx.Labels.SpaceType, "STRUCTURE");
}

TEST_F(CaptionTest, FourCaptionsShowTheExportDateAsTheFourthValue) {
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    const std::string& s = ctx.Labels.CaptionTable.Item(1, 3);
    EXPECT_NE(s, "yesterday");
    EXPECT_TRUE(std::regex_match(s, std::regex(R"(\d{2}/\d{2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM))")))
        << s;
}

TEST_F(CaptionTest, ThreeOrFiveCaptionsKeepTheSetupValues) {
    LoadWithCaptions(
        "<EXL_CAPTION_LBL><PROJECT ORDER=\"1\">P</PROJECT><WORKBOOK_NAME ORDER=\"2\">W"
        "</WORKBOOK_NAME><EXPORT_DATE ORDER=\"3\">D</EXPORT_DATE></EXL_CAPTION_LBL>");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    EXPECT_EQ(ctx.Labels.CaptionTable.UBound(2), 2);
    EXPECT_EQ(ctx.Labels.CaptionTable.Item(1, 2), "yesterday");

    LoadWithCaptions(
        "<EXL_CAPTION_LBL><PROJECT ORDER=\"1\">P</PROJECT><WORKBOOK_NAME ORDER=\"2\">W"
        "</WORKBOOK_NAME><EXPORTED_BY ORDER=\"3\">B</EXPORTED_BY><EXPORT_DATE ORDER=\"4\">D"
        "</EXPORT_DATE><OBJECT_TYPE ORDER=\"5\">T</OBJECT_TYPE></EXL_CAPTION_LBL>");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    EXPECT_EQ(ctx.Labels.CaptionTable.UBound(2), 4);
    EXPECT_EQ(ctx.Labels.CaptionTable.Item(1, 3), "yesterday");
    EXPECT_EQ(ctx.Labels.CaptionTable.Item(1, 4), "Item");
}

TEST_F(CaptionTest, EqualOrdersKeepTheExchangeSortOrder) {
    LoadWithCaptions(
        "<EXL_CAPTION_LBL><A ORDER=\"2\">first two</A><B ORDER=\"2\">second two</B>"
        "<C ORDER=\"1\">one</C></EXL_CAPTION_LBL>");
    ASSERT_TRUE(
        clsExportExcel::FillExcellCap(ctx,
                                      "<S><A>a</A><B>b</B><C>c</C><OBJECT_TYPE>Item</OBJECT_TYPE>"
                                      "<SPACE_TYPE>COLLECTION</SPACE_TYPE></S>"));
    const clsVarTable& t = ctx.Labels.CaptionTable;
    EXPECT_EQ(t.Item(0, 0), "one");
    EXPECT_EQ(t.Item(0, 1), "second two");
    EXPECT_EQ(t.Item(0, 2), "first two");
    EXPECT_EQ(t.Item(1, 1), "b");
    EXPECT_EQ(ctx.Model.IsStructure, 2);
}

TEST_F(CaptionTest, ObjectTypeDifferingInCaseIsRefused) {
    std::string s = kSetupItem;
    s.replace(s.find("<OBJECT_TYPE>Item"), 17, "<OBJECT_TYPE>ITEM");
    EXPECT_FALSE(clsExportExcel::FillExcellCap(ctx, s));
}

TEST_F(CaptionTest, DocumentAndFolderKinds) {
    std::string s = kSetupItem;
    s.replace(s.find("<OBJECT_TYPE>Item"), 17, "<OBJECT_TYPE>Document");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, s));
    EXPECT_EQ(ctx.Model.ExportKind, 2);
    s = kSetupItem;
    s.replace(s.find("<OBJECT_TYPE>Item"), 17, "<OBJECT_TYPE>Folder");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, s));
    EXPECT_EQ(ctx.Model.ExportKind, 3);
}

TEST_F(CaptionTest, UnusableSetupStringsAreRefused) {
    EXPECT_FALSE(clsExportExcel::FillExcellCap(ctx, "<SETUP><broken></SETUP>"));
    EXPECT_FALSE(clsExportExcel::FillExcellCap(ctx, "<S><OBJECT_TYPE>Item</OBJECT_TYPE></S>"));
    EXPECT_FALSE(clsExportExcel::FillExcellCap(
        ctx, "<S><OBJECT_TYPE>Item</OBJECT_TYPE><SPACE_TYPE>TREE</SPACE_TYPE></S>"));
    EXPECT_FALSE(clsExportExcel::FillExcellCap(
        ctx, "<S><OBJECT_TYPE>Thing</OBJECT_TYPE><SPACE_TYPE>STRUCTURE</SPACE_TYPE></S>"));
    // Nothing of this is a run-time error: no log line.
    EXPECT_FALSE(std::filesystem::exists(ctx.LogFilePath));
}

TEST_F(CaptionTest, MissingCaptionSectionIsRefused) {
    LoadWithCaptions("<EXL_CAPTION_LBL/>");
    EXPECT_FALSE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
}

TEST_F(CaptionTest, LabelTablesOfAnItemExport) {
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    ASSERT_TRUE(clsExportExcel::FillAttrLabels(ctx));
    const clsLabelTables& l = ctx.Labels;
    EXPECT_EQ(l.ItemKeyFields, (std::array<std::string, 3>{"id", "revision", "description"}));
    EXPECT_EQ(l.DocKeyFields, (std::array<std::string, 3>{"id", "revision", "description"}));
    EXPECT_EQ(l.MnfKeyFields, (std::array<std::string, 3>{"id", "name", "part_number"}));
    EXPECT_EQ(l.VndKeyFields, (std::array<std::string, 3>{"id", "name", "supplier_part_number"}));
    EXPECT_EQ(l.ItemMainField5, "quantity");
    EXPECT_EQ(l.ItemMainField3, "find_number");
    EXPECT_EQ(l.AltListKeyField, "alternate_id");
    ASSERT_EQ(l.ItemAttrLabels.UBound(2), 4);
    EXPECT_EQ(l.ItemAttrLabels.Item(0, 0), "Status");
    EXPECT_EQ(l.ItemAttrLabels.Item(1, 0), "status");
    EXPECT_EQ(l.ItemAttrLabels.Item(1, 4), "material");
    EXPECT_EQ(l.FileAttrLabels.Item(1, 1), "file_size");
    EXPECT_EQ(l.MnfAttrLabels.Item(0, 1), "Country");
    EXPECT_EQ(l.VndAttrLabels.Item(1, 0), "lead_time");
    EXPECT_FALSE(l.AdditionalTagTable.IsArray());
}

TEST_F(CaptionTest, LabelTablesOfDocumentAndFolderExports) {
    std::string s = kSetupItem;
    s.replace(s.find("<OBJECT_TYPE>Item"), 17, "<OBJECT_TYPE>Document");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, s));
    ASSERT_TRUE(clsExportExcel::FillAttrLabels(ctx));
    EXPECT_EQ(ctx.Labels.DocMainField5, "doc_type");
    EXPECT_EQ(ctx.Labels.DocMainField6, "status");
    EXPECT_FALSE(ctx.Labels.MnfAttrLabels.IsArray());

    s = kSetupItem;
    s.replace(s.find("<OBJECT_TYPE>Item"), 17, "<OBJECT_TYPE>Folder");
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, s));
    ASSERT_TRUE(clsExportExcel::FillAttrLabels(ctx));
    EXPECT_EQ(ctx.Labels.FolderMainField5, "owner");
    EXPECT_EQ(ctx.Labels.FolderAttrLabels.Item(0, 1), "Created");
}

TEST_F(CaptionTest, MissingAttributeListFailsTheLabelTables) {
    std::string s = testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
    size_t a = s.find("<FILE_ATTR_LBL>");
    size_t b = s.find("</FILE_ATTR_LBL>") + std::string("</FILE_ATTR_LBL>").size();
    Load(s.substr(0, a) + s.substr(b));
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    EXPECT_FALSE(clsExportExcel::FillAttrLabels(ctx));
}

TEST_F(CaptionTest, FillAttrLabelArrayWithAnUnknownKindIsFalse) {
    clsVarTable t;
    EXPECT_FALSE(clsExportExcel::FillAttrLabelArray(ctx, t, "WIDGET"));
    EXPECT_FALSE(t.IsArray());
}

TEST_F(CaptionTest, AdditionalTagsFillFieldCaptionAndOwner) {
    std::string s = testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
    s.insert(s.find("</EXPORT_SETTINGS>"),
             "<MAIN_ADD_LBL><ITEM><W ORDER=\"2\" FIELD=\"weight\" OWNER=\"ITEM\">Weight</W>"
             "<P ORDER=\"1\" FIELD=\"pos\" OWNER=\"ITEM_PS_DEF\">Position</P>"
             "<R ORDER=\"3\" FIELD=\"x\">RefDes</R></ITEM></MAIN_ADD_LBL>");
    Load(s);
    ASSERT_TRUE(clsExportExcel::GetAdditionalTags(ctx, "ITEM"));
    const clsVarTable& t = ctx.Labels.AdditionalTagTable;
    ASSERT_EQ(t.UBound(1), 2);
    ASSERT_EQ(t.UBound(2), 2);
    EXPECT_EQ(t.Item(0, 0), "pos");
    EXPECT_EQ(t.Item(1, 0), "Position");
    EXPECT_EQ(t.Item(2, 0), "ITEM_PS_DEF");
    EXPECT_EQ(t.Item(2, 2), "");  // OWNER absent
    EXPECT_FALSE(clsExportExcel::GetAdditionalTags(ctx, "NOTHING"));
}

TEST_F(CaptionTest, ClearLabelTablesEmptiesWhatTheExportEmpties) {
    ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, kSetupItem));
    ASSERT_TRUE(clsExportExcel::FillAttrLabels(ctx));
    clsExportExcel::ClearLabelTables(ctx);
    EXPECT_FALSE(ctx.Labels.CaptionTable.IsArray());
    EXPECT_FALSE(ctx.Labels.ItemAttrLabels.IsArray());
    EXPECT_FALSE(ctx.Labels.MnfAttrLabels.IsArray());
    EXPECT_TRUE(ctx.Labels.FolderAttrLabels.IsArray());  // overwritten by the next export
    EXPECT_EQ(ctx.Labels.ItemKeyFields[0], "id");
}
