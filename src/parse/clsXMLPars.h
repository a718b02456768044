// Reads the export data XML into the export model of the call.
//
// The data file's element and attribute names are never written here: they come from the
// configured names (ctx.Res.Name*) and the label tables (ctx.Labels). Selecting "by name" below an
// element always means among its child elements, in document order.
#pragma once

#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "parse/clsExportContext.h"

class clsXMLPars {
public:
    explicit clsXMLPars(clsExportContext& ctx);
    ~clsXMLPars();
    clsXMLPars(const clsXMLPars&) = delete;
    clsXMLPars& operator=(const clsXMLPars&) = delete;

    // Loads the data file into a new document returned through document; logs a parse error.
    bool LoadCurrentXML(std::unique_ptr<pugi::xml_document>& document, const std::string& path);
    // Recognises the top level and walks it, filling the model and setting ObjCount. The walk
    // takes what it has read out of the document as it goes (see ReleaseWalked): afterwards the
    // document holds no walked object.
    bool MainXStruct(pugi::xml_document& document);

    // The document element when it is named sName, else no node.
    pugi::xml_node GetRoot(const pugi::xml_document& document, const std::string& sName);

    // The walks over items, documents and folders, starting at the first object under the root.
    bool FillXItemStruct(pugi::xml_node oFirst);
    bool FillXDocStruct(pugi::xml_node oFirst);
    bool FillXFoldStruct(pugi::xml_node oFirst);

    // The first following sibling of oNode that is an element named sName, else no node.
    pugi::xml_node GetNextSiblingDefNode(pugi::xml_node oNode, const std::string& sName);

    // One top-level record each.
    bool FillItemOfObjItem(pugi::xml_node oNode, long lIndex, long lLevel);
    bool FillDocOfObjDoc(pugi::xml_node oNode, long lIndex, long lLevel);
    bool FillFoldOfObjFolder(pugi::xml_node oNode, long lIndex, long lLevel);

    // Record heads: keys (ID 1, ID 3, ID 2) and the attribute list of the kind.
    bool FillItemStruct(pugi::xml_node oNode, ItemStruct& oRec);
    bool FillFoldStruct(pugi::xml_node oNode, FoldStruct& oRec);
    bool FillDocStruct(pugi::xml_node oNode, DocStruct& oRec);

    // Additional attributes of a top-level record, in the order of the additional-tag table.
    bool FillAddAttrOfObjItem(pugi::xml_node oNode, long lIndex);
    bool FillAddAttrOfObjDoc(pugi::xml_node oNode, long lIndex);
    bool FillAddAttrOfObjFold(pugi::xml_node oNode, long lIndex);

    // Local alternates and reference designators of item lIndex, read on its structure parent.
    bool FillLAIAndRefDes(pugi::xml_node oParentNode, long lIndex);

    // The list fillers below return the highest index they filled, -1 for none. One that fails
    // returns 0, as every trap does: the entries read before the error stay in the record and
    // the count lets the workbook show the first of them.

    // Manufacturers of item lIndex with their vendors, MnfVndFlag and the item's own vendors.
    // Returns the highest manufacturer index, -1 for none.
    long FillMNFArray(pugi::xml_node oNode, long lIndex);
    // Vendors of manufacturer lMnf of item lIndex; returns their highest index, -1 for none.
    long FillVNDOfMNF(pugi::xml_node oNode, long lIndex, long lMnf);
    // Vendors of item lIndex not attached to a manufacturer; lMnfVendors is the number of vendors
    // found under its manufacturers. Returns the highest index, -1 for none.
    long FillVNDOfItem(pugi::xml_node oNode, long lIndex, long lMnfVendors);
    // 0 none yet; 1 all manufacturers without vendors; 2 all with vendors; 3 both.
    void MergeMnfVndFlag(int16_t& iFlag, int16_t iValue);

    // Relation lists: each returns the highest index filled, -1 for none (0 on a failure).
    long FillDocArrayForItem(pugi::xml_node oNode, long lIndex);
    long FillFolderArrayForItem(pugi::xml_node oNode, long lIndex);
    long FillItemArrayForDoc(pugi::xml_node oNode, long lIndex);
    long FillFolderArrayForDoc(pugi::xml_node oNode, long lIndex);
    long FillDocArrayForDoc(pugi::xml_node oNode, long lIndex);
    long FillItemArrayForFold(pugi::xml_node oNode, long lIndex);
    long FillDocArrayForFold(pugi::xml_node oNode, long lIndex);
    long FillFolderArrayForFolder(pugi::xml_node oNode, long lIndex);

    // Values of the attributes named by field 1 of each entry of arrNames, into arrTarget.
    // An Empty name table leaves arrTarget as it is.
    bool FillXAttr2(pugi::xml_node oNode, VarStrArray& arrTarget, const clsVarTable& arrNames);
    // The attribute's value; "" when the node or the attribute is missing.
    std::string GetAttr(pugi::xml_node oNode, const std::string& sName);

private:
    // What the walk needs to know about one object kind (defined in the .cpp).
    template <class XRec>
    struct clsWalkKind;
    template <class XRec>
    bool WalkObjects(pugi::xml_node oFirst, const clsWalkKind<XRec>& oKind);

    // What a relation-list filler needs to know about one relation (defined in the .cpp).
    template <class XRec, class Rec>
    struct clsRelationKind;
    template <class XRec, class Rec>
    long FillRelation(pugi::xml_node oNode, long lIndex, const clsRelationKind<XRec, Rec>& oKind);

    // The additional attributes of a document or folder: every entry read on the node itself.
    void ReadAddAttrsOnNode(pugi::xml_node oNode, VarStrArray& arrTarget);
    // Reads the vendor keys and attributes of one vendor element.
    void ReadVendor(pugi::xml_node oVendor, ItemStruct& oRec);
    // Logs a structure element without children below the object with key sKey.
    void LogNoChildren(pugi::xml_node oStructNode, const std::string& sMsgOf,
                       const std::string& sKey);
    // Drops the remembered selections (their document may be gone).
    void ForgetSelections();
    // Removes a walked element with everything below it from the document, so that its memory
    // serves what the walk still fills. It goes bottom up, a leaf at a time, whatever the depth.
    void ReleaseWalked(pugi::xml_node oDone);

    clsExportContext& ctx_;
    // The local alternates and designators selected on the root, which is the parent of every
    // top-level object of a collection: selecting on it once keeps reading a collection linear.
    pugi::xml_node oSelParent_;
    std::vector<pugi::xml_node> arrSelLAI_;
    std::vector<pugi::xml_node> arrSelRefDes_;
    // The query for the vendors of one manufacturer: compiled once, the key passed as $key.
    pugi::xpath_variable_set oVndVars_;
    std::unique_ptr<pugi::xpath_query> oVndOfMnfQuery_;
};
