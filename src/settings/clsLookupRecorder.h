// What the settings check learns from an export: every lookup made on a settings document, with
// the section that was current, the nodes it selected, what it returned and, where the caller
// falls back to a built-in text, that text. A settings document records only when a recorder is
// attached to it (the settings check attaches one); an export pays one test per lookup.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <vector>

#include "support/clsCallSite.h"

struct clsLookupRecord {
    enum class Kind {
        Section,    // SetCurNode: sExpression is the path asked, arrNodes the node found
        Label,      // a label read: the text of the first node the expression selects
        Skipped,    // a label read the caller did not make: its switch for labels was off
        Field,      // GetFieldNameUseCurNodeByID: the FIELD of the child of that ORDER
        Attribute,  // GetAttrValue: sExpression is the attribute's name, arrNodes the element
        List        // GetOrderedAttrList: sExpression is the section path, arrNodes the entries
    };
    Kind eKind = Kind::Label;
    std::string sExport;        // the export the lookup belongs to (set by the check)
    std::string sStep;          // the step of the export (set by the check)
    std::string sExpression;    // as handed to the settings document
    bool bFromCurrent = false;  // evaluated from the current section, not from the document element
    pugi::xml_node oFrom;       // the current section at the time; empty when there was none
    std::string sSectionAsked;  // the path last handed to SetCurNode (names a missing section)
    std::vector<pugi::xml_node> arrNodes;  // what the lookup selected
    bool bFound = false;                   // something was selected (a section: and made current)
    std::string sResult;                   // the text or value returned
    bool bHasDefault = false;              // the caller falls back to sDefault on an empty result
    std::string sDefault;
    std::string sSite;  // "file:line" of the caller, when it names itself
};

class clsLookupRecorder {
public:
    // Set by the check: the export and the step the following lookups belong to.
    void SetExport(const std::string& sExport) { sExport_ = sExport; }
    void SetStep(const std::string& sStep) { sStep_ = sStep; }

    // Called by the settings document.
    void OnSection(const std::string& sPath, const pugi::xml_node& oFound, bool bCurrent);
    void OnLabel(const std::string& sExpression, bool bFromCurrent, const pugi::xml_node& oFrom,
                 const pugi::xml_node& oMatch, const std::string& sText);
    void OnField(const std::string& sExpression, const pugi::xml_node& oFrom,
                 const pugi::xml_node& oMatch, const std::string& sValue);
    void OnAttribute(const pugi::xml_node& oElement, const std::string& sName,
                     const std::string& sValue);
    void OnList(const std::string& sPath, const pugi::xml_node& oSection,
                const pugi::xpath_node_set& oList);

    // Called by a caller that falls back to sDefault when the label it reads is empty. With
    // bAsked it made the read just before (sExpression as it handed it over); without, it did
    // not ask, and sExpression is the read it would have made on the current section.
    void OnFallback(bool bAsked, const std::string& sExpression, bool bFromCurrent,
                    const std::string& sDefault, const clsCallSite& oSite);
    // Names the caller of the last lookup.
    void OnSite(const clsCallSite& oSite);

    const std::vector<clsLookupRecord>& Records() const { return arrRecords_; }

    // The path of a node below the document element ("PROPERTY_LBL/PART_LIST_LBL/CHILD"); a
    // node that is not the first of its name among its siblings gets its place ("CHILD[2]").
    // The document element itself gives "".
    static std::string NodePath(const pugi::xml_node& oNode);
    // "file:line" of a source location, with the file's name alone.
    static std::string SiteOf(const clsCallSite& oSite);

private:
    clsLookupRecord& Add(clsLookupRecord::Kind eKind, const std::string& sExpression);

    std::string sExport_;
    std::string sStep_;
    std::string sSectionAsked_;
    std::vector<clsLookupRecord> arrRecords_;
};
