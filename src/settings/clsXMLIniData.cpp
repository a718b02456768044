#include "settings/clsXMLIniData.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>

#include "support/modResources.h"

clsXMLIniData::clsXMLIniData() = default;
clsXMLIniData::~clsXMLIniData() = default;

unsigned int clsXMLIniData::ParseOptions() {
    // pugixml's defaults drop whitespace-only text and skip any DTD without expanding entities.
    return pugi::parse_default | pugi::parse_comments | pugi::parse_pi;
}

namespace {

// 1-based line and column of a byte offset in the parsed text.
void LineAndColumn(const char* pData, size_t nSize, ptrdiff_t lOffset, long& lLine, long& lPos) {
    size_t lEnd = std::min(nSize, static_cast<size_t>(std::max<ptrdiff_t>(0, lOffset)));
    lLine = 1;
    size_t lLineStart = 0;
    for (size_t i = 0; i < lEnd; ++i) {
        if (pData[i] == '\n') {
            ++lLine;
            lLineStart = i + 1;
        }
    }
    lPos = static_cast<long>(lEnd - lLineStart) + 1;
}

bool LoadBufferInto(pugi::xml_document& oDoc, const std::string& sData, std::string& sReason,
                    long& lLine, long& lPos) {
    pugi::xml_parse_result res =
        oDoc.load_buffer(sData.data(), sData.size(), clsXMLIniData::ParseOptions());
    if (res) return true;
    sReason = res.description();
    LineAndColumn(sData.data(), sData.size(), res.offset, lLine, lPos);
    return false;
}

}  // namespace

