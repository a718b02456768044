#include "parse/clsXMLPars.h"

#include "support/modProgress.h"

#include <deque>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kModule = "clsXMLPars";

// The data file's document element always has this name.
constexpr const char* kRootElementName = "Root_Element";

// Owner kinds of the additional-tag table that item exports read off the item's context.
constexpr const char* kOwnerItem = "ITEM";
constexpr const char* kOwnerItemPs = "ITEM_PS_DEF";
constexpr const char* kOwnerRefDes = "REF_DES_DEF";

using modResources::clsResources;

bool IsElementNamed(pugi::xml_node oNode, const std::string& sName) {
    return oNode.type() == pugi::node_element && sName == oNode.name();
}

// The child elements of oNode named sName, in document order.
std::vector<pugi::xml_node> SelectChildren(pugi::xml_node oNode, const std::string& sName) {
    std::vector<pugi::xml_node> arr;
    for (pugi::xml_node c = oNode.first_child(); c; c = c.next_sibling()) {
        if (IsElementNamed(c, sName)) arr.push_back(c);
    }
    return arr;
}

// The first child element of oNode named sName, else no node.
pugi::xml_node SelectFirstChild(pugi::xml_node oNode, const std::string& sName) {
    for (pugi::xml_node c = oNode.first_child(); c; c = c.next_sibling()) {
        if (IsElementNamed(c, sName)) return c;
    }
    return pugi::xml_node();
}

// The first child element of oNode, whatever its name; else no node.
pugi::xml_node FirstChildElement(pugi::xml_node oNode) {
    for (pugi::xml_node c = oNode.first_child(); c; c = c.next_sibling()) {
        if (c.type() == pugi::node_element) return c;
    }
    return pugi::xml_node();
}

// The name under which a node appears in the log: its tag for an element, "#text", "#comment"
// and so on for the other kinds of node.
std::string NodeName(pugi::xml_node oNode) {
    switch (oNode.type()) {
        case pugi::node_element:
        case pugi::node_pi:
            return oNode.name();
        case pugi::node_pcdata:
            return "#text";
        case pugi::node_cdata:
            return "#cdata-section";
        case pugi::node_comment:
            return "#comment";
        case pugi::node_document:
            return "#document";
        default:
            return oNode.name();
    }
}

// The parts of a composed log line, joined with single blanks.
std::string JoinBlank(std::initializer_list<std::string_view> arrParts) {
    std::string s;
    bool bFirst = true;
    for (std::string_view sPart : arrParts) {
        if (!bFirst) s += ' ';
        s += sPart;
        bFirst = false;
    }
    return s;
}

// The date part of the log's date-time.
std::string CurrentDate() {
    return modResources::SplitAtFirst(modResources::NowGeneralDate(), " ", false, false);
}

// A fault of the file's top level. It is no run-time error, so it is a plain message line.
void ReportTopLevelFault(clsExportContext& ctx, const std::string& sMsg) {
    modResources::WriteLog(ctx, sMsg, "", -1, false);
}

}  // namespace

// One object kind of the walk: its top-level array, the names of its object and structure
// elements, the message naming the kind, and the filler of one record.
template <class XRec>
struct clsXMLPars::clsWalkKind {
    const char* sProc;
    std::deque<XRec> clsExportModel::*pArr;
    std::string clsResources::*pObjName;
    std::string clsResources::*pPsName;
    std::string clsResources::*pMsgOf;
    bool (clsXMLPars::*pfnFill)(pugi::xml_node, long, long);
};

// One relation list: the relation element, the related object element, the head filler and the
// array of the top-level record that receives the list.
template <class XRec, class Rec>
struct clsXMLPars::clsRelationKind {
    const char* sProc;
    std::deque<XRec> clsExportModel::*pArr;
    std::string clsResources::*pRelName;
    std::string clsResources::*pObjName;
    bool (clsXMLPars::*pfnHead)(pugi::xml_node, Rec&);
    std::vector<Rec> XRec::*pTarget;
};

clsXMLPars::clsXMLPars(clsExportContext& ctx) : ctx_(ctx) {}

clsXMLPars::~clsXMLPars() = default;

// ---------------------------------------------------------------------------------------------
// Loading and the top level

bool clsXMLPars::LoadCurrentXML(std::unique_ptr<pugi::xml_document>& document,
                                const std::string& path) {
    return TrapRun(ctx_, kModule, "LoadCurrentXML", false, [&] {
        ForgetSelections();
        document = std::make_unique<pugi::xml_document>();
        std::string sReason;
        long lLine = 0;
        long lPos = 0;
        if (!clsXMLIniData::LoadFileInto(*document, path, sReason, lLine, lPos)) {
            const clsResources& r = ctx_.Res;
            const std::string sLine = std::to_string(lLine);
            const std::string sPos = std::to_string(lPos);
            modResources::WriteLog(ctx_,
                                   JoinBlank({r.MsgLoadParseError, sReason, r.MsgOnLine, sLine,
                                              r.MsgAtPosition, sPos}),
                                   "", -1, false);
            return false;
        }
        return true;
    });
}

