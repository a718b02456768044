// Shared fixture of the workbook-builder tests: a context with the example settings and label
// tables, a builder with an in-memory workbook (never saved), and readers of the sheet.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "driver/clsExportExcel.h"
#include "support/modConst.h"
#include "workbook/clsBldExcel.h"
#include "workbook/clsItemUses.h"

// Reaches the builder's private helpers and gives it a workbook without writing a file.
struct clsBldExcelTestAccess {
    static void OpenInMemory(clsBldExcel& b) {
        b.oExlApp_ = std::make_unique<xl::xlApplication>();
        b.oWorkbook_ = &b.oExlApp_->Workbooks().Add();
        b.oSheet_ = &b.oWorkbook_->Worksheets()(1);
    }
    static xl::xlWorkbook* Workbook(clsBldExcel& b) { return b.oWorkbook_; }
    static xl::xlWorksheet* CurrentSheet(clsBldExcel& b) { return b.oSheet_; }
    static xl::xlApplication* Application(clsBldExcel& b) { return b.oExlApp_.get(); }
    static bool LabelSwitch(clsBldExcel& b) { return b.bLblFromIni_; }
    static void SetLabelSwitch(clsBldExcel& b, bool bOn) { b.bLblFromIni_ = bOn; }
    static void SelectLabels(clsBldExcel& b, const std::string& sPath) { b.SelectLabels(sPath); }
    static std::string SanitizeName(const std::string& s) { return clsBldExcel::SanitizeName(s); }
    static std::string GetCaptionById(clsBldExcel& b, long lId, const std::string& sDefault,
                                      long& lLength) {
        return b.GetCaptionById(lId, sDefault, lLength);
    }
    static std::string GetCaptionByName(clsBldExcel& b, const std::string& sName,
                                        const std::string& sDefault, long& lLength) {
        return b.GetCaptionByName(sName, sDefault, lLength);
    }
    static std::string GetCaptionByPath(clsBldExcel& b, const std::string& sPath,
                                        const std::string& sDefault) {
        return b.GetCaptionByPath(sPath, sDefault);
    }
    static std::string GetExportSectionPath(clsBldExcel& b) { return b.GetExportSectionPath(); }
    static void FillAttributesHeading(clsBldExcel& b, long& nRow) { b.FillAttributesHeading(nRow); }
    static clsItemUses CollectItemUses(clsBldExcel& b) { return b.CollectItemUses(); }
};

namespace wbtest {

using Access = clsBldExcelTestAccess;

inline VarStrArray Arr(std::vector<std::string> v) {
    return VarStrArray(std::move(v));
}

inline ItemStruct Head(const std::string& sId, const std::string& sDesc, const std::string& sRev,
                       VarStrArray arrAttrs = std::nullopt) {
    ItemStruct r;
    r.Key1 = sId;
    r.Key2 = sDesc;
    r.Key3 = sRev;
    r.Attrs = std::move(arrAttrs);
    return r;
}

inline DocStruct Doc(const std::string& sId, const std::string& sDesc, const std::string& sRev,
                     VarStrArray arrAttrs = std::nullopt, std::vector<FileStruct> arrFiles = {}) {
    DocStruct r;
    r.Key1 = sId;
    r.Key2 = sDesc;
    r.Key3 = sRev;
    r.Attrs = std::move(arrAttrs);
    r.Files = std::move(arrFiles);
    r.FileCount = static_cast<int32_t>(r.Files.size()) - 1;
    return r;
}

inline FileStruct File(const std::string& sName, VarStrArray arrAttrs = std::nullopt) {
    FileStruct f;
    f.FileName = sName;
    f.Attrs = std::move(arrAttrs);
    return f;
}

inline MNFStruct Mnf(const std::string& sId, const std::string& sName, const std::string& sPN,
                     VarStrArray arrAttrs = std::nullopt, std::vector<ItemStruct> arrVendors = {}) {
    MNFStruct m;
    m.Key1 = sId;
    m.Key2 = sName;
    m.Key3 = sPN;
    m.Attrs = std::move(arrAttrs);
    m.Vendors = std::move(arrVendors);
    m.VendorCount = static_cast<int32_t>(m.Vendors.size()) - 1;
    return m;
}

inline XItemStruct XItem(int32_t nLevel, ItemStruct oHead) {
    XItemStruct r;
    r.Level = nLevel;
    r.Head = std::move(oHead);
    return r;
}

inline XDocStruct XDoc(int32_t nLevel, DocStruct oHead) {
    XDocStruct r;
    r.Level = nLevel;
    r.Head = std::move(oHead);
    return r;
}

inline XFoldStruct XFolder(int32_t nLevel, FoldStruct oHead) {
    XFoldStruct r;
    r.Level = nLevel;
    r.Head = std::move(oHead);
    return r;
}

inline std::string SetupString(const std::string& sObjectType, const std::string& sSpaceType) {
    return "<SETUP><PROJECT>Demo project</PROJECT><WORKBOOK_NAME>Demo BOM</WORKBOOK_NAME>"
           "<EXPORTED_BY>PLM administrator</EXPORTED_BY><EXPORT_DATE></EXPORT_DATE>"
           "<OBJECT_TYPE>" +
           sObjectType + "</OBJECT_TYPE><SPACE_TYPE>" + sSpaceType + "</SPACE_TYPE></SETUP>";
}

inline std::string ExampleSettings() {
    return testutil::ReadFile(testutil::ExamplesDir() + "/settings.xml");
}

// The example settings without the element that starts with sOpenTag (and its content).
inline std::string SettingsWithout(const std::string& sSettings, const std::string& sTag) {
    std::string s = sSettings;
    size_t a = s.find("<" + sTag + ">");
    if (a == std::string::npos) a = s.find("<" + sTag + " ");
    std::string sClose = "</" + sTag + ">";
    size_t b = s.find(sClose, a);
    if (a == std::string::npos || b == std::string::npos) return s;
    return s.substr(0, a) + s.substr(b + sClose.size());
}

class BldExcelTest : public ::testing::Test {
protected:
    void SetUp() override { Prepare("Item", "STRUCTURE"); }

