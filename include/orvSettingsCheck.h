// The settings check: for the people who configure exports. It lays out, in memory and without
// writing anything, one export of every kind and mode (or the one a setup string names) and
// reports what the exports read from a settings file: every label with the path at which it is
// looked up (the section current at that moment included) and the text found or the built-in
// text it falls back to; the field names, message texts and configured names; and what is wrong:
// labels that fall back, elements no export ever reads, ORDER problems, missing FIELDs, missing
// messages and names.
#pragma once

#include <string>
#include <vector>

// One thing an export reads from the settings.
struct clsSettingsRead {
    // "label" (a caption), "field" (a FIELD attribute), "message" (a message text) or "name"
    // (a configured element or attribute name of the data file).
    std::string sKind;
    std::vector<std::string> arrExports;  // the exports that read it ("items/structure", ...)
    std::string sPath;                    // the lookup as it runs, current section included
    bool bSectionMissing = false;         // the section it is read in is missing or empty
    std::string sFound;                   // the path of the element found; "" when none
    std::string sText;                    // the text (or value) found
    bool bHasDefault = false;             // the export falls back to sDefault when it is empty
    std::string sDefault;
};

// Something the check found wrong.
struct clsSettingsFinding {
    // "fallback", "unused", "order", "field", "message", "missing", "export" or "log".
    std::string sKind;
    std::string sPath;
    std::vector<std::string> arrExports;  // empty: it concerns the settings file as a whole
    std::string sDetail;
};

struct clsSettingsCheckResult {
    // 0: nothing falls back or is unused; 1: findings; 2: the settings (or the setup string)
    // cannot be read, sError says why.
    int iStatus = 2;
    std::string sError;
    std::string sSettingsPath;
    std::vector<std::string> arrExports;  // the exports checked
    std::vector<clsSettingsRead> arrReads;
    std::vector<clsSettingsFinding> arrFindings;
};

// Checks a settings file. Without a setup string every export kind and mode is checked; with
// one, the kind and mode it names. Elements are "unused" when no export of any kind reads them.
// Writes nothing: no workbook, no log line.
clsSettingsCheckResult CheckSettings(const std::string& sXIniFullPath,
                                     const std::string& sSetupXString = "");

// The report as text and as JSON.
std::string FormatSettingsCheckText(const clsSettingsCheckResult& oResult);
std::string FormatSettingsCheckJson(const clsSettingsCheckResult& oResult);