pugi::xml_node clsXMLPars::GetRoot(const pugi::xml_document& document, const std::string& sName) {
    return TrapRun(ctx_, kModule, "GetRoot", pugi::xml_node(), [&] {
        pugi::xml_node oRoot = document.document_element();
        return (oRoot && sName == oRoot.name()) ? oRoot : pugi::xml_node();
    });
}

bool clsXMLPars::MainXStruct(pugi::xml_document& document) {
    return TrapRun(ctx_, kModule, "MainXStruct", false, [&] {
        ForgetSelections();
        const clsResources& r = ctx_.Res;
        pugi::xml_node oRoot = GetRoot(document, kRootElementName);
        if (!oRoot) {
            ReportTopLevelFault(ctx_, JoinBlank({r.MsgRootNodeNotFound, r.MsgErrorXmlStructure}));
            return false;
        }
        // A root without child nodes holds nothing to read: nothing is filled and nothing is
        // logged (the object count stays -1, so no workbook is made). Whitespace between tags
        // is no node; a comment or a processing instruction is one, and is the first child.
        pugi::xml_node oFirst = oRoot.first_child();
        if (!oFirst) return false;
        ctx_.Model.RootObjName = NodeName(oFirst);
        const int16_t iKind = ctx_.Model.ExportKind;
        if (IsElementNamed(oFirst, r.NameItem) && iKind == 1) return FillXItemStruct(oFirst);
        if (IsElementNamed(oFirst, r.NameDoc) && iKind == 2) return FillXDocStruct(oFirst);
        if (IsElementNamed(oFirst, r.NameFolder) && iKind == 3) return FillXFoldStruct(oFirst);
        ReportTopLevelFault(ctx_, JoinBlank({ctx_.Model.ObjectType, r.MsgFirstChildNodeNot,
                                             r.MsgErrorXmlStructure}));
        return false;
    });
}

pugi::xml_node clsXMLPars::GetNextSiblingDefNode(pugi::xml_node oNode, const std::string& sName) {
    return TrapRun(ctx_, kModule, "GetNextSiblingDefNode", pugi::xml_node(), [&] {
        for (pugi::xml_node n = oNode.next_sibling(); n; n = n.next_sibling()) {
            if (IsElementNamed(n, sName)) return n;
        }
        return pugi::xml_node();
    });
}

// ---------------------------------------------------------------------------------------------
// The walk

bool clsXMLPars::FillXItemStruct(pugi::xml_node oFirst) {
    static const clsWalkKind<XItemStruct> kKind{
        "FillXItemStruct",        &clsExportModel::XItems,
        &clsResources::NameItem,  &clsResources::NameItemPsDef,
        &clsResources::MsgOfItem, &clsXMLPars::FillItemOfObjItem};
    return TrapRun(ctx_, kModule, kKind.sProc, false, [&] { return WalkObjects(oFirst, kKind); });
}

bool clsXMLPars::FillXDocStruct(pugi::xml_node oFirst) {
    static const clsWalkKind<XDocStruct> kKind{
        "FillXDocStruct",         &clsExportModel::XDocs,  &clsResources::NameDoc,
        &clsResources::NameDocPs, &clsResources::MsgOfDoc, &clsXMLPars::FillDocOfObjDoc};
    return TrapRun(ctx_, kModule, kKind.sProc, false, [&] { return WalkObjects(oFirst, kKind); });
}

bool clsXMLPars::FillXFoldStruct(pugi::xml_node oFirst) {
    static const clsWalkKind<XFoldStruct> kKind{
        "FillXFoldStruct",           &clsExportModel::XFolders,  &clsResources::NameFolder,
        &clsResources::NameFolderPs, &clsResources::MsgOfFolder, &clsXMLPars::FillFoldOfObjFolder};
    return TrapRun(ctx_, kModule, kKind.sProc, false, [&] { return WalkObjects(oFirst, kKind); });
}

