// Related documents, folders and files; manufacturers and suppliers; the attribute grid.
#include "support/clsRunError.h"
#include "workbook/clsBldExcel.h"

namespace {

const std::string kDocumentLbl = "PROPERTY_LBL/DOCUMENT_LBL";
const std::string kFolderLbl = "PROPERTY_LBL/FOLDER_LBL";

}  // namespace

void clsBldExcel::FillDocLines(const std::vector<DocStruct>& arrDocs, long lUBound, long& nRow,
                               const std::string& sCaption) {
    FillListCaption(nRow, sCaption);
    for (long i = 0; i <= lUBound; ++i)
        FillDoc(At(arrDocs, i), nRow, kDocumentLbl, 0, false);
}

void clsBldExcel::FillFolderLines(const std::vector<FoldStruct>& arrFolders, long lUBound,
                                  long& nRow, const std::string& sCaption) {
    FillListCaption(nRow, sCaption);
    for (long i = 0; i <= lUBound; ++i)
        FillFolder(At(arrFolders, i), nRow, kFolderLbl, 0, false);
}

// The documents related to a document.
bool clsBldExcel::FillDocListForDoc(long nIndex, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillDocListForDoc", false, [&] {
        long lLen = -1;
        const XDocStruct& rec = At(ctx_.Model.XDocs, nIndex);
        SelectLabels(kDocumentLbl);
        FillDocLines(rec.Docs, rec.DocCount, nRow,
                     GetCaptionByName("REFERENCE_DOC_LBL", "Reference Documents", lLen));
        return true;
    });
}

// The folders of an item.
bool clsBldExcel::FillFolderListForItem(long nIndex, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillFolderListForItem", false, [&] {
        long lLen = -1;
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        SelectLabels(kFolderLbl);
        FillFolderLines(rec.Folders, rec.FolderCount, nRow,
                        GetCaptionByName("CAPTION_LBL", "Folders", lLen));
        return true;
    });
}

// The folders of a document.
bool clsBldExcel::FillFolderListForDoc(long nIndex, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillFolderListForDoc", false, [&] {
        long lLen = -1;
        const XDocStruct& rec = At(ctx_.Model.XDocs, nIndex);
        SelectLabels(kFolderLbl);
        FillFolderLines(rec.Folders, rec.FolderCount, nRow,
                        GetCaptionByName("CAPTION_LBL", "Folders", lLen));
        return true;
    });
}

// The folders related to a folder.
bool clsBldExcel::FillFolderListForFolder(long nIndex, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillFolderListForFolder", false, [&] {
        long lLen = -1;
        const XFoldStruct& rec = At(ctx_.Model.XFolders, nIndex);
        SelectLabels(kFolderLbl);
        FillFolderLines(rec.Folders, rec.FolderCount, nRow,
                        GetCaptionByName("REFERENCE_FOLDER_LBL", "Reference Folders", lLen));
        return true;
    });
}

// One document line: ID, revision and description. With bDetail (the document's own block)
// the row has top and bottom borders and the attributes get their heading; a line in a list
// shows its attribute values without a heading. The files follow whenever there are any.
bool clsBldExcel::FillDoc(const DocStruct& rec, long& nRow, const std::string& sLblPath,
                          long nColorIndex, bool bDetail) {
    return TrapRun(ctx_, "clsBldExcel", "FillDoc", false, [&] {
        xl::xlWorksheet& oSheet = Sheet();
        long lLen = -1;
        SelectLabels(sLblPath + "/DOC_CAP_LBL");
        FillCaption(nRow, 1, 6, nColorIndex, 0, 0, 0, bDetail, false);
        FillKeyRow(nRow, GetCaptionById(1, "Doc. ID", lLen), rec.Key1,
                   GetCaptionById(2, "Revision", lLen), rec.Key3,
                   GetCaptionById(3, "Description", lLen), rec.Key2);
        nRow = CheckedAdd(nRow, 1);

        if (bDetail) FillAttributesHeading(nRow);
        if (rec.Attrs) {
            FillAttrByCol(rec.Attrs, ctx_.Labels.DocAttrLabels, VarUBound(rec.Attrs), nRow);
        }

        if (rec.FileCount >= 0) {
            FillCaption(nRow, 1, 6, 0, 0, 0, 0, true, true);
            oSheet.Range(oSheet.Cells(nRow, 1), oSheet.Cells(nRow, 6))
                .Font()
                .FontStyle("Bold Italic");
            SelectLabels(sLblPath);
            oSheet.Cells(nRow, 1).Value(
                GetCaptionByName("FILES_OF_DOCUMENT", "Files of Document", lLen));
            oSheet.Cells(nRow, 1).Font().ColorIndex(48);
            nRow = CheckedAdd(nRow, 1);
            FillFiles(rec.Files, rec.FileCount, nRow);
        }
        return true;
    });
}

