// The caption table, the export kind and mode, the key-field names and the attribute label
// tables, built from the settings and the setup string before the data file is parsed.
#include <ctime>

#include "driver/clsExportExcel.h"
#include "support/modResources.h"

namespace {

constexpr const char* kModule = "clsExportExcel";

// Reads the FIELD of ORDER 1, 2 and 3 of the current node.
void ReadKeyFields(clsXMLIniData& oIni, std::array<std::string, 3>& arrKeys) {
    for (long i = 0; i < 3; ++i)
        arrKeys[static_cast<size_t>(i)] = oIni.GetFieldNameUseCurNodeByID(i + 1, "");
}

// The settings section of an attribute label table.
const char* AttrLabelSection(const std::string& sKind) {
    if (sKind == "ITEM") return "PROPERTY_LBL/ITEM_LBL/ITEM_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    if (sKind == "DOC") return "PROPERTY_LBL/DOCUMENT_LBL/DOC_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    if (sKind == "DATASET") return "PROPERTY_LBL/DOCUMENT_LBL/FILE_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    if (sKind == "FOLDER") return "PROPERTY_LBL/FOLDER_LBL/FOLDER_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    if (sKind == "MNF") return "PROPERTY_LBL/MNF_LBL/MNF_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    if (sKind == "VENDORS") return "PROPERTY_LBL/VND_LBL/VND_ATTR_LBL/ATTRIBUTE_LIST_LBL";
    return nullptr;
}

}  // namespace

bool clsExportExcel::FillExcellCap(clsExportContext& ctx, const std::string& sSetupXString) {
    return TrapRun(ctx, kModule, "FillExcellCap", false, [&] {
        if (!ctx.IniData) RaiseError(modConst::errObjectNotSet);
        clsXMLIniData oSetup;
        std::string sErrMsg;
        if (!oSetup.LoadXString(sSetupXString, sErrMsg)) return false;

        long lCount = -1;
        clsOrderArray arrOrder;
        pugi::xpath_node_set oList =
            ctx.IniData->GetOrderedAttrList("EXL_CAPTION_LBL", lCount, arrOrder);
        if (lCount < 0) return false;

        clsVarTable& tbl = ctx.Labels.CaptionTable;
        tbl.ReDim(1, lCount);
        for (long i = 0; i <= lCount; ++i) {
            pugi::xml_node oNode = oList[static_cast<size_t>(arrOrder[i][0])].node();
            tbl.Item(0, i) = clsXMLIniData::NodeText(oNode);
            tbl.Item(1, i) = oSetup.GetLabelUsePath(oNode.name());
        }
        // Tied to the count four: the fourth value is the date and time of the export.
        if (lCount == 3) tbl.Item(1, 3) = modResources::FormatCaptionDate(std::time(nullptr));

        ctx.Labels.SpaceType = oSetup.GetLabelUsePath("SPACE_TYPE");
        ctx.Model.ObjectType = oSetup.GetLabelUsePath("OBJECT_TYPE");
        const std::string& sSpace = ctx.Labels.SpaceType;
        const std::string& sObject = ctx.Model.ObjectType;
        if (sSpace.empty() || sObject.empty()) return false;

        if (sObject == ctx.Res.NameItem)
            ctx.Model.ExportKind = 1;
        else if (sObject == ctx.Res.NameDoc)
            ctx.Model.ExportKind = 2;
        else if (sObject == ctx.Res.NameFolder)
            ctx.Model.ExportKind = 3;
        else
            return false;

        if (sSpace == "STRUCTURE")
            ctx.Model.IsStructure = 1;
        else if (sSpace == "COLLECTION")
            ctx.Model.IsStructure = 2;
        else {
            ctx.Model.IsStructure = 0;
            return false;
        }
        return true;
    });
}

