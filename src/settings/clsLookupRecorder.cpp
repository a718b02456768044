#include "settings/clsLookupRecorder.h"

#include <cstring>

clsLookupRecord& clsLookupRecorder::Add(clsLookupRecord::Kind eKind,
                                        const std::string& sExpression) {
    clsLookupRecord& r = arrRecords_.emplace_back();
    r.eKind = eKind;
    r.sExport = sExport_;
    r.sStep = sStep_;
    r.sExpression = sExpression;
    return r;
}

void clsLookupRecorder::OnSection(const std::string& sPath, const pugi::xml_node& oFound,
                                  bool bCurrent) {
    clsLookupRecord& r = Add(clsLookupRecord::Kind::Section, sPath);
    if (oFound) r.arrNodes.push_back(oFound);
    r.bFound = bCurrent;
    sSectionAsked_ = sPath;
}

void clsLookupRecorder::OnLabel(const std::string& sExpression, bool bFromCurrent,
                                const pugi::xml_node& oFrom, const pugi::xml_node& oMatch,
                                const std::string& sText) {
    clsLookupRecord& r = Add(clsLookupRecord::Kind::Label, sExpression);
    r.bFromCurrent = bFromCurrent;
    r.oFrom = oFrom;
    if (bFromCurrent) r.sSectionAsked = sSectionAsked_;
    if (oMatch) r.arrNodes.push_back(oMatch);
    r.bFound = static_cast<bool>(oMatch);
    r.sResult = sText;
}

void clsLookupRecorder::OnField(const std::string& sExpression, const pugi::xml_node& oFrom,
                                const pugi::xml_node& oMatch, const std::string& sValue) {
    clsLookupRecord& r = Add(clsLookupRecord::Kind::Field, sExpression);
    r.bFromCurrent = true;
    r.oFrom = oFrom;
    r.sSectionAsked = sSectionAsked_;
    if (oMatch) r.arrNodes.push_back(oMatch);
    r.bFound = static_cast<bool>(oMatch);
    r.sResult = sValue;
}

void clsLookupRecorder::OnAttribute(const pugi::xml_node& oElement, const std::string& sName,
                                    const std::string& sValue) {
    clsLookupRecord& r = Add(clsLookupRecord::Kind::Attribute, sName);
    if (oElement) r.arrNodes.push_back(oElement);
    r.bFound = static_cast<bool>(oElement);
    r.sResult = sValue;
}

void clsLookupRecorder::OnList(const std::string& sPath, const pugi::xml_node& oSection,
                               const pugi::xpath_node_set& oList) {
    clsLookupRecord& r = Add(clsLookupRecord::Kind::List, sPath);
    r.oFrom = oSection;
    for (const pugi::xpath_node& n : oList)
        r.arrNodes.push_back(n.node());
    r.bFound = !r.arrNodes.empty();
}

void clsLookupRecorder::OnFallback(bool bAsked, const std::string& sExpression, bool bFromCurrent,
                                   const std::string& sDefault, const clsCallSite& oSite) {
    clsLookupRecord* p = nullptr;
    if (bAsked && !arrRecords_.empty()) {
        clsLookupRecord& rLast = arrRecords_.back();
        if (rLast.eKind == clsLookupRecord::Kind::Label && !rLast.bHasDefault &&
            rLast.sExpression == sExpression)
            p = &rLast;
    }
    if (!p) {
        // Not asked (or the read failed before it could be recorded): the read it stands for.
        p = &Add(clsLookupRecord::Kind::Skipped, sExpression);
        p->bFromCurrent = bFromCurrent;
        if (bFromCurrent) p->sSectionAsked = sSectionAsked_;
    }
    p->bHasDefault = true;
    p->sDefault = sDefault;
    p->sSite = SiteOf(oSite);
}

void clsLookupRecorder::OnSite(const clsCallSite& oSite) {
    if (!arrRecords_.empty()) arrRecords_.back().sSite = SiteOf(oSite);
}

std::string clsLookupRecorder::NodePath(const pugi::xml_node& oNode) {
    std::string sPath;
    for (pugi::xml_node n = oNode; n && n.parent() && n.parent().type() != pugi::node_document;
         n = n.parent()) {
        std::string sStep = n.name();
        long lPlace = 1;
        for (pugi::xml_node s = n.previous_sibling(n.name()); s; s = s.previous_sibling(n.name()))
            ++lPlace;
        if (lPlace > 1) sStep += "[" + std::to_string(lPlace) + "]";
        sPath = sPath.empty() ? sStep : sStep + "/" + sPath;
    }
    return sPath;
}

std::string clsLookupRecorder::SiteOf(const clsCallSite& oSite) {
    const char* sFile = oSite.file_name();
    const char* sSlash = std::strrchr(sFile, '/');
    return std::string(sSlash ? sSlash + 1 : sFile) + ":" + std::to_string(oSite.line());
}
