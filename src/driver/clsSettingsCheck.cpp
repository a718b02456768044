// The settings check: synthetic exports laid out in memory while the settings document records
// its lookups, and the findings read off the records.
#include "driver/clsSettingsCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

#include "driver/clsExportExcel.h"
#include "support/modResources.h"
#include "workbook/clsBldExcel.h"

namespace fs = std::filesystem;
using Kind = clsLookupRecord::Kind;

namespace {

const char* KindWord(int iKind) {
    switch (iKind) {
        case 1:
            return "items";
        case 2:
            return "documents";
        case 3:
            return "folders";
        default:
            return "objects";
    }
}

// One value per entry of an attribute label table; none without a table.
VarStrArray Values(const clsVarTable& t, const std::string& sValue) {
    if (!t.IsArray()) return std::nullopt;
    return std::vector<std::string>(static_cast<size_t>(t.UBound(2) + 1), sValue);
}

ItemStruct Head(const std::string& sKey, const clsVarTable& tAttrs) {
    ItemStruct h;
    h.Key1 = sKey;
    h.Key2 = "Description of " + sKey;
    h.Key3 = "A";
    h.Attrs = Values(tAttrs, "value");
    return h;
}

// A document with one file.
DocStruct Doc(const std::string& sKey, const clsLabelTables& l) {
    DocStruct d;
    d.Key1 = sKey;
    d.Key2 = "Description of " + sKey;
    d.Key3 = "A";
    d.Attrs = Values(l.DocAttrLabels, "value");
    d.Files.push_back(FileStruct{"/data/" + sKey + ".pdf", Values(l.FileAttrLabels, "value")});
    d.FileCount = 0;
    return d;
}

// The setup string of a synthetic export: the configured name of its kind, and its mode.
std::string SyntheticSetup(const std::string& sObjectType, int iStructure) {
    pugi::xml_document oDoc;
    pugi::xml_node oRoot = oDoc.append_child("SETUP");
    oRoot.append_child("OBJECT_TYPE").text().set(sObjectType.c_str());
    oRoot.append_child("SPACE_TYPE").text().set(iStructure == 1 ? "STRUCTURE" : "COLLECTION");
    std::ostringstream ss;
    oDoc.save(ss, "", pugi::format_raw | pugi::format_no_declaration);
    return ss.str();
}

// The last step of a lookup expression when it is a plain element name ("CHILD" of
// "PROPERTY_LBL/PART_LIST_LBL/CHILD", "DOC_CHLD_LBL" of "//DOC_CHLD_LBL"), else "".
std::string LastName(const std::string& sExpression) {
    const size_t p = sExpression.find_last_of('/');
    const std::string s = p == std::string::npos ? sExpression : sExpression.substr(p + 1);
    static const std::regex reName("[A-Za-z_][A-Za-z0-9_.-]*");
    return std::regex_match(s, reName) ? s : std::string();
}

bool IsAbsolute(const std::string& sExpression) {
    return !sExpression.empty() && sExpression[0] == '/';
}

// The lookup as it runs: the current section (or the section asked for, when it is missing)
// followed by the expression; a path from the document element as it stands.
std::string LookupPath(const clsLookupRecord& r, bool& bSectionMissing) {
    bSectionMissing = false;
    if (r.eKind == Kind::List) return r.sExpression + "/*[@ORDER > 0]";
    if (r.eKind == Kind::Attribute) {
        return clsLookupRecorder::NodePath(r.arrNodes.empty() ? pugi::xml_node() : r.arrNodes[0]) +
               "/@" + r.sExpression;
    }
    std::string sPath = r.sExpression;
    if (r.bFromCurrent && !IsAbsolute(r.sExpression)) {
        std::string sSection;
        if (r.oFrom) {
            sSection = clsLookupRecorder::NodePath(r.oFrom);
        } else {
            sSection = r.sSectionAsked;
            bSectionMissing = true;
        }
        if (!sSection.empty()) sPath = sSection + "/" + r.sExpression;
    }
    if (r.eKind == Kind::Field) sPath += "/@FIELD";
    return sPath;
}

size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> prev(b.size() + 1), cur(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        prev[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        cur[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t lSub = prev[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cur[j] = std::min({prev[j] + 1, cur[j - 1] + 1, lSub});
        }
        std::swap(prev, cur);
    }
    return prev[b.size()];
}

std::string Quoted(const std::string& s) {
    return "\"" + s + "\"";
}

// An ORDER value: a number, and whether it is whole.
bool ParseOrder(const std::string& sValue, double& d) {
    const char* p = sValue.c_str();
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n')
        ++p;
    if (!*p) return false;
    char* pEnd = nullptr;
    d = std::strtod(p, &pEnd);
    while (*pEnd == ' ' || *pEnd == '\t' || *pEnd == '\r' || *pEnd == '\n')
        ++pEnd;
    return *pEnd == '\0';
}

}  // namespace

std::string clsSettingsCheck::ExportName(int iKind, int iStructure) {
    return std::string(KindWord(iKind)) + (iStructure == 1 ? "/structure" : "/collection");
}

void clsSettingsCheck::FillSyntheticModel(clsExportContext& ctx) {
    clsExportModel& m = ctx.Model;
    const clsLabelTables& l = ctx.Labels;
    m.XItems.clear();
    m.XDocs.clear();
    m.XFolders.clear();
    switch (m.ExportKind) {
        case 1: {
            XItemStruct oTop;
            oTop.Head = Head("I-0", l.ItemAttrLabels);
            oTop.PSAttr1 = "1";
            oTop.PSAttr2 = "010";
            // The first child has a local alternate, the second and third none: the second child
            // is read after the alternates, the third after a plain child, so the part list
            // reads its child label in each of its sections.
            oTop.Children = "1!2!3!";
            oTop.Docs.push_back(Doc("D-1", l));
            oTop.DocCount = 0;
            oTop.Folders.push_back(Head("F-1", l.FolderAttrLabels));
            oTop.FolderCount = 0;
            MNFStruct oMnf;
            oMnf.Key1 = "M-1";
            oMnf.Key2 = "Maker";
            oMnf.Key3 = "MPN-1";
            oMnf.Attrs = Values(l.MnfAttrLabels, "value");
            oMnf.Vendors.push_back(Head("V-1", l.VndAttrLabels));
            oMnf.VendorCount = 0;
            oTop.MNFs.push_back(oMnf);
            oTop.MNFCount = 0;
            oTop.MnfVndFlag = 3;
            oTop.VNDs.push_back(Head("V-2", l.VndAttrLabels));
            oTop.VNDCount = 0;
            m.XItems.push_back(oTop);
            for (int i = 1; i <= 3; ++i) {
                XItemStruct oChild;
                oChild.Level = 1;
                oChild.Head = Head("I-" + std::to_string(i), l.ItemAttrLabels);
                oChild.PSAttr1 = "2";
                oChild.PSAttr2 = "0" + std::to_string(i) + "0";
                oChild.RefDes = "R" + std::to_string(i);
                if (i == 1) {
                    ItemStruct oAlternate;
                    oAlternate.Key1 = "I-9";
                    oChild.LAIs.push_back(oAlternate);
                    oChild.LAICount = 0;
                }
                m.XItems.push_back(oChild);
            }
            m.ObjCount = static_cast<int32_t>(m.XItems.size()) - 1;
            m.RootObjName = ctx.Res.NameItem;
            break;
        }
        case 2: {
            XDocStruct oTop;
            oTop.Head = Doc("D-0", l);
            oTop.Items.push_back(Head("I-1", l.ItemAttrLabels));
            oTop.ItemCount = 0;
            oTop.Folders.push_back(Head("F-1", l.FolderAttrLabels));
            oTop.FolderCount = 0;
            oTop.Docs.push_back(Doc("D-2", l));
            oTop.DocCount = 0;
            oTop.Children = "1!";
            m.XDocs.push_back(oTop);
            XDocStruct oChild;
            oChild.Level = 1;
            oChild.Head = Doc("D-1", l);
            m.XDocs.push_back(oChild);
            m.ObjCount = static_cast<int32_t>(m.XDocs.size()) - 1;
            m.RootObjName = ctx.Res.NameDoc;
            break;
        }
        case 3: {
            XFoldStruct oTop;
            oTop.Head = Head("F-0", l.FolderAttrLabels);
            oTop.Items.push_back(Head("I-1", l.ItemAttrLabels));
            oTop.ItemCount = 0;
            oTop.Docs.push_back(Doc("D-1", l));
            oTop.DocCount = 0;
            oTop.Folders.push_back(Head("F-2", l.FolderAttrLabels));
            oTop.FolderCount = 0;
            oTop.Children = "1!";
            m.XFolders.push_back(oTop);
            XFoldStruct oChild;
            oChild.Level = 1;
            oChild.Head = Head("F-1", l.FolderAttrLabels);
            m.XFolders.push_back(oChild);
            m.ObjCount = static_cast<int32_t>(m.XFolders.size()) - 1;
            m.RootObjName = ctx.Res.NameFolder;
            break;
        }
        default:
            m.ObjCount = -1;
            break;
    }
}

clsSettingsCheckResult clsSettingsCheck::Run(const std::string& sXIniFullPath,
                                             const std::string& sSetupXString) {
    oResult_ = clsSettingsCheckResult();
    oResult_.sSettingsPath = sXIniFullPath;
    oRecorder_ = clsLookupRecorder();
    arrLog_.clear();

    std::error_code ec;
    if (sXIniFullPath.empty() || !fs::is_regular_file(fs::path(sXIniFullPath), ec)) {
        oResult_.sError = "The settings file " + sXIniFullPath + " was not found.";
        return oResult_;
    }
    oIni_ = std::make_unique<clsXMLIniData>();
    std::string sErrMsg;
    if (!oIni_->LoadXDoc(sXIniFullPath, sErrMsg)) {
        oResult_.sError = "The settings file " + sXIniFullPath + " cannot be read: " + sErrMsg;
        return oResult_;
    }

    int iKind = 0, iStructure = 0;
    if (!sSetupXString.empty()) {
        // The kind and mode the setup string names, compared as the caption step compares them.
        clsRunContext oNames;
        modResources::InitResources(oNames, oIni_.get());
        clsXMLIniData oSetup;
        if (!oSetup.LoadXString(sSetupXString, sErrMsg)) {
            oResult_.sError = "The setup string cannot be read: " + sErrMsg;
            return oResult_;
        }
        const std::string sObject = oSetup.GetLabelUsePath("OBJECT_TYPE");
        const std::string sSpace = oSetup.GetLabelUsePath("SPACE_TYPE");
        const modResources::clsResources& n = oNames.Res;
        iKind = sObject.empty()           ? 0
                : sObject == n.NameItem   ? 1
                : sObject == n.NameDoc    ? 2
                : sObject == n.NameFolder ? 3
                                          : 0;
        iStructure = sSpace == "STRUCTURE" ? 1 : sSpace == "COLLECTION" ? 2 : 0;
        if (iKind == 0) {
            oResult_.sError = "The setup string's OBJECT_TYPE " + Quoted(sObject) +
                              " names no export of these settings (items " + Quoted(n.NameItem) +
                              ", documents " + Quoted(n.NameDoc) + ", folders " +
                              Quoted(n.NameFolder) + ").";
            return oResult_;
        }
        if (iStructure == 0) {
            oResult_.sError = "The setup string's SPACE_TYPE " + Quoted(sSpace) +
                              " is neither STRUCTURE nor COLLECTION.";
            return oResult_;
        }
        oResult_.arrExports.push_back(ExportName(iKind, iStructure));
    } else {
        for (int k = 1; k <= 3; ++k)
            for (int s = 1; s <= 2; ++s)
                oResult_.arrExports.push_back(ExportName(k, s));
    }

    oIni_->SetRecorder(&oRecorder_);
    // Every kind and mode is laid out: an element is unused only when no export reads it. With
    // a setup string, only its export is listed.
    for (int k = 1; k <= 3; ++k) {
        for (int s = 1; s <= 2; ++s) {
            const bool bHost = k == iKind && s == iStructure;
            RunExport(k, s, bHost ? sSetupXString : std::string());
        }
    }
    oIni_->SetRecorder(nullptr);
    Analyse();
    oResult_.iStatus = oResult_.arrFindings.empty() ? 0 : 1;
    return oResult_;
}

void clsSettingsCheck::RunExport(int iKind, int iStructure, const std::string& sSetup) {
    const std::string sExport = ExportName(iKind, iStructure);
    clsExportContext ctx;
    ctx.Options.OnLogLine = [this, sExport](const std::string& sLine) {
        arrLog_.push_back(sExport + "\t" + sLine);
    };
    ctx.IniData = std::move(oIni_);
    struct clsGiveBack {
        clsExportContext& ctx;
        std::unique_ptr<clsXMLIniData>& oIni;
        ~clsGiveBack() { oIni = std::move(ctx.IniData); }
    } oGiveBack{ctx, oIni_};

    auto fnStop = [&](const std::string& sPath, const std::string& sDetail) {
        arrLog_.push_back(sExport + "\texport\t" + sPath + "\t" + sDetail);
    };
    // The last section or list of this step that was not found: where a caption step stopped.
    const size_t lFirst = oRecorder_.Records().size();
    auto fnLastMissing = [&]() -> std::string {
        const auto& arr = oRecorder_.Records();
        for (size_t i = arr.size(); i > lFirst; --i) {
            const clsLookupRecord& r = arr[i - 1];
            if ((r.eKind == Kind::Section || r.eKind == Kind::List) && !r.bFound)
                return r.sExpression;
        }
        return std::string();
    };

    oRecorder_.SetExport(sExport);
    oRecorder_.SetStep("messages");
    modResources::InitResources(ctx, ctx.IniData.get());

    oRecorder_.SetStep("captions");
    const std::string sObjectType = iKind == 1   ? ctx.Res.NameItem
                                    : iKind == 2 ? ctx.Res.NameDoc
                                                 : ctx.Res.NameFolder;
    const bool bHostSetup = !sSetup.empty();
    if (!clsExportExcel::FillExcellCap(
            ctx, bHostSetup ? sSetup : SyntheticSetup(sObjectType, iStructure))) {
        const std::string sMissing = fnLastMissing();
        if (!sMissing.empty()) {
            fnStop(sMissing,
                   "missing or without an element with an ORDER above 0: the export "
                   "stops before the workbook (MSG_SETUP_STRING_ERROR)");
        } else if (!bHostSetup && sObjectType.empty()) {
            fnStop("CUSTOM_OBJECTS", std::string("the configured name of the ") + KindWord(iKind) +
                                         " is empty: no setup string can name this export, "
                                         "which stops before the workbook "
                                         "(MSG_SETUP_STRING_ERROR)");
        } else {
            fnStop("",
                   "the setup string is refused: the export stops before the workbook "
                   "(MSG_SETUP_STRING_ERROR)");
        }
    } else if (ctx.Model.ExportKind != iKind) {
        fnStop("CUSTOM_OBJECTS", std::string("the configured name of the ") + KindWord(iKind) +
                                     " (" + Quoted(sObjectType) + ") names the " +
                                     KindWord(ctx.Model.ExportKind) + " first: no export of the " +
                                     KindWord(iKind) + " can be made");
    }
    // The rest is laid out for the kind and mode in any case, so that its labels are listed.
    ctx.Model.ExportKind = static_cast<int16_t>(iKind);
    ctx.Model.IsStructure = static_cast<int16_t>(iStructure);
    ctx.Model.ObjectType = sObjectType;

    if (!clsExportExcel::FillAttrLabels(ctx)) {
        fnStop(fnLastMissing(),
               "missing or empty: the export stops before the workbook "
               "(MSG_INCOR_INI_FILE_DATA)");
    }

    oRecorder_.SetStep("workbook");
    // Every view the kind and mode allow is laid out, whatever the settings switch on: their
    // labels are read only where a view is written.
    ctx.Options.Views = clsViews{true, true, true, true};
    FillSyntheticModel(ctx);
    clsBldExcel oBuilder(ctx);
    if (oBuilder.InitExlInMemory()) oBuilder.FillExlFile();
}

void clsSettingsCheck::Analyse() {
    const std::vector<clsLookupRecord>& arrRecords = oRecorder_.Records();
    const std::set<std::string> setListed(oResult_.arrExports.begin(), oResult_.arrExports.end());
    auto fnListed = [&](const std::string& sExport) { return setListed.count(sExport) != 0; };

    // Reads, one entry per distinct read, with the exports that make it.
    std::map<std::tuple<std::string, std::string, std::string, std::string, bool, std::string>,
             size_t>
        mapReads;
    auto fnAddExport = [](std::vector<std::string>& arr, const std::string& sExport) {
        if (!sExport.empty() && std::find(arr.begin(), arr.end(), sExport) == arr.end())
            arr.push_back(sExport);
    };
    auto fnRead = [&](clsSettingsRead oRead, const std::string& sExport) {
        auto key = std::make_tuple(oRead.sKind, oRead.sPath, oRead.sFound, oRead.sText,
                                   oRead.bHasDefault, oRead.sDefault);
        auto it = mapReads.find(key);
        if (it == mapReads.end()) {
            it = mapReads.emplace(key, oResult_.arrReads.size()).first;
            oResult_.arrReads.push_back(std::move(oRead));
        }
        fnAddExport(oResult_.arrReads[it->second].arrExports, sExport);
    };
    std::map<std::tuple<std::string, std::string, std::string>, size_t> mapFindings;
    auto fnFind = [&](const std::string& sKind, const std::string& sPath,
                      const std::string& sDetail, const std::string& sExport) {
        auto key = std::make_tuple(sKind, sPath, sDetail);
        auto it = mapFindings.find(key);
        if (it == mapFindings.end()) {
            it = mapFindings.emplace(key, oResult_.arrFindings.size()).first;
            oResult_.arrFindings.push_back(clsSettingsFinding{sKind, sPath, {}, sDetail});
        }
        fnAddExport(oResult_.arrFindings[it->second].arrExports, sExport);
    };

    // What any export selected, and the names it looked for, with where it looked.
    std::set<const void*> setTouched;
    std::set<const void*> setCovered;
    std::map<std::string, std::set<std::string>> mapNameRead;
    std::vector<pugi::xml_node> arrOrderSections;
    std::set<const void*> setOrderSections;

    for (const clsLookupRecord& r : arrRecords) {
        // Touched nodes, over every export.
        for (const pugi::xml_node& n : r.arrNodes) {
            setTouched.insert(n.internal_object());
            if (r.eKind == Kind::Label || r.eKind == Kind::List) {
                // A label's text is all the text below it.
                for (const pugi::xpath_node& d : n.select_nodes(".//*"))
                    setTouched.insert(d.node().internal_object());
            }
        }
        // The entries of a list that came back empty were looked at: a "missing" finding names
        // the section, and ORDER findings say why, so they are not unused as well.
        if (r.eKind == Kind::List && r.arrNodes.empty() && r.oFrom) {
            for (pugi::xml_node c = r.oFrom.first_child(); c; c = c.next_sibling())
                setCovered.insert(c.internal_object());
        }
        bool bSectionMissing = false;
        const std::string sPath = LookupPath(r, bSectionMissing);
        if (r.eKind == Kind::Section || r.eKind == Kind::Label || r.eKind == Kind::Skipped) {
            const std::string sName = LastName(r.sExpression);
            if (!sName.empty()) mapNameRead[sName].insert(sPath);
        }
        if (!fnListed(r.sExport)) continue;

        // Sections read by ORDER.
        const bool bByOrder = r.eKind == Kind::List || r.eKind == Kind::Field ||
                              (r.sExpression.rfind("*[@ORDER", 0) == 0 &&
                               (r.eKind == Kind::Label || r.eKind == Kind::Skipped));
        if (bByOrder && r.oFrom && setOrderSections.insert(r.oFrom.internal_object()).second)
            arrOrderSections.push_back(r.oFrom);

        const std::string sFound =
            r.arrNodes.empty() ? std::string() : clsLookupRecorder::NodePath(r.arrNodes[0]);
        switch (r.eKind) {
            case Kind::Section:
                if (r.sStep == "messages" && !r.bFound) {
                    fnFind("message", r.sExpression,
                           "missing or empty: no message text and no configured name is loaded, "
                           "so every log message and every configured name is empty",
                           r.sExport);
                }
                break;
            case Kind::Label:
            case Kind::Skipped: {
                clsSettingsRead o;
                o.sPath = sPath;
                o.bSectionMissing = bSectionMissing;
                o.sFound = sFound;
                o.sText = r.sResult;
                o.bHasDefault = r.bHasDefault;
                o.sDefault = r.sDefault;
                if (r.sStep == "messages") {
                    // A configured name stands in a section ("//CUSTOM_OBJECTS/ITEM"), a
                    // message text alone ("//MSG_FILE").
                    const bool bName = r.sExpression.find('/', 2) != std::string::npos;
                    o.sKind = bName ? "name" : "message";
                    if (r.sResult.empty()) {
                        fnFind("message", sPath,
                               std::string(sFound.empty() ? "not found" : "empty") +
                                   (bName ? ": the export cannot recognise this element or "
                                            "attribute of the data file"
                                          : ": the log lines that use this message show nothing "
                                            "in its place"),
                               r.sExport);
                    }
                } else {
                    o.sKind = "label";
                    if (r.sResult.empty()) {
                        std::string sWhy = bSectionMissing ? "the section " + r.sSectionAsked +
                                                                 " is missing or empty"
                                           : sFound.empty() ? "not found"
                                                            : sFound + " is empty";
                        if (r.bHasDefault) {
                            fnFind("fallback", sPath,
                                   sWhy + (r.sDefault.empty()
                                               ? ": the export shows nothing (no built-in text)"
                                               : ": the export shows the built-in text " +
                                                     Quoted(r.sDefault)),
                                   r.sExport);
                        } else {
                            fnFind("missing", sPath, sWhy + ": the export shows nothing here",
                                   r.sExport);
                        }
                    }
                }
                fnRead(std::move(o), r.sExport);
                break;
            }
            case Kind::Field:
            case Kind::Attribute: {
                if (r.eKind == Kind::Attribute && r.sExpression != "FIELD") break;
                clsSettingsRead o;
                o.sKind = "field";
                o.sPath = sPath;
                o.bSectionMissing = bSectionMissing;
                o.sFound = sFound;
                o.sText = r.sResult;
                if (r.sResult.empty()) {
                    std::string sWhy =
                        bSectionMissing  ? "the section " + r.sSectionAsked + " is missing or empty"
                        : sFound.empty() ? "no element " + r.sExpression
                                         : sFound + " has no FIELD";
                    fnFind("field", sPath,
                           sWhy + ": the export cannot name the data attribute it reads here",
                           r.sExport);
                }
                fnRead(std::move(o), r.sExport);
                break;
            }
            case Kind::List: {
                if (r.arrNodes.empty()) {
                    clsSettingsRead o;
                    o.sKind = "label";
                    o.sPath = sPath;
                    o.bSectionMissing = !r.oFrom;
                    fnRead(std::move(o), r.sExport);
                    fnFind("missing", sPath,
                           r.oFrom ? "no element with a whole ORDER above 0: nothing is listed "
                                     "from this section"
                                   : "the section " + r.sExpression +
                                         " is missing or empty: nothing is listed from it",
                           r.sExport);
                }
                for (const pugi::xml_node& n : r.arrNodes) {
                    clsSettingsRead o;
                    o.sKind = "label";
                    o.sPath = sPath;
                    o.sFound = clsLookupRecorder::NodePath(n);
                    o.sText = clsXMLIniData::NodeText(n);
                    if (o.sText.empty()) {
                        fnFind("missing", o.sFound, "empty: the export shows an empty caption",
                               r.sExport);
                    }
                    fnRead(std::move(o), r.sExport);
                }
                break;
            }
        }
    }

    // Where an export stopped, and what it logged.
    static const std::regex reDate(R"(\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d{2}:\d{2} [AP]M)");
    for (const std::string& sEntry : arrLog_) {
        const size_t p = sEntry.find('\t');
        const std::string sExport = sEntry.substr(0, p);
        if (!fnListed(sExport)) continue;
        std::string sRest = sEntry.substr(p + 1);
        if (sRest.rfind("export\t", 0) == 0) {
            sRest = sRest.substr(7);
            const size_t q = sRest.find('\t');
            fnFind("export", sRest.substr(0, q), sRest.substr(q + 1), sExport);
            continue;
        }
        std::string sLine = std::regex_replace(sRest, reDate, "");
        sLine = std::regex_replace(sLine, std::regex("  +"), " ");
        while (!sLine.empty() && sLine.back() == ' ')
            sLine.pop_back();
        fnFind("log", "", "the export logs: " + sLine, sExport);
    }

    // ORDER problems in the sections read by ORDER.
    std::set<const void*> setNamed;  // elements an ORDER finding names already
    auto fnUsed = [&](const pugi::xml_node& n) { return setTouched.count(n.internal_object()); };
    for (const pugi::xml_node& oSection : arrOrderSections) {
        const std::string sSection = clsLookupRecorder::NodePath(oSection);
        std::map<long, std::vector<pugi::xml_node>> mapByOrder;
        for (pugi::xml_node c = oSection.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_element) continue;
            const std::string sPath = clsLookupRecorder::NodePath(c);
            pugi::xml_attribute a = c.attribute("ORDER");
            double d = 0;
            if (!a) {
                // One the export reads by name elsewhere is misplaced: the unused list says where.
                auto itName = mapNameRead.find(c.name());
                const bool bReadElsewhere =
                    itName != mapNameRead.end() &&
                    (itName->second.size() > 1 || !itName->second.count(sPath));
                if (!fnUsed(c) && !bReadElsewhere) {
                    fnFind("order", sPath,
                           "no ORDER: the export reads this section by ORDER and never reads it",
                           "");
                    setNamed.insert(c.internal_object());
                }
            } else if (!ParseOrder(a.value(), d)) {
                fnFind("order", sPath,
                       "ORDER " + Quoted(a.value()) +
                           " is not a number: the export leaves it out of lists and a lookup by "
                           "ORDER never finds it",
                       "");
                setNamed.insert(c.internal_object());
            } else if (d > 0 && std::nearbyint(d) > INT32_MAX) {
                fnFind("order", sPath,
                       "ORDER " + Quoted(a.value()) +
                           " is too large: a section read as a list gives no list at all",
                       "");
                setNamed.insert(c.internal_object());
            } else if (d != std::trunc(d)) {
                fnFind("order", sPath,
                       "ORDER " + Quoted(a.value()) +
                           " is not a whole number: a list places it as if rounded, a lookup by "
                           "ORDER never finds it",
                       "");
                setNamed.insert(c.internal_object());
            } else if (d <= 0) {
                if (!fnUsed(c)) {
                    fnFind("order", sPath,
                           "ORDER " + std::string(a.value()) +
                               " is not above 0: the export leaves it out and never reads it",
                           "");
                    setNamed.insert(c.internal_object());
                }
            } else {
                mapByOrder[static_cast<long>(d)].push_back(c);
            }
        }
        std::string sOrders;
        for (const auto& [lOrder, arrNodes] : mapByOrder) {
            for (size_t i = 0; i < arrNodes.size(); ++i)
                sOrders += (sOrders.empty() ? "" : ", ") + std::to_string(lOrder);
        }
        long lExpect = 1;
        for (const auto& [lOrder, arrNodes] : mapByOrder) {
            for (size_t i = 1; i < arrNodes.size(); ++i) {
                fnFind("order", clsLookupRecorder::NodePath(arrNodes[i]),
                       "ORDER " + std::to_string(lOrder) + " is also given to " +
                           clsLookupRecorder::NodePath(arrNodes[0]) +
                           (fnUsed(arrNodes[i]) ? "" : ": a lookup by ORDER reads only the first"),
                       "");
                setNamed.insert(arrNodes[i].internal_object());
            }
            if (lExpect < lOrder) {
                const std::string sMissing =
                    lExpect + 1 == lOrder
                        ? std::to_string(lExpect)
                        : std::to_string(lExpect) + " to " + std::to_string(lOrder - 1);
                fnFind("order", sSection,
                       "no element has ORDER " + sMissing + " (the ORDERs here: " + sOrders + ")",
                       "");
            }
            lExpect = lOrder + 1;
        }
    }