bool clsExportExcel::FillAttrLabels(clsExportContext& ctx) {
    return TrapRun(ctx, kModule, "FillAttrLabels", false, [&] {
        if (!ctx.IniData) RaiseError(modConst::errObjectNotSet);
        clsXMLIniData& oIni = *ctx.IniData;
        clsLabelTables& lbl = ctx.Labels;

        if (!oIni.SetCurNode("PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL")) return false;
        ReadKeyFields(oIni, lbl.ItemKeyFields);
        if (!oIni.SetCurNode("PROPERTY_LBL/DOCUMENT_LBL/DOC_CAP_LBL")) return false;
        ReadKeyFields(oIni, lbl.DocKeyFields);
        if (!oIni.SetCurNode("PROPERTY_LBL/FOLDER_LBL/FOLDER_CAP_LBL")) return false;
        ReadKeyFields(oIni, lbl.FolderKeyFields);

        if (!FillAttrLabelArray(ctx, lbl.ItemAttrLabels, "ITEM")) return false;
        if (!FillAttrLabelArray(ctx, lbl.DocAttrLabels, "DOC")) return false;
        if (!FillAttrLabelArray(ctx, lbl.FileAttrLabels, "DATASET")) return false;
        if (!FillAttrLabelArray(ctx, lbl.FolderAttrLabels, "FOLDER")) return false;

        switch (ctx.Model.ExportKind) {
            case 2:
                if (oIni.SetCurNode("MAIN_LBL/DOC")) {
                    lbl.DocMainField5 = oIni.GetFieldNameUseCurNodeByID(5, "");
                    lbl.DocMainField6 = oIni.GetFieldNameUseCurNodeByID(6, "");
                }
                break;
            case 3:
                if (oIni.SetCurNode("MAIN_LBL/FOLDER")) {
                    lbl.FolderMainField5 = oIni.GetFieldNameUseCurNodeByID(5, "");
                }
                break;
            case 1:
                if (!oIni.SetCurNode("MAIN_LBL/ITEM")) return false;
                lbl.ItemMainField5 = oIni.GetFieldNameUseCurNodeByID(5, "");
                lbl.ItemMainField3 = oIni.GetFieldNameUseCurNodeByID(3, "");
                if (!oIni.SetCurNode("PROPERTY_LBL/PART_LIST_LBL/ALTERNATE_LIST_LBL")) return false;
                lbl.AltListKeyField = oIni.GetFieldNameUseCurNodeByID(1, "");
                if (!oIni.SetCurNode("PROPERTY_LBL/MNF_LBL/MNF_CAP_LBL")) return false;
                ReadKeyFields(oIni, lbl.MnfKeyFields);
                if (!oIni.SetCurNode("PROPERTY_LBL/VND_LBL/VND_CAP_LBL")) return false;
                ReadKeyFields(oIni, lbl.VndKeyFields);
                // Manufacturer and supplier attributes are optional: without a list, none are read.
                FillAttrLabelArray(ctx, lbl.MnfAttrLabels, "MNF");
                FillAttrLabelArray(ctx, lbl.VndAttrLabels, "VENDORS");
                break;
            default:
                break;
        }
        return true;
    });
}

bool clsExportExcel::FillAttrLabelArray(clsExportContext& ctx, clsVarTable& arr,
                                        const std::string& sKind) {
    return TrapRun(ctx, kModule, "FillAttrLabelArray", false, [&] {
        if (!ctx.IniData) RaiseError(modConst::errObjectNotSet);
        const char* sSection = AttrLabelSection(sKind);
        if (!sSection) return false;
        long lCount = -1;
        clsOrderArray arrOrder;
        pugi::xpath_node_set oList = ctx.IniData->GetOrderedAttrList(sSection, lCount, arrOrder);
        if (lCount < 0) return false;
        arr.ReDim(1, lCount);
        for (long i = 0; i <= lCount; ++i) {
            pugi::xml_node oNode = oList[static_cast<size_t>(arrOrder[i][0])].node();
            arr.Item(0, i) = clsXMLIniData::NodeText(oNode);
            arr.Item(1, i) = ctx.IniData->GetAttrValue(oNode, "FIELD");
        }
        return true;
    });
}

bool clsExportExcel::GetAdditionalTags(clsExportContext& ctx, const std::string& sName) {
    return TrapRun(ctx, kModule, "GetAdditionalTags", false, [&] {
        if (!ctx.IniData) RaiseError(modConst::errObjectNotSet);
        long lCount = -1;
        clsOrderArray arrOrder;
        pugi::xpath_node_set oList =
            ctx.IniData->GetOrderedAttrList("MAIN_ADD_LBL/" + sName, lCount, arrOrder);
        if (lCount < 0) return false;
        clsVarTable& tbl = ctx.Labels.AdditionalTagTable;
        tbl.ReDim(2, lCount);
        for (long i = 0; i <= lCount; ++i) {
            pugi::xml_node oNode = oList[static_cast<size_t>(arrOrder[i][0])].node();
            tbl.Item(0, i) = ctx.IniData->GetAttrValue(oNode, "FIELD");
            tbl.Item(1, i) = clsXMLIniData::NodeText(oNode);
            tbl.Item(2, i) = ctx.IniData->GetAttrValue(oNode, "OWNER");
        }
        return true;
    });
}

void clsExportExcel::ClearLabelTables(clsExportContext& ctx) {
    clsLabelTables& lbl = ctx.Labels;
    lbl.CaptionTable.Erase();
    lbl.AdditionalTagTable.Erase();
    lbl.ItemAttrLabels.Erase();
    lbl.DocAttrLabels.Erase();
    lbl.FileAttrLabels.Erase();
    if (ctx.Model.ExportKind == 1) {
        lbl.MnfAttrLabels.Erase();
        lbl.VndAttrLabels.Erase();
    }
}