    // A fresh context and builder for one kind and mode of export, with the given settings.
    void Prepare(const std::string& sObjectType, const std::string& sSpaceType,
                 const std::string& sSettings = ExampleSettings()) {
        bld.reset();
        ctx = std::make_unique<clsExportContext>();
        ctx->LogFilePath = tmp.File("ExportExcel.log");
        ctx->IniData = std::make_unique<clsXMLIniData>();
        std::string sErr;
        ASSERT_TRUE(ctx->IniData->LoadXString(sSettings, sErr)) << sErr;
        modResources::InitResources(*ctx, ctx->IniData.get());
        ctx->Res.MsgRunError = "Run-time error: ";
        ASSERT_TRUE(clsExportExcel::FillExcellCap(*ctx, SetupString(sObjectType, sSpaceType)));
        ASSERT_TRUE(clsExportExcel::FillAttrLabels(*ctx));
        ctx->Model.RootObjName = sObjectType;
        bld = std::make_unique<clsBldExcel>(*ctx);
        Access::OpenInMemory(*bld);
    }

    // Swaps the settings document after the label tables were built from the example settings,
    // for sections that the tables themselves need.
    void ReplaceSettings(const std::string& sSettings) {
        ctx->IniData = std::make_unique<clsXMLIniData>();
        std::string sErr;
        ASSERT_TRUE(ctx->IniData->LoadXString(sSettings, sErr)) << sErr;
    }

    clsExportModel& M() { return ctx->Model; }
    xl::xlWorksheet& S() { return *Access::CurrentSheet(*bld); }

    // The text of a cell ("" when empty; a number in its shortest decimal form).
    std::string Text(long r, long c) { return S().Cells(r, c).Text(); }
    bool HasNumber(long r, long c) {
        auto v = S().GetCell(r, c);
        return v && std::holds_alternative<double>(v->vValue);
    }
    double Number(long r, long c) {
        auto v = S().GetCell(r, c);
        return v && std::holds_alternative<double>(v->vValue) ? std::get<double>(v->vValue) : -1e9;
    }
    // No value, or an empty text.
    bool IsEmpty(long r, long c) {
        auto v = S().GetCell(r, c);
        if (!v || std::holds_alternative<std::monostate>(v->vValue)) return true;
        const std::string* s = std::get_if<std::string>(&v->vValue);
        return s && s->empty();
    }
    xl::xlStyle Style(long r, long c) { return S().EffectiveStyle(r, c); }
    bool Bold(long r, long c) { return Style(r, c).bBold && !Style(r, c).bItalic; }
    bool BoldItalic(long r, long c) { return Style(r, c).bBold && Style(r, c).bItalic; }
    bool Plain(long r, long c) { return !Style(r, c).bBold && !Style(r, c).bItalic; }
    bool TopBorder(long r, long c) { return Style(r, c).lBorderTop == 1; }
    bool BottomBorder(long r, long c) { return Style(r, c).lBorderBottom == 1; }