    // Elements that no export reads: an element is used when some lookup selected it, or
    // something below it, or (for a label) something above it. Only the outermost unused
    // element of a branch is named.
    std::set<const void*> setUsed = setTouched;
    for (const void* p : setTouched) {
        pugi::xml_node n(static_cast<pugi::xml_node_struct*>(const_cast<void*>(p)));
        for (n = n.parent(); n; n = n.parent())
            setUsed.insert(n.internal_object());
    }
    const pugi::xml_node oRoot = oIni_->DocumentElement();
    std::vector<pugi::xml_node> arrStack;
    for (pugi::xml_node c = oRoot.last_child(); c; c = c.previous_sibling())
        arrStack.push_back(c);
    while (!arrStack.empty()) {
        pugi::xml_node n = arrStack.back();
        arrStack.pop_back();
        if (n.type() != pugi::node_element) continue;
        if (setUsed.count(n.internal_object())) {
            for (pugi::xml_node c = n.last_child(); c; c = c.previous_sibling())
                arrStack.push_back(c);
            continue;
        }
        if (setNamed.count(n.internal_object()) || setCovered.count(n.internal_object())) continue;
        const std::string sPath = clsLookupRecorder::NodePath(n);
        const std::string sName = n.name();
        std::string sDetail = "no export reads it";
        std::set<std::string> setElsewhere;
        auto it = mapNameRead.find(sName);
        if (it != mapNameRead.end()) {
            for (const std::string& s : it->second)
                if (s != sPath) setElsewhere.insert(s);
        }
        if (!setElsewhere.empty()) {
            sDetail += "; the export reads " + sName + " at ";
            bool bFirst = true;
            for (const std::string& s : setElsewhere) {
                sDetail += (bFirst ? "" : ", ") + s;
                bFirst = false;
            }
        } else if (sName.size() >= 4) {
            // A misspelt name: the closest name the export reads, preferring this section.
            const std::string sParent = clsLookupRecorder::NodePath(n.parent());
            std::string sBest, sBestPath;
            size_t lBest = 3;
            bool bBestHere = false;
            for (const auto& [sRead, setPaths] : mapNameRead) {
                const size_t l = Distance(sName, sRead);
                if (l == 0 || l > 2) continue;
                for (const std::string& s : setPaths) {
                    const bool bHere = s == (sParent.empty() ? sRead : sParent + "/" + sRead);
                    if (l < lBest || (l == lBest && bHere && !bBestHere)) {
                        lBest = l;
                        sBest = sRead;
                        sBestPath = s;
                        bBestHere = bHere;
                    }
                }
            }
            if (!sBest.empty())
                sDetail += "; did you mean " + sBest + "? The export reads " + sBestPath;
        }
        fnFind("unused", sPath, sDetail, "");
    }

    // Findings in a fixed order of kinds; within a kind, in the order found.
    static const std::vector<std::string> arrKinds = {"export", "message", "missing", "fallback",
                                                      "field",  "order",   "unused",  "log"};
    auto fnRank = [](const clsSettingsFinding& f) {
        return std::find(arrKinds.begin(), arrKinds.end(), f.sKind) - arrKinds.begin();
    };
    std::stable_sort(oResult_.arrFindings.begin(), oResult_.arrFindings.end(),
                     [&](const clsSettingsFinding& a, const clsSettingsFinding& b) {
                         return fnRank(a) < fnRank(b);
                     });
}

clsSettingsCheckResult CheckSettings(const std::string& sXIniFullPath,
                                     const std::string& sSetupXString) {
    try {
        clsSettingsCheck oCheck;
        return oCheck.Run(sXIniFullPath, sSetupXString);
    } catch (const std::exception& e) {
        clsSettingsCheckResult r;
        r.sSettingsPath = sXIniFullPath;
        r.sError = std::string("The settings check failed: ") + e.what();
        return r;
    }
}