// Numbers the objects in document pre-order. An object element holds structure elements whose
// first child is a child object; the walk descends into the first structure element of each new
// object, then goes on with the next structure element beside the one it came from, and climbs
// back when there is none. It keeps its own stack of open ancestors (arrPath), so the depth of
// the data never reaches the C++ stack.
//
// A structure export holds one top object: the walk ends when it would climb back to level 0.
// A collection export climbs back to level 0 and goes on with the next top-level sibling.
template <class XRec>
bool clsXMLPars::WalkObjects(pugi::xml_node oFirst, const clsWalkKind<XRec>& oKind) {
    std::deque<XRec>& arr = ctx_.Model.*oKind.pArr;
    const std::string& sObjName = ctx_.Res.*oKind.pObjName;
    const std::string& sPsName = ctx_.Res.*oKind.pPsName;
    const std::string& sMsgOf = ctx_.Res.*oKind.pMsgOf;
    const bool bStructure = ctx_.Model.IsStructure == 1;

    pugi::xml_node oCurrent = oFirst;
    pugi::xml_node oNext;
    long lIndex = 0;
    long lLevel = 0;
    bool bNew = true;
    std::vector<long> arrPath;  // indices of the open ancestors, innermost last

    while (oCurrent) {
        if (bNew) {
            // The record of the current object: the array grows by one, keeping its contents.
            if (arr.size() == static_cast<size_t>(lIndex)) {
                arr.emplace_back();
            } else {
                arr.resize(static_cast<size_t>(lIndex) + 1);
            }
            (this->*oKind.pfnFill)(oCurrent, lIndex, lLevel);
            modProgress::ReportProgress(ctx_, clsProgress::Stage::Parsing, lIndex + 1, 0);

            oNext = SelectFirstChild(oCurrent, sPsName);
            if (oNext && !oNext.first_child()) {
                LogNoChildren(oNext, sMsgOf, At(arr, lIndex).Head.Key1);
                oNext = pugi::xml_node();
            }
            if (oNext) {
                pugi::xml_node oChild = oNext.first_child();
                if (IsElementNamed(oChild, sObjName)) {
                    arrPath.push_back(lIndex);
                    ++lLevel;
                    At(arr, lIndex).Children = std::to_string(lIndex + 1) + "!";
                    ++lIndex;
                    oCurrent = oChild;
                } else {
                    oNext = pugi::xml_node();
                }
            }
        }

        if (!oNext) {
            bNew = true;
            if (!bStructure && lLevel == 0) {
                // The next object of a collection; the one before is read to its end.
                oNext = GetNextSiblingDefNode(oCurrent, sObjName);
                if (oNext) {
                    ++lIndex;
                    ReleaseWalked(oCurrent);
                    oCurrent = oNext;
                }
            } else {
                // The next child of the same parent object.
                oNext = GetNextSiblingDefNode(oCurrent.parent(), sPsName);
                if (oNext) {
                    const long lParent = At(arrPath, static_cast<long>(arrPath.size()) - 1);
                    pugi::xml_node oChild = oNext.first_child();
                    if (!oChild) {
                        LogNoChildren(oNext, sMsgOf, At(arr, lParent).Head.Key1);
                        oNext = pugi::xml_node();
                    } else if (IsElementNamed(oChild, sObjName)) {
                        ++lIndex;
                        std::string& sChildren = At(arr, lParent).Children;
                        sChildren += std::to_string(lIndex);
                        sChildren += '!';
                        // The structure element of the child before is read to its end.
                        ReleaseWalked(oCurrent.parent());
                        oCurrent = oChild;
                    } else {
                        oNext = pugi::xml_node();
                    }
                }
            }
        }

        if (!oNext) {
            // Nothing below or beside: climb back to the enclosing object, leaving the structure
            // element of the last child, which is read to its end.
            bNew = false;
            --lLevel;
            if ((bStructure && lLevel >= 1) || (!bStructure && lLevel >= 0)) {
                arrPath.pop_back();
                const pugi::xml_node oDone = oCurrent.parent();
                oCurrent = oDone.parent();
                ReleaseWalked(oDone);
            } else {
                oCurrent = pugi::xml_node();
            }
        }
    }

    ctx_.Model.ObjCount = static_cast<int32_t>(lIndex);
    modProgress::ReportProgress(ctx_, clsProgress::Stage::Parsing, lIndex + 1, lIndex + 1);
    return true;
}

void clsXMLPars::LogNoChildren(pugi::xml_node oStructNode, const std::string& sMsgOf,
                               const std::string& sKey) {
    const clsResources& r = ctx_.Res;
    modResources::WriteLog(ctx_,
                           JoinBlank({CurrentDate(), r.MsgErrorXmlStructure, oStructNode.name(),
                                      sMsgOf, sKey, r.MsgHaventChildren}),
                           "", -1, false);
}

void clsXMLPars::ForgetSelections() {
    oSelParent_ = pugi::xml_node();
    arrSelLAI_.clear();
    arrSelRefDes_.clear();
}