    // Whether row r, columns c1 to c2, is exactly one merged area.
    bool Merged(long r, long c1, long c2) { return MergedOn(S(), r, c1, c2); }
    static bool MergedOn(xl::xlWorksheet& oSheet, long r, long c1, long c2) {
        for (const auto& a : oSheet.MergedAreas()) {
            if (a[0] == r && a[1] == c1 && a[2] == r && a[3] == c2) return true;
        }
        return false;
    }
    // Whether any merged area touches row r.
    bool AnyMergeOnRow(long r) {
        for (const auto& a : S().MergedAreas()) {
            if (a[0] <= r && r <= a[2]) return true;
        }
        return false;
    }

    // The six cells of a caption/value row.
    void ExpectKeyRow(long r, const std::string& c1, const std::string& v1, const std::string& c2,
                      const std::string& v2, const std::string& c3, const std::string& v3) {
        SCOPED_TRACE("row " + std::to_string(r));
        EXPECT_EQ(Text(r, 1), c1);
        EXPECT_TRUE(Bold(r, 1));
        EXPECT_EQ(Text(r, 2), v1);
        EXPECT_EQ(Text(r, 3), c2);
        EXPECT_TRUE(Bold(r, 3));
        EXPECT_EQ(Text(r, 4), v2);
        EXPECT_EQ(Text(r, 5), c3);
        EXPECT_TRUE(Bold(r, 5));
        EXPECT_EQ(Text(r, 6), v3);
        EXPECT_TRUE(Plain(r, 2));
        EXPECT_TRUE(Plain(r, 4));
        EXPECT_TRUE(Plain(r, 6));
    }

    // A list caption band: A to F merged, top and bottom borders, the caption in bold italic.
    void ExpectListCaption(long r, const std::string& sCaption) {
        SCOPED_TRACE("caption row " + std::to_string(r));
        EXPECT_EQ(Text(r, 1), sCaption);
        EXPECT_TRUE(BoldItalic(r, 1));
        EXPECT_TRUE(Merged(r, 1, 6));
        EXPECT_TRUE(TopBorder(r, 1));
        EXPECT_TRUE(BottomBorder(r, 6));
    }

    // An empty sheet row: no value in columns A to F.
    void ExpectEmptyRow(long r) {
        SCOPED_TRACE("empty row " + std::to_string(r));
        for (long c = 1; c <= 6; ++c)
            EXPECT_TRUE(IsEmpty(r, c)) << "column " << c;
    }

    std::vector<std::string> LogLines() { return testutil::ReadLogLines(ctx->LogFilePath); }

    // The regular expression of a trapped error's log line.
    static std::string ErrorLineRegex(const std::string& sDescription, long lNumber,
                                      const std::string& sProc) {
        return "Run-time error: " + sDescription + " " + std::to_string(lNumber) + " " +
               testutil::kDateTimeRegex + " in orvExportExcel:clsBldExcel\\[" + sProc + "\\]";
    }
    void ExpectOneErrorLine(const std::string& sDescription, long lNumber,
                            const std::string& sProc) {
        ExpectErrorLines(sDescription, lNumber, {sProc});
    }
    // The log holds exactly one error line per procedure, in this order.
    void ExpectErrorLines(const std::string& sDescription, long lNumber,
                          const std::vector<std::string>& arrProcs) {
        auto arr = LogLines();
        ASSERT_EQ(arr.size(), arrProcs.size());
        for (size_t i = 0; i < arr.size(); ++i) {
            EXPECT_TRUE(std::regex_match(
                arr[i], std::regex(ErrorLineRegex(sDescription, lNumber, arrProcs[i]))))
                << arr[i];
        }
    }

    testutil::TempDir tmp;
    std::unique_ptr<clsExportContext> ctx;
    std::unique_ptr<clsBldExcel> bld;
};

}  // namespace wbtest
