// The report of the settings check, as text for people and as JSON for tools.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "orvExportExcel.h"
#include "orvSettingsCheck.h"

namespace {

std::string Quoted(const std::string& s) {
    return "\"" + s + "\"";
}

// "all exports" when a read or finding concerns every export checked (and there are several).
std::string ExportsText(const clsSettingsCheckResult& r, const std::vector<std::string>& arr) {
    if (arr.size() > 1 && arr == r.arrExports) return "all exports";
    std::string s;
    for (const std::string& e : arr)
        s += (s.empty() ? "" : ", ") + e;
    return s;
}

std::string ReadText(const clsSettingsCheckResult& r, const clsSettingsRead& o) {
    std::string s = "  " + ExportsText(r, o.arrExports) + ": " + o.sPath;
    if (o.bSectionMissing) s += " (section missing)";
    if (!o.sText.empty()) {
        s += " = " + Quoted(o.sText);
    } else if (o.bHasDefault) {
        s += " = default: " + Quoted(o.sDefault);
    } else {
        s += " = (nothing)";
    }
    if (!o.sFound.empty() && o.sFound != o.sPath && o.sFound + "/@FIELD" != o.sPath)
        s += "  [" + o.sFound + "]";
    return s + "\n";
}

void AppendJsonString(std::string& sOut, const std::string& s) {
    sOut += '"';
    for (unsigned char c : s) {
        switch (c) {
            case '"':
                sOut += "\\\"";
                break;
            case '\\':
                sOut += "\\\\";
                break;
            case '\n':
                sOut += "\\n";
                break;
            case '\r':
                sOut += "\\r";
                break;
            case '\t':
                sOut += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    sOut += buf;
                } else {
                    sOut += static_cast<char>(c);
                }
        }
    }
    sOut += '"';
}

void AppendJsonStrings(std::string& sOut, const std::vector<std::string>& arr) {
    sOut += '[';
    for (size_t i = 0; i < arr.size(); ++i) {
        if (i) sOut += ", ";
        AppendJsonString(sOut, arr[i]);
    }
    sOut += ']';
}

}  // namespace

std::string FormatSettingsCheckText(const clsSettingsCheckResult& r) {
    if (r.iStatus == 2) return r.sError + "\n";
    std::string s = "Settings check of " + r.sSettingsPath + "\nExports checked: ";
    for (size_t i = 0; i < r.arrExports.size(); ++i)
        s += (i ? ", " : "") + r.arrExports[i];
    s += "\n";

    struct clsGroup {
        const char* sKind;
        const char* sTitle;
    };
    static const clsGroup arrGroups[] = {
        {"label",
         "Labels the export reads (exports: the lookup as it runs = the text found, or default: "
         "the built-in text it shows instead; [the element found])"},
        {"field", "Field names (FIELD attributes)"},
        {"message", "Message texts"},
        {"name", "Configured names of the data file"},
    };
    for (const clsGroup& g : arrGroups) {
        s += "\n" + std::string(g.sTitle) + "\n";
        for (const clsSettingsRead& o : r.arrReads) {
            if (o.sKind == g.sKind) s += ReadText(r, o);
        }
    }

    s += "\nFindings: ";
    if (r.arrFindings.empty()) {
        s += "none\n";
        return s;
    }
    s += std::to_string(r.arrFindings.size()) + "\n";
    for (const clsSettingsFinding& f : r.arrFindings) {
        if (f.sKind != "export") continue;
        s += "  (An export that stops early reads less of the settings: what it would read "
             "after that point is not listed and may show as unused. Fix the export findings "
             "first and check again.)\n";
        break;
    }
    for (const clsSettingsFinding& f : r.arrFindings) {
        s += "  " + f.sKind + ": ";
        if (!f.sPath.empty()) s += f.sPath + ": ";
        s += f.sDetail;
        if (!f.arrExports.empty()) s += " (" + ExportsText(r, f.arrExports) + ")";
        s += "\n";
    }
    return s;
}

std::string FormatSettingsCheckJson(const clsSettingsCheckResult& r) {
    std::string s = "{\n  \"status\": " + std::to_string(r.iStatus) + ",\n  \"settings\": ";
    AppendJsonString(s, r.sSettingsPath);
    if (r.iStatus == 2) {
        s += ",\n  \"error\": ";
        AppendJsonString(s, r.sError);
        return s + "\n}\n";
    }
    s += ",\n  \"exports\": ";
    AppendJsonStrings(s, r.arrExports);
    s += ",\n  \"reads\": [";
    for (size_t i = 0; i < r.arrReads.size(); ++i) {
        const clsSettingsRead& o = r.arrReads[i];
        s += i ? ",\n    {" : "\n    {";
        s += "\"kind\": ";
        AppendJsonString(s, o.sKind);
        s += ", \"exports\": ";
        AppendJsonStrings(s, o.arrExports);
        s += ", \"path\": ";
        AppendJsonString(s, o.sPath);
        s += std::string(", \"section_missing\": ") + (o.bSectionMissing ? "true" : "false");
        s += ", \"found\": ";
        if (o.sFound.empty()) {
            s += "null";
        } else {
            AppendJsonString(s, o.sFound);
        }
        s += ", \"text\": ";
        AppendJsonString(s, o.sText);
        s += ", \"default\": ";
        if (o.bHasDefault) {
            AppendJsonString(s, o.sDefault);
        } else {
            s += "null";
        }
        s += std::string(", \"falls_back\": ") +
             (o.bHasDefault && o.sText.empty() ? "true" : "false");
        s += "}";
    }
    s += r.arrReads.empty() ? "],\n" : "\n  ],\n";
    s += "  \"findings\": [";
    for (size_t i = 0; i < r.arrFindings.size(); ++i) {
        const clsSettingsFinding& f = r.arrFindings[i];
        s += i ? ",\n    {" : "\n    {";
        s += "\"kind\": ";
        AppendJsonString(s, f.sKind);
        s += ", \"path\": ";
        AppendJsonString(s, f.sPath);
        s += ", \"exports\": ";
        AppendJsonStrings(s, f.arrExports);
        s += ", \"detail\": ";
        AppendJsonString(s, f.sDetail);
        s += "}";
    }
    s += r.arrFindings.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return s;
}

extern "C" int orvExportExcel_CheckSettings(const char* sXIniFullPath, const char* sSetupXString,
                                            int bJson, char* sReport, size_t lSize,
                                            size_t* lNeeded) {
    try {
        const clsSettingsCheckResult r =
            CheckSettings(sXIniFullPath ? sXIniFullPath : "", sSetupXString ? sSetupXString : "");
        const std::string s = bJson ? FormatSettingsCheckJson(r) : FormatSettingsCheckText(r);
        if (lNeeded) *lNeeded = s.size() + 1;
        if (sReport && lSize > 0) {
            const size_t n = std::min(s.size(), lSize - 1);
            std::memcpy(sReport, s.data(), n);
            sReport[n] = '\0';
        }
        return r.iStatus;
    } catch (...) {
        if (lNeeded) *lNeeded = 1;
        if (sReport && lSize > 0) sReport[0] = '\0';
        return 2;
    }
}