void clsXMLPars::ReleaseWalked(pugi::xml_node oDone) {
    if (!oDone || !oDone.parent()) return;
    // The local alternates and designators selected on the root are the root's own children: a
    // top-level object that one of them names too stays.
    const clsResources& r = ctx_.Res;
    if (oDone.parent().parent().type() == pugi::node_document &&
        (IsElementNamed(oDone, r.NameLocalAlternateItem) ||
         IsElementNamed(oDone, r.NameRefDesDef))) {
        return;
    }
    pugi::xml_node n = oDone;
    for (;;) {
        if (pugi::xml_node c = n.last_child()) {
            n = c;
            continue;
        }
        pugi::xml_node p = n.parent();
        const bool bLast = n == oDone;
        p.remove_child(n);
        if (bLast) return;
        n = p;
    }
}

// ---------------------------------------------------------------------------------------------
// Top-level records

bool clsXMLPars::FillItemOfObjItem(pugi::xml_node oNode, long lIndex, long lLevel) {
    return TrapRun(ctx_, kModule, "FillItemOfObjItem", false, [&] {
        XItemStruct& oRec = At(ctx_.Model.XItems, lIndex);
        const clsLabelTables& lbl = ctx_.Labels;
        pugi::xml_node oParent = oNode.parent();
        // The part-list values (main-panel fields 5 and 3, e.g. quantity and find number) sit on
        // the structure element that holds the item; the top object has none.
        if (lIndex >= 1) {
            oRec.PSAttr1 = GetAttr(oParent, lbl.ItemMainField5);
            oRec.PSAttr2 = GetAttr(oParent, lbl.ItemMainField3);
        }
        oRec.Level = static_cast<int32_t>(lLevel);
        FillItemStruct(oNode, oRec.Head);
        oRec.LAICount = -1;
        FillLAIAndRefDes(oParent, lIndex);
        if (lbl.AdditionalTagTable.IsArray()) FillAddAttrOfObjItem(oNode, lIndex);
        oRec.MNFCount = static_cast<int32_t>(FillMNFArray(oNode, lIndex));
        oRec.DocCount = static_cast<int32_t>(FillDocArrayForItem(oNode, lIndex));
        oRec.FolderCount = static_cast<int32_t>(FillFolderArrayForItem(oNode, lIndex));
        return true;
    });
}

bool clsXMLPars::FillDocOfObjDoc(pugi::xml_node oNode, long lIndex, long lLevel) {
    return TrapRun(ctx_, kModule, "FillDocOfObjDoc", false, [&] {
        XDocStruct& oRec = At(ctx_.Model.XDocs, lIndex);
        const clsLabelTables& lbl = ctx_.Labels;
        oRec.Level = static_cast<int32_t>(lLevel);
        oRec.MainAttr6 = GetAttr(oNode, lbl.DocMainField6);
        oRec.MainAttr5 = GetAttr(oNode, lbl.DocMainField5);
        FillDocStruct(oNode, oRec.Head);
        if (lbl.AdditionalTagTable.IsArray()) FillAddAttrOfObjDoc(oNode, lIndex);
        oRec.ItemCount = static_cast<int32_t>(FillItemArrayForDoc(oNode, lIndex));
        oRec.FolderCount = static_cast<int32_t>(FillFolderArrayForDoc(oNode, lIndex));
        oRec.DocCount = static_cast<int32_t>(FillDocArrayForDoc(oNode, lIndex));
        return true;
    });
}

bool clsXMLPars::FillFoldOfObjFolder(pugi::xml_node oNode, long lIndex, long lLevel) {
    return TrapRun(ctx_, kModule, "FillFoldOfObjFolder", false, [&] {
        XFoldStruct& oRec = At(ctx_.Model.XFolders, lIndex);
        const clsLabelTables& lbl = ctx_.Labels;
        oRec.Level = static_cast<int32_t>(lLevel);
        oRec.MainAttr5 = GetAttr(oNode, lbl.FolderMainField5);
        FillFoldStruct(oNode, oRec.Head);
        if (lbl.AdditionalTagTable.IsArray()) FillAddAttrOfObjFold(oNode, lIndex);
        oRec.ItemCount = static_cast<int32_t>(FillItemArrayForFold(oNode, lIndex));
        oRec.DocCount = static_cast<int32_t>(FillDocArrayForFold(oNode, lIndex));
        oRec.FolderCount = static_cast<int32_t>(FillFolderArrayForFolder(oNode, lIndex));
        return true;
    });
}

// ---------------------------------------------------------------------------------------------
// Record heads

