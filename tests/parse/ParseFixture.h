// Shared set-up of the parser tests: a context built from the example settings and a setup
// file, a data file in a temporary folder, and the log lines the parse wrote.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "driver/clsExportExcel.h"
#include "parse/clsExportContext.h"
#include "parse/clsXMLPars.h"
#include "support/modResources.h"

namespace parsetest {

// The date alone, as the structure messages begin.
inline const char* const kDateRegex = R"(\d{1,2}/\d{1,2}/\d{4})";

// sText with every character that means something in a regular expression escaped.
inline std::string Esc(const std::string& sText) {
    static const std::string sSpecial = R"(\^$.|?*+()[]{}/)";
    std::string s;
    for (char c : sText) {
        if (sSpecial.find(c) != std::string::npos) s += '\\';
        s += c;
    }
    return s;
}

// A plain log line: the text, a blank and the date-time.
inline std::string PlainLine(const std::string& sText) {
    std::string s("^");
    s.append(Esc(sText)).append(" ").append(testutil::kDateTimeRegex).append("$");
    return s;
}

// An error line: message, description, number, date-time and the parser's source tag.
inline std::string ErrorLine(const std::string& sMsgAndDescription, long lNumber,
                             const std::string& sProc) {
    std::string s("^");
    s.append(Esc(sMsgAndDescription)).append(" ").append(std::to_string(lNumber)).append(" ");
    s.append(testutil::kDateTimeRegex).append(" in ");
    s.append(Esc("orvExportExcel:clsXMLPars[" + sProc + "]")).append("$");
    return s;
}

// A structure fault: the date, the text, a blank and the date-time.
inline std::string StructureLine(const std::string& sText) {
    std::string s("^");
    s.append(kDateRegex).append(" ").append(Esc(sText)).append(" ");
    s.append(testutil::kDateTimeRegex).append("$");
    return s;
}

inline std::string Root(const std::string& sBody) {
    return "<Root_Element>" + sBody + "</Root_Element>";
}

class ParseFixture : public ::testing::Test {
protected:
    // Builds the context from the example settings (sExtraSettings inserted at the end of the
    // settings document) and the example setup file sSetup ("item-structure.xml", ...).
    void Init(const std::string& sSetup, const std::string& sExtraSettings = "") {
        ctx.LogFilePath = oDir.File("ExportExcel.log");
        std::string sSettings = testutil::ExamplesDir() + "/settings.xml";
        if (!sExtraSettings.empty()) {
            std::string sText = testutil::ReadFile(sSettings);
            const std::string sEnd = "</EXPORT_SETTINGS>";
            sText.replace(sText.rfind(sEnd), sEnd.size(), sExtraSettings + sEnd);
            sSettings = oDir.File("settings.xml");
            testutil::WriteFile(sSettings, sText);
        }
        ctx.IniData = std::make_unique<clsXMLIniData>();
        std::string sErr;
        ASSERT_TRUE(ctx.IniData->LoadXDoc(sSettings, sErr)) << sErr;
        modResources::InitResources(ctx, ctx.IniData.get());
        const std::string sSetupText =
            testutil::ReadFile(testutil::ExamplesDir() + "/setup/" + sSetup);
        ASSERT_TRUE(clsExportExcel::FillExcellCap(ctx, sSetupText));
        ASSERT_TRUE(clsExportExcel::FillAttrLabels(ctx));
    }

    // Writes sXml to a data file and parses it; false when it does not load or MainXStruct fails.
    bool Parse(const std::string& sXml) {
        const std::string sPath = oDir.File("data.xml");
        testutil::WriteFile(sPath, sXml);
        return ParseFile(sPath);
    }

    bool ParseFile(const std::string& sPath) {
        clsXMLPars oPars(ctx);
        std::unique_ptr<pugi::xml_document> oDoc;
        if (!oPars.LoadCurrentXML(oDoc, sPath)) return false;
        return oPars.MainXStruct(*oDoc);
    }

    std::vector<std::string> Log() const { return testutil::ReadLogLines(ctx.LogFilePath); }

    // The log holds exactly the lines matching the given patterns, in order.
    void ExpectLog(const std::vector<std::string>& arrPatterns) const {
        std::vector<std::string> arrLines = Log();
        ASSERT_EQ(arrLines.size(), arrPatterns.size()) << ::testing::PrintToString(arrLines);
        for (size_t i = 0; i < arrLines.size(); ++i) {
            EXPECT_TRUE(std::regex_match(arrLines[i], std::regex(arrPatterns[i])))
                << "line: " << arrLines[i] << "\npattern: " << arrPatterns[i];
        }
    }

    void ExpectNoLog() const { EXPECT_EQ(Log(), std::vector<std::string>()); }

    testutil::TempDir oDir;
    clsExportContext ctx;
};

}  // namespace parsetest