// One folder line, like a document line; a folder has no files.
bool clsBldExcel::FillFolder(const FoldStruct& rec, long& nRow, const std::string& sLblPath,
                             long nColorIndex, bool bDetail) {
    return TrapRun(ctx_, "clsBldExcel", "FillFolder", false, [&] {
        long lLen = -1;
        SelectLabels(sLblPath + "/FOLDER_CAP_LBL");
        FillCaption(nRow, 1, 6, nColorIndex, 0, 0, 0, bDetail, false);
        FillKeyRow(nRow, GetCaptionById(1, "FLD ID", lLen), rec.Key1,
                   GetCaptionById(2, "Revision", lLen), rec.Key3,
                   GetCaptionById(3, "Description", lLen), rec.Key2);
        nRow = CheckedAdd(nRow, 1);

        if (bDetail) FillAttributesHeading(nRow);
        if (rec.Attrs) {
            FillAttrByCol(rec.Attrs, ctx_.Labels.FolderAttrLabels, VarUBound(rec.Attrs), nRow);
        }
        return true;
    });
}

// The files of a document: the file name as a hyperlink to the file itself (a local path, a
// UNC path or a URL, as exported), the file's attributes, and one empty row after each file.
bool clsBldExcel::FillFiles(const std::vector<FileStruct>& arrFiles, long nFileCount, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillFiles", false, [&] {
        xl::xlWorksheet& oSheet = Sheet();
        for (long i = 0; i <= nFileCount; ++i) {
            const FileStruct& oFile = At(arrFiles, i);
            oSheet.Cells(nRow, 1).Value(
                GetCaptionByPath("PROPERTY_LBL/DOCUMENT_LBL/FILE_ATTR_LBL/FILE_NAME", "File Name"));
            oSheet.Cells(nRow, 1).Font().FontStyle("Bold");
            oSheet.Hyperlinks().Add(oSheet.Cells(nRow, 2), oFile.FileName, "", "", oFile.FileName);
            nRow = CheckedAdd(nRow, 1);
            if (oFile.Attrs) {
                FillAttrByCol(oFile.Attrs, ctx_.Labels.FileAttrLabels, VarUBound(oFile.Attrs),
                              nRow);
            }
            nRow = CheckedAdd(nRow, 1);
        }
        return true;
    });
}

// The manufacturer and supplier lists of an item: the plain manufacturers (flag 1 or 3), the
// suppliers not attached to a manufacturer with their attributes, and the manufacturers with
// their attributes and their own suppliers (flag 2 or 3). With flag 3 each manufacturer is
// thus listed twice, once plain and once in detail.
bool clsBldExcel::FillManufacturAndSupp(long nIndex, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillManufacturAndSupp", false, [&] {
        long lLen = -1;
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        if (rec.MnfVndFlag == 1 || rec.MnfVndFlag == 3) {
            SelectLabels("PROPERTY_LBL/MNF_LBL");
            FillListCaption(nRow, GetCaptionByName("CAPTION_LBL", "Manufacturers", lLen));
            FillManufactur(rec.MNFs, rec.MNFCount, nRow, false);
        }
        if (rec.VNDCount > -1) {
            SelectLabels("PROPERTY_LBL/VND_LBL");
            FillListCaption(nRow, GetCaptionByName("CAPTION_LBL", "Suppliers", lLen));
            FillSuppliers(rec.VNDs, rec.VNDCount, nRow, true);
        }
        if (rec.MnfVndFlag == 2 || rec.MnfVndFlag == 3) {
            SelectLabels("PROPERTY_LBL/MNF_VND_LBL");
            FillListCaption(nRow, GetCaptionByName("MNF_CAP_LBL", "", lLen));
            FillManufactur(rec.MNFs, rec.MNFCount, nRow, true);
        }
        return true;
    });
}