bool clsXMLPars::FillItemStruct(pugi::xml_node oNode, ItemStruct& oRec) {
    return TrapRun(ctx_, kModule, "FillItemStruct", false, [&] {
        const auto& arrKeys = ctx_.Labels.ItemKeyFields;
        oRec.Key1 = GetAttr(oNode, arrKeys[0]);
        oRec.Key2 = GetAttr(oNode, arrKeys[2]);
        oRec.Key3 = GetAttr(oNode, arrKeys[1]);
        FillXAttr2(oNode, oRec.Attrs, ctx_.Labels.ItemAttrLabels);
        return true;
    });
}

bool clsXMLPars::FillFoldStruct(pugi::xml_node oNode, FoldStruct& oRec) {
    return TrapRun(ctx_, kModule, "FillFoldStruct", false, [&] {
        const auto& arrKeys = ctx_.Labels.FolderKeyFields;
        oRec.Key1 = GetAttr(oNode, arrKeys[0]);
        oRec.Key2 = GetAttr(oNode, arrKeys[2]);
        oRec.Key3 = GetAttr(oNode, arrKeys[1]);
        FillXAttr2(oNode, oRec.Attrs, ctx_.Labels.FolderAttrLabels);
        return true;
    });
}

bool clsXMLPars::FillDocStruct(pugi::xml_node oNode, DocStruct& oRec) {
    return TrapRun(ctx_, kModule, "FillDocStruct", false, [&] {
        const clsResources& r = ctx_.Res;
        const auto& arrKeys = ctx_.Labels.DocKeyFields;
        oRec.Key1 = GetAttr(oNode, arrKeys[0]);
        oRec.Key2 = GetAttr(oNode, arrKeys[2]);
        oRec.Key3 = GetAttr(oNode, arrKeys[1]);
        FillXAttr2(oNode, oRec.Attrs, ctx_.Labels.DocAttrLabels);

        // One file per dataset holder; a holder without a dataset leaves its file empty.
        std::vector<pugi::xml_node> arrHolders = SelectChildren(oNode, r.NameDocDataset);
        oRec.FileCount = static_cast<int32_t>(arrHolders.size()) - 1;
        oRec.Files.clear();
        oRec.Files.resize(arrHolders.size());
        for (size_t i = 0; i < arrHolders.size(); ++i) {
            pugi::xml_node oHolder = arrHolders[i];
            pugi::xml_node oDataset = oHolder.first_child();
            if (IsElementNamed(oDataset, r.NameDataset)) {
                FileStruct& oFile = oRec.Files[i];
                oFile.FileName = GetAttr(oDataset, r.NameFileName);
                FillXAttr2(oDataset, oFile.Attrs, ctx_.Labels.FileAttrLabels);
            } else if (oDataset) {
                modResources::WriteLog(
                    ctx_,
                    JoinBlank({r.MsgErrorXmlStructure, NodeName(oDataset), r.MsgChildOfNode,
                               oHolder.name(), r.MsgOfDoc, oRec.Key1, r.MsgNotDataset}),
                    "", -1, false);
            } else {
                modResources::WriteLog(
                    ctx_,
                    JoinBlank({r.MsgErrorXmlStructure, r.MsgDocDataset, oHolder.name(), r.MsgOfDoc,
                               oRec.Key1, r.MsgHaventChildren}),
                    "", -1, false);
            }
        }
        return true;
    });
}

// ---------------------------------------------------------------------------------------------
// Additional attributes

bool clsXMLPars::FillAddAttrOfObjItem(pugi::xml_node oNode, long lIndex) {
    return TrapRun(ctx_, kModule, "FillAddAttrOfObjItem", false, [&] {
        XItemStruct& oRec = At(ctx_.Model.XItems, lIndex);
        const clsVarTable& tbl = ctx_.Labels.AdditionalTagTable;
        const long lUBound = tbl.UBound(2);
        std::vector<std::string> arr(static_cast<size_t>(lUBound) + 1);
        for (long j = 0; j <= lUBound; ++j) {
            const std::string& sField = tbl.Item(0, j);
            const std::string& sOwner = tbl.Item(2, j);
            std::string& sValue = arr[static_cast<size_t>(j)];
            if (sOwner == kOwnerItem) {
                sValue = GetAttr(oNode, sField);
            } else if (sOwner == kOwnerItemPs) {
                // The structure element that holds the item; the top object has none.
                if (lIndex > 0) sValue = GetAttr(oNode.parent(), sField);
            } else if (sOwner == kOwnerRefDes) {
                sValue = oRec.RefDes;
            }
        }
        oRec.AddAttrs = std::move(arr);
        return true;
    });
}

void clsXMLPars::ReadAddAttrsOnNode(pugi::xml_node oNode, VarStrArray& arrTarget) {
    const clsVarTable& tbl = ctx_.Labels.AdditionalTagTable;
    const long lUBound = tbl.UBound(2);
    std::vector<std::string> arr(static_cast<size_t>(lUBound) + 1);
    for (long j = 0; j <= lUBound; ++j)
        arr[static_cast<size_t>(j)] = GetAttr(oNode, tbl.Item(0, j));
    arrTarget = std::move(arr);
}