bool clsXMLIniData::LoadFileInto(pugi::xml_document& oDoc, const std::string& sPath,
                                 std::string& sReason, long& lLine, long& lPos) {
    std::ifstream in(sPath, std::ios::binary);
    if (!in) {
        sReason = "File could not be opened";
        lLine = lPos = 0;
        return false;
    }
    std::string sData((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        sReason = "File could not be read";
        lLine = lPos = 0;
        return false;
    }
    return LoadBufferInto(oDoc, sData, sReason, lLine, lPos);
}

bool clsXMLIniData::LoadStringInto(pugi::xml_document& oDoc, const std::string& sText,
                                   std::string& sReason, long& lLine, long& lPos) {
    return LoadBufferInto(oDoc, sText, sReason, lLine, lPos);
}

bool clsXMLIniData::LoadXDoc(const std::string& sXFullPath, std::string& sErrMsg) {
    try {
        oDoc_ = std::make_unique<pugi::xml_document>();
        oCurNode_ = pugi::xml_node();
        queries_.clear();
        std::string sReason;
        long lLine = 0, lPos = 0;
        bool bOk = LoadFileInto(*oDoc_, sXFullPath, sReason, lLine, lPos);
        // White-space preservation is switched on after the load, so it does not affect it.
        bPreserveWhiteSpace_ = true;
        if (!bOk) {
            sErrMsg = modResources::NowGeneralDate() + " IniDoc Load Parse error: " + sReason +
                      " On Line: " + std::to_string(lLine) +
                      " At Position: " + std::to_string(lPos);
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        sErrMsg = std::string("IniDoc Load Run error: ") + e.what();
        return false;
    }
}

bool clsXMLIniData::LoadXString(const std::string& sXString, std::string& sErrMsg) {
    try {
        oDoc_ = std::make_unique<pugi::xml_document>();
        oCurNode_ = pugi::xml_node();
        queries_.clear();
        std::string sReason;
        long lLine = 0, lPos = 0;
        if (!LoadStringInto(*oDoc_, sXString, sReason, lLine, lPos)) {
            sErrMsg = modResources::NowGeneralDate() + " String Load Parse error: " + sReason +
                      " On Line: " + std::to_string(lLine) +
                      " At Position: " + std::to_string(lPos);
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        sErrMsg = std::string("String Load Run error: ") + e.what();
        return false;
    }
}

const pugi::xpath_query& clsXMLIniData::Query(const std::string& sXPath) {
    auto it = queries_.find(sXPath);
    if (it != queries_.end()) return *it->second;
    auto q = std::make_unique<pugi::xpath_query>(sXPath.c_str());  // throws on a bad expression
    return *queries_.emplace(sXPath, std::move(q)).first->second;
}

pugi::xml_node clsXMLIniData::SelectFirst(const pugi::xml_node& oFrom, const std::string& sXPath) {
    if (!oFrom) return pugi::xml_node();
    return Query(sXPath).evaluate_node(oFrom).node();
}

std::string clsXMLIniData::NodeText(const pugi::xml_node& oNode) {
    if (!oNode) return std::string();
    if (oNode.type() == pugi::node_pcdata || oNode.type() == pugi::node_cdata) return oNode.value();
    if (oNode.type() == pugi::node_comment || oNode.type() == pugi::node_pi) return oNode.value();
    std::string s;
    // Iterative walk over the descendants in document order: no recursion, whatever the depth.
    pugi::xml_node n = oNode.first_child();
    while (n) {
        if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) s += n.value();
        if (n.first_child()) {
            n = n.first_child();
        } else {
            while (n && n != oNode && !n.next_sibling())
                n = n.parent();
            if (!n || n == oNode) break;
            n = n.next_sibling();
        }
    }
    return s;
}

bool clsXMLIniData::SetCurNode(const std::string& sNodePath) {
    try {
        oCurNode_ = SelectFirst(DocumentElement(), sNodePath);
        if (!oCurNode_) return false;
        if (!oCurNode_.first_child()) {
            oCurNode_ = pugi::xml_node();
            return false;
        }
        return true;
    } catch (...) {
        oCurNode_ = pugi::xml_node();
        return false;
    }
}

long clsXMLIniData::CurNodeChildNumber() const {
    if (!oCurNode_) return 0;
    long n = 0;
    for (pugi::xml_node c = oCurNode_.first_child(); c; c = c.next_sibling())
        ++n;
    return n;
}

namespace {

void ReplaceIndex(const pugi::xml_node& oMatch, std::string* sIndex, const std::string& sIndAttr) {
    if (sIndex && !sIndex->empty() && oMatch) {
        *sIndex = oMatch.attribute(sIndAttr.c_str()).value();
    }
}

}  // namespace

std::string clsXMLIniData::GetLabelUseCurNode(const std::string& lblCap, std::string* sIndex,
                                              const std::string& sIndAttr) {
    try {
        if (!oCurNode_) return std::string();
        pugi::xml_node oMatch = SelectFirst(oCurNode_, lblCap);
        ReplaceIndex(oMatch, sIndex, sIndAttr);
        return NodeText(oMatch);
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetLabelUseCurNodeByID(long lInd, std::string* sIndex,
                                                  const std::string& sIndAttr) {
    return GetLabelUseCurNode("*[@ORDER = " + std::to_string(lInd) + "]", sIndex, sIndAttr);
}

std::string clsXMLIniData::GetLabelUsePath(const std::string& sLblCapPath, std::string* sIndex,
                                           const std::string& sIndAttr) {
    try {
        pugi::xml_node oMatch = SelectFirst(DocumentElement(), sLblCapPath);
        ReplaceIndex(oMatch, sIndex, sIndAttr);
        return NodeText(oMatch);
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetLabelUsePathByID(const std::string& sParentPath, long lInd,
                                               std::string* sIndex) {
    SetCurNode(sParentPath);
    return GetLabelUseCurNodeByID(lInd, sIndex);
}

std::string clsXMLIniData::GetFieldNameUseCurNodeByID(long lInd, const std::string& sAlterName) {
    try {
        if (!oCurNode_) return sAlterName;
        pugi::xml_node oMatch = SelectFirst(oCurNode_, "*[@ORDER = " + std::to_string(lInd) + "]");
        if (!oMatch) return sAlterName;
        return oMatch.attribute("FIELD").value();
    } catch (...) {
        return sAlterName;
    }
}

pugi::xml_node clsXMLIniData::MatchByLabel(const std::string& sLabel) {
    // The label is inserted as it is: one holding an apostrophe finds nothing.
    if (!oCurNode_) return pugi::xml_node();
    return SelectFirst(oCurNode_, "*[. = '" + sLabel + "']");
}

std::string clsXMLIniData::GetNodeNameUseCurNodeByLabel(const std::string& sLabel,
                                                        bool bWithPosition, std::string* sPos,
                                                        const std::string& sPosAttr) {
    try {
        pugi::xml_node oMatch = MatchByLabel(sLabel);
        if (bWithPosition && sPos) *sPos = oMatch ? oMatch.attribute(sPosAttr.c_str()).value() : "";
        return oMatch ? std::string(oMatch.name()) : std::string();
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetFieldNameUseCurNodeByLabel(const std::string& sLabel,
                                                         bool bWithPosition, std::string* sPos,
                                                         const std::string& sPosAttr) {
    try {
        pugi::xml_node oMatch = MatchByLabel(sLabel);
        if (bWithPosition && sPos) *sPos = oMatch ? oMatch.attribute(sPosAttr.c_str()).value() : "";
        return oMatch ? std::string(oMatch.attribute("FIELD").value()) : std::string();
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetNodeNameUsePathByLabel(const std::string& sParentPath,
                                                     const std::string& sLabel) {
    SetCurNode(sParentPath);
    return GetNodeNameUseCurNodeByLabel(sLabel);
}

std::string clsXMLIniData::GetAttrValue(const pugi::xml_node& oElement,
                                        const std::string& attrName) {
    if (!oElement) return std::string();
    return oElement.attribute(attrName.c_str()).value();
}

long clsXMLIniData::GetAttrRows(const std::string& sAttrXPath, const std::string& sVisib,
                                int iColPerRow) {
    try {
        if (!oDoc_) return 0;
        pugi::xpath_node_set set =
            Query("//" + sAttrXPath + "/*[@" + sVisib + " = 'True']").evaluate_node_set(*oDoc_);
        long n = static_cast<long>(set.size());
        if (n == 0) return 0;
        long lPairs = iColPerRow / 2;
        if (lPairs == 0) return 0;  // the division by zero of a row of fewer than two columns
        return n / lPairs + ((n % lPairs) >= 1 ? 1 : 0);
    } catch (...) {
        return 0;
    }
}

namespace {

// CLng: round to the nearest whole number, halves to even; error when not numeric.
long ToLong(const char* s) {
    std::string t(s);
    size_t a = t.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) throw std::invalid_argument("empty");
    size_t lUsed = 0;
    double d = std::stod(t.substr(a), &lUsed);
    return static_cast<long>(std::nearbyint(d));
}

}  // namespace

pugi::xpath_node_set clsXMLIniData::GetOrderedAttrList(const std::string& sAttrPath,
                                                       long& lAttrCount, clsOrderArray& arrOrder) {
    lAttrCount = -1;
    try {
        if (!SetCurNode(sAttrPath)) return pugi::xpath_node_set();
        pugi::xpath_node_set set = Query("*[@ORDER > 0]").evaluate_node_set(oCurNode_);
        set.sort();  // document order
        long c = static_cast<long>(set.size());
        lAttrCount = c - 1;
        if (c == 0) return pugi::xpath_node_set();
        arrOrder.assign(static_cast<size_t>(c), {0, 0});
        for (long i = 0; i < c; ++i) {
            arrOrder[i][0] = i;
            arrOrder[i][1] = ToLong(set[static_cast<size_t>(i)].node().attribute("ORDER").value());
        }
        // Exchange sort by ORDER; not stable: [2, 2', 1] ends as [1, 2', 2].
        for (long i = 0; i < c; ++i) {
            for (long j = i + 1; j < c; ++j) {
                if (arrOrder[j][1] < arrOrder[i][1]) std::swap(arrOrder[i], arrOrder[j]);
            }
        }
        return set;
    } catch (...) {
        lAttrCount = -1;
        arrOrder.clear();
        return pugi::xpath_node_set();
    }
}
