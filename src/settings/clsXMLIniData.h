// Read-only access to one XML document (the settings file, or a setup string): a current node,
// label and field-name lookups by path, position or label text, attribute rows, ordered lists.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/iclsLabelSource.h"

class clsLookupRecorder;

// The order array of GetOrderedAttrList: entry i holds (0) the node's place in the returned list
// and (1) its ORDER value; arrOrder[i][0] is element (0, i).
using clsOrderArray = std::vector<std::array<long, 2>>;

class clsXMLIniData final : public iclsLabelSource {
public:
    clsXMLIniData();
    ~clsXMLIniData() override;
    clsXMLIniData(const clsXMLIniData&) = delete;
    clsXMLIniData& operator=(const clsXMLIniData&) = delete;

    bool LoadXDoc(const std::string& sXFullPath, std::string& sErrMsg);
    bool LoadXString(const std::string& sXString, std::string& sErrMsg);

    bool SetCurNode(const std::string& sNodePath) override;
    long CurNodeChildNumber() const;

    std::string GetLabelUseCurNode(const std::string& lblCap, std::string* sIndex = nullptr,
                                   const std::string& sIndAttr = "") override;
    std::string GetLabelUseCurNodeByID(long lInd, std::string* sIndex = nullptr,
                                       const std::string& sIndAttr = "");
    std::string GetLabelUsePath(const std::string& sLblCapPath, std::string* sIndex = nullptr,
                                const std::string& sIndAttr = "");
    std::string GetLabelUsePathByID(const std::string& sParentPath, long lInd,
                                    std::string* sIndex = nullptr);
    std::string GetFieldNameUseCurNodeByID(long lInd, const std::string& sAlterName = "");
    std::string GetNodeNameUseCurNodeByLabel(const std::string& sLabel, bool bWithPosition = false,
                                             std::string* sPos = nullptr,
                                             const std::string& sPosAttr = "");
    std::string GetFieldNameUseCurNodeByLabel(const std::string& sLabel, bool bWithPosition = false,
                                              std::string* sPos = nullptr,
                                              const std::string& sPosAttr = "");
    std::string GetNodeNameUsePathByLabel(const std::string& sParentPath,
                                          const std::string& sLabel);
    std::string GetAttrValue(const pugi::xml_node& oElement, const std::string& attrName);
    long GetAttrRows(const std::string& sAttrXPath, const std::string& sVisib, int iColPerRow);
    pugi::xpath_node_set GetOrderedAttrList(const std::string& sAttrPath, long& lAttrCount,
                                            clsOrderArray& arrOrder);

    // The current node (empty when none), for callers that read several attributes of it.
    pugi::xml_node CurNode() const { return oCurNode_; }
    pugi::xml_node DocumentElement() const {
        return oDoc_ ? oDoc_->document_element() : pugi::xml_node();
    }

    // Records every lookup from now on (the settings check); nullptr stops the recording.
    void SetRecorder(clsLookupRecorder* pRecorder) { pRecorder_ = pRecorder; }
    clsLookupRecorder* Recorder() const { return pRecorder_; }

    // The expression of the lookups by ID: the child whose ORDER equals lInd.
    static std::string OrderExpression(long lInd);

    // The text of a node: its XPath string-value, all descendant text in document order; the
    // value of an attribute.
    static std::string NodeText(const pugi::xml_node& oNode);
    static std::string NodeText(const pugi::xpath_node& oFound);

    // Parse options used for every XML document of the library: whitespace-only text is not a
    // node, comments and processing instructions are, no DTD is processed.
    static unsigned int ParseOptions();

    // Loads a file into a document; on failure fills sReason, lLine and lPos (1-based) and
    // returns false. Shared with the data-file loader.
    static bool LoadFileInto(pugi::xml_document& oDoc, const std::string& sPath,
                             std::string& sReason, long& lLine, long& lPos);
    static bool LoadStringInto(pugi::xml_document& oDoc, const std::string& sText,
                               std::string& sReason, long& lLine, long& lPos);

private:
    // Replaces the document by the one fnLoad reads; sWhat ("IniDoc", "String") names the source
    // in the messages.
    bool LoadDocument(
        const std::function<bool(pugi::xml_document&, std::string&, long&, long&)>& fnLoad,
        const std::string& sWhat, std::string& sErrMsg);
    const pugi::xpath_query& Query(const std::string& sXPath);
    // The first node or attribute the expression selects from oFrom.
    pugi::xpath_node SelectFirst(const pugi::xml_node& oFrom, const std::string& sXPath);
    pugi::xml_node MatchByLabel(const std::string& sLabel);
    pugi::xpath_node_set SelectOrderedList(const std::string& sAttrPath, long& lAttrCount,
                                           clsOrderArray& arrOrder);

    std::unique_ptr<pugi::xml_document> oDoc_;
    pugi::xml_node oCurNode_;
    bool bPreserveWhiteSpace_ = false;
    // Compiled XPath expressions: the document never changes while it is loaded.
    std::unordered_map<std::string, std::unique_ptr<pugi::xpath_query>> queries_;
    // The node each expression selected from each node (key: the node's address, then the
    // expression), for the same reason.
    std::unordered_map<std::string, pugi::xpath_node> selected_;
    // The label each node's child of each ORDER gave (key: the node's address and the ORDER):
    // a block asks for the same few labels again and again.
    struct NodeIdHash {
        size_t operator()(const std::pair<const void*, long>& k) const noexcept {
            return std::hash<const void*>()(k.first) * 31 + static_cast<size_t>(k.second);
        }
    };
    std::unordered_map<std::pair<const void*, long>, std::string, NodeIdHash> labelsById_;
    clsLookupRecorder* pRecorder_ = nullptr;
};