bool clsXMLPars::FillAddAttrOfObjDoc(pugi::xml_node oNode, long lIndex) {
    return TrapRun(ctx_, kModule, "FillAddAttrOfObjDoc", false, [&] {
        ReadAddAttrsOnNode(oNode, At(ctx_.Model.XDocs, lIndex).AddAttrs);
        return true;
    });
}

bool clsXMLPars::FillAddAttrOfObjFold(pugi::xml_node oNode, long lIndex) {
    return TrapRun(ctx_, kModule, "FillAddAttrOfObjFold", false, [&] {
        ReadAddAttrsOnNode(oNode, At(ctx_.Model.XFolders, lIndex).AddAttrs);
        return true;
    });
}

// ---------------------------------------------------------------------------------------------
// Local alternates and reference designators

bool clsXMLPars::FillLAIAndRefDes(pugi::xml_node oParentNode, long lIndex) {
    return TrapRun(ctx_, kModule, "FillLAIAndRefDes", false, [&] {
        XItemStruct& oRec = At(ctx_.Model.XItems, lIndex);
        const clsResources& r = ctx_.Res;

        // Below the root the parent is a structure element of its own; the root is the parent of
        // every top-level object, so what is selected on it is selected once.
        std::vector<pugi::xml_node> arrOwnLAI;
        std::vector<pugi::xml_node> arrOwnRefDes;
        const bool bOnRoot = oParentNode && oParentNode.parent().type() == pugi::node_document;
        if (bOnRoot && oParentNode != oSelParent_) {
            arrSelLAI_ = SelectChildren(oParentNode, r.NameLocalAlternateItem);
            arrSelRefDes_ = SelectChildren(oParentNode, r.NameRefDesDef);
            oSelParent_ = oParentNode;
        } else if (!bOnRoot) {
            arrOwnLAI = SelectChildren(oParentNode, r.NameLocalAlternateItem);
            arrOwnRefDes = SelectChildren(oParentNode, r.NameRefDesDef);
        }
        const std::vector<pugi::xml_node>& arrLAI = bOnRoot ? arrSelLAI_ : arrOwnLAI;
        if (!arrLAI.empty()) {
            oRec.LAIs.clear();
            oRec.LAIs.resize(arrLAI.size());
            oRec.LAICount = static_cast<int32_t>(arrLAI.size()) - 1;
            for (size_t i = 0; i < arrLAI.size(); ++i) {
                oRec.LAIs[i].Key1 = GetAttr(arrLAI[i], ctx_.Labels.AltListKeyField);
            }
        }

        const std::vector<pugi::xml_node>& arrRefDes = bOnRoot ? arrSelRefDes_ : arrOwnRefDes;
        if (!arrRefDes.empty()) {
            std::unique_ptr<IclsGroup> oGroup = ctx_.Options.Components.CreateGroup(GROUP_PROG_ID);
            std::vector<std::string> arrDes;
            arrDes.reserve(arrRefDes.size());
            for (pugi::xml_node oDes : arrRefDes) {
                arrDes.push_back(GetAttr(oDes, r.NameDesignationKey));
            }
            std::vector<std::string> arrGrouped = oGroup->Group(arrDes);
            std::string sJoined;
            for (const std::string& s : arrGrouped) {
                sJoined += s;
                sJoined += ',';
            }
            oRec.RefDes = modResources::SplitAtLast(sJoined, ",", false, false);
        }
        return true;
    });
}

// ---------------------------------------------------------------------------------------------
// Manufacturers and vendors

long clsXMLPars::FillMNFArray(pugi::xml_node oNode, long lIndex) {
    return TrapRun(ctx_, kModule, "FillMNFArray", 0L, [&] {
        XItemStruct& oRec = At(ctx_.Model.XItems, lIndex);
        const auto& arrKeys = ctx_.Labels.MnfKeyFields;
        std::vector<pugi::xml_node> arrMnf = SelectChildren(oNode, ctx_.Res.NameItemMnf);
        const long n = static_cast<long>(arrMnf.size()) - 1;
        oRec.MNFs.clear();
        oRec.MNFs.resize(arrMnf.size());

        int16_t iFlag = 0;
        long lMnfVendors = 0;
        for (long i = 0; i <= n; ++i) {
            pugi::xml_node oMnf = arrMnf[static_cast<size_t>(i)];
            MNFStruct& oMnfRec = oRec.MNFs[static_cast<size_t>(i)];
            // Identifier and name belong to the manufacturer object, the element's first child.
            if (pugi::xml_node oFirst = FirstChildElement(oMnf)) {
                oMnfRec.Key1 = GetAttr(oFirst, arrKeys[0]);
                oMnfRec.Key2 = GetAttr(oFirst, arrKeys[1]);
            }
            oMnfRec.Key3 = GetAttr(oMnf, arrKeys[2]);
            FillXAttr2(oMnf, oMnfRec.Attrs, ctx_.Labels.MnfAttrLabels);

            oMnfRec.VendorCount = static_cast<int32_t>(FillVNDOfMNF(oNode, lIndex, i));
            if (oMnfRec.VendorCount >= 0) {
                MergeMnfVndFlag(iFlag, 2);
                lMnfVendors = CheckedAdd(lMnfVendors, oMnfRec.VendorCount + 1L);
            } else {
                MergeMnfVndFlag(iFlag, 1);
            }
        }
        oRec.MnfVndFlag = iFlag;
        oRec.VNDCount = static_cast<int32_t>(FillVNDOfItem(oNode, lIndex, lMnfVendors));
        return n;
    });
}