// One line per manufacturer: ID, part number and name. With bDetail each is followed by its
// attributes and by the sub-list of its suppliers, which starts on the row after its heading.
bool clsBldExcel::FillManufactur(const std::vector<MNFStruct>& arrMnf, long nMnfCount, long& nRow,
                                 bool bDetail) {
    return TrapRun(ctx_, "clsBldExcel", "FillManufactur", false, [&] {
        xl::xlWorksheet& oSheet = Sheet();
        long lLen = -1;
        for (long i = 0; i <= nMnfCount; ++i) {
            const MNFStruct& oMnf = At(arrMnf, i);
            SelectLabels("PROPERTY_LBL/MNF_LBL/MNF_CAP_LBL");
            FillKeyRow(nRow, GetCaptionById(1, "Man. ID", lLen), oMnf.Key1,
                       GetCaptionById(3, "MPN", lLen), oMnf.Key3, GetCaptionById(2, "Name", lLen),
                       oMnf.Key2);
            nRow = CheckedAdd(nRow, 1);
            if (bDetail && oMnf.Attrs) {
                FillAttrByCol(oMnf.Attrs, ctx_.Labels.MnfAttrLabels, VarUBound(oMnf.Attrs), nRow);
            }
            if (bDetail && oMnf.VendorCount >= 0) {
                SelectLabels("PROPERTY_LBL/MNF_VND_LBL");
                FillCaption(nRow, 1, 2, 0, 0, 48, 0, false, true);
                oSheet.Range(oSheet.Cells(nRow, 1), oSheet.Cells(nRow, 2))
                    .Font()
                    .FontStyle("Bold Italic");
                oSheet.Cells(nRow, 1).Value(GetCaptionByName("VND_CAP_LBL", "", lLen));
                nRow = CheckedAdd(nRow, 1);
                FillSuppliers(oMnf.Vendors, oMnf.VendorCount, nRow, true);
            }
        }
        return true;
    });
}

// One line per supplier: ID, part number and name; with bDetail its attributes follow.
bool clsBldExcel::FillSuppliers(const std::vector<ItemStruct>& arrVnd, long nVndCount, long& nRow,
                                bool bDetail) {
    return TrapRun(ctx_, "clsBldExcel", "FillSuppliers", false, [&] {
        long lLen = -1;
        for (long i = 0; i <= nVndCount; ++i) {
            const ItemStruct& oVnd = At(arrVnd, i);
            SelectLabels("PROPERTY_LBL/VND_LBL/VND_CAP_LBL");
            FillKeyRow(nRow, GetCaptionById(1, "Sup. ID", lLen), oVnd.Key1,
                       GetCaptionById(3, "SPN", lLen), oVnd.Key3, GetCaptionById(2, "Name", lLen),
                       oVnd.Key2);
            nRow = CheckedAdd(nRow, 1);
            if (bDetail && oVnd.Attrs) {
                FillAttrByCol(oVnd.Attrs, ctx_.Labels.VndAttrLabels, VarUBound(oVnd.Attrs), nRow);
            }
        }
        return true;
    });
}

// Lays attribute values out over columns A to F, three caption/value pairs to a row, filling
// down the columns first: with five values in two rows, values 0 and 1 stand in A/B, 2 and 3
// in C/D and 4 in E/F. The running row ends on the first row below the grid. The caption of
// value i is field 0 of entry i of the label table.
bool clsBldExcel::FillAttrByCol(const VarStrArray& arrValues, const clsVarTable& arrLabels,
                                long nAttrCount, long& nRow) {
    return TrapRun(ctx_, "clsBldExcel", "FillAttrByCol", false, [&] {
        xl::xlWorksheet& oSheet = Sheet();
        const long nPairs = 6 / 2;
        const long nValues = CheckedAdd(nAttrCount, 1);
        const long nRows = nValues / nPairs + (nValues % nPairs >= 1 ? 1 : 0);
        const long nStartRow = nRow;
        long nCol = 1;
        for (long i = 0; i <= nAttrCount; ++i) {
            if (nRow > nStartRow + nRows - 1) {
                nRow = nStartRow;
                nCol = nCol + 2;
            }
            oSheet.Cells(nRow, nCol).Value(arrLabels.Item(0, i));
            oSheet.Cells(nRow, nCol).Font().FontStyle("Bold");
            oSheet.Cells(nRow, nCol + 1).Value(VarItem(arrValues, i));
            nRow = CheckedAdd(nRow, 1);
        }
        nRow = CheckedAdd(nStartRow, nRows);
        return true;
    });
}