void clsXMLPars::MergeMnfVndFlag(int16_t& iFlag, int16_t iValue) {
    TrapRunVoid(ctx_, kModule, "MergeMnfVndFlag", [&] {
        if (iFlag == 0) {
            iFlag = iValue;
        } else if (iFlag == 1) {
            if (iValue > 1) iFlag = 3;
        } else if (iFlag == 2) {
            if (iValue == 1) iFlag = 3;
        }
    });
}

void clsXMLPars::ReadVendor(pugi::xml_node oVendor, ItemStruct& oRec) {
    const auto& arrKeys = ctx_.Labels.VndKeyFields;
    // Identifier and name belong to the vendor object, the element's first child.
    pugi::xml_node oFirst = FirstChildElement(oVendor);
    oRec.Key1 = GetAttr(oFirst, arrKeys[0]);
    oRec.Key2 = GetAttr(oFirst, arrKeys[1]);
    oRec.Key3 = GetAttr(oVendor, arrKeys[2]);
    FillXAttr2(oVendor, oRec.Attrs, ctx_.Labels.VndAttrLabels);
}

long clsXMLPars::FillVNDOfMNF(pugi::xml_node oNode, long lIndex, long lMnf) {
    return TrapRun(ctx_, kModule, "FillVNDOfMNF", 0L, [&] {
        MNFStruct& oMnfRec = At(At(ctx_.Model.XItems, lIndex).MNFs, lMnf);
        if (!oVndOfMnfQuery_) {
            // The manufacturer's key is a variable of the query, never part of its text, so any
            // key (with quotes or apostrophes) selects exactly the vendors that carry it.
            oVndVars_.add("key", pugi::xpath_type_string);
            const std::string sQuery =
                ctx_.Res.NameItmVndMnf + "[@" + ctx_.Res.NameMnfVndKey + " = $key]";
            oVndOfMnfQuery_ = std::make_unique<pugi::xpath_query>(sQuery.c_str(), &oVndVars_);
        }
        oVndVars_.set("key", oMnfRec.Key3.c_str());
        pugi::xpath_node_set oFound = oVndOfMnfQuery_->evaluate_node_set(oNode);
        oFound.sort();
        const long n = static_cast<long>(oFound.size()) - 1;
        oMnfRec.Vendors.clear();
        oMnfRec.Vendors.resize(oFound.size());
        for (size_t j = 0; j < oFound.size(); ++j) {
            ReadVendor(oFound[j].node(), oMnfRec.Vendors[j]);
        }
        return n;
    });
}

long clsXMLPars::FillVNDOfItem(pugi::xml_node oNode, long lIndex, long lMnfVendors) {
    return TrapRun(ctx_, kModule, "FillVNDOfItem", 0L, [&] {
        XItemStruct& oRec = At(ctx_.Model.XItems, lIndex);
        std::vector<pugi::xml_node> arrVnd = SelectChildren(oNode, ctx_.Res.NameItmVndMnf);
        // The vendors not attached to a manufacturer: all vendor elements less those found under
        // the manufacturers.
        const long lSize = static_cast<long>(arrVnd.size()) - lMnfVendors;
        oRec.VNDs.clear();
        if (lSize > 0) oRec.VNDs.resize(static_cast<size_t>(lSize));
        long k = 0;
        for (pugi::xml_node oVendor : arrVnd) {
            // A vendor attached to a manufacturer carries the manufacturer as a second child.
            if (oVendor.first_child().next_sibling()) continue;
            ReadVendor(oVendor, At(oRec.VNDs, k));
            ++k;
        }
        return lSize > 0 ? lSize - 1 : -1L;
    });
}

// ---------------------------------------------------------------------------------------------
// Relation lists

template <class XRec, class Rec>
long clsXMLPars::FillRelation(pugi::xml_node oNode, long lIndex,
                              const clsRelationKind<XRec, Rec>& oKind) {
    return TrapRun(ctx_, kModule, oKind.sProc, 0L, [&] {
        std::vector<Rec>& arrTarget = At(ctx_.Model.*oKind.pArr, lIndex).*oKind.pTarget;
        const std::string& sObjName = ctx_.Res.*oKind.pObjName;
        std::vector<pugi::xml_node> arrRel = SelectChildren(oNode, ctx_.Res.*oKind.pRelName);
        arrTarget.clear();
        arrTarget.resize(arrRel.size());
        for (size_t i = 0; i < arrRel.size(); ++i) {
            // A relation to an object of another kind keeps its place, empty.
            pugi::xml_node oObj = arrRel[i].first_child();
            if (IsElementNamed(oObj, sObjName)) (this->*oKind.pfnHead)(oObj, arrTarget[i]);
        }
        return static_cast<long>(arrRel.size()) - 1;
    });
}

long clsXMLPars::FillDocArrayForItem(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XItemStruct, DocStruct> kKind{
        "FillDocArrayForItem",  &clsExportModel::XItems,    &clsResources::NameItemDoc,
        &clsResources::NameDoc, &clsXMLPars::FillDocStruct, &XItemStruct::Docs};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillFolderArrayForItem(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XItemStruct, FoldStruct> kKind{
        "FillFolderArrayForItem",  &clsExportModel::XItems,     &clsResources::NameItemFolder,
        &clsResources::NameFolder, &clsXMLPars::FillFoldStruct, &XItemStruct::Folders};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillItemArrayForDoc(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XDocStruct, ItemStruct> kKind{
        "FillItemArrayForDoc",   &clsExportModel::XDocs,      &clsResources::NameDocItem,
        &clsResources::NameItem, &clsXMLPars::FillItemStruct, &XDocStruct::Items};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillFolderArrayForDoc(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XDocStruct, FoldStruct> kKind{
        "FillFolderArrayForDoc",   &clsExportModel::XDocs,      &clsResources::NameDocFolder,
        &clsResources::NameFolder, &clsXMLPars::FillFoldStruct, &XDocStruct::Folders};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillDocArrayForDoc(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XDocStruct, DocStruct> kKind{
        "FillDocArrayForDoc",   &clsExportModel::XDocs,     &clsResources::NameDocDoc,
        &clsResources::NameDoc, &clsXMLPars::FillDocStruct, &XDocStruct::Docs};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillItemArrayForFold(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XFoldStruct, ItemStruct> kKind{
        "FillItemArrayForFold",  &clsExportModel::XFolders,   &clsResources::NameFolderItem,
        &clsResources::NameItem, &clsXMLPars::FillItemStruct, &XFoldStruct::Items};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillDocArrayForFold(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XFoldStruct, DocStruct> kKind{
        "FillDocArrayForFold",  &clsExportModel::XFolders,  &clsResources::NameFolderDoc,
        &clsResources::NameDoc, &clsXMLPars::FillDocStruct, &XFoldStruct::Docs};
    return FillRelation(oNode, lIndex, kKind);
}

long clsXMLPars::FillFolderArrayForFolder(pugi::xml_node oNode, long lIndex) {
    static const clsRelationKind<XFoldStruct, FoldStruct> kKind{
        "FillFolderArrayForFolder", &clsExportModel::XFolders,   &clsResources::NameFolderFolder,
        &clsResources::NameFolder,  &clsXMLPars::FillFoldStruct, &XFoldStruct::Folders};
    return FillRelation(oNode, lIndex, kKind);
}

// ---------------------------------------------------------------------------------------------
// Attribute values

bool clsXMLPars::FillXAttr2(pugi::xml_node oNode, VarStrArray& arrTarget,
                            const clsVarTable& arrNames) {
    return TrapRun(ctx_, kModule, "FillXAttr2", false, [&] {
        if (!arrNames.IsArray()) return true;
        const long lUBound = arrNames.UBound(2);
        std::vector<std::string> arr(static_cast<size_t>(lUBound) + 1);
        for (long j = 0; j <= lUBound; ++j) {
            arr[static_cast<size_t>(j)] = GetAttr(oNode, arrNames.Item(1, j));
        }
        arrTarget = std::move(arr);
        return true;
    });
}

std::string clsXMLPars::GetAttr(pugi::xml_node oNode, const std::string& sName) {
    return TrapRun(ctx_, kModule, "GetAttr", std::string(), [&] {
        if (!oNode || sName.empty()) return std::string();
        return std::string(oNode.attribute(sName.c_str()).value());
    });
}
