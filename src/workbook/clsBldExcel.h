// Writes the export model into a workbook through the spreadsheet object model.
//
// The first worksheet holds, under the caption block, the main panel (one row per exported
// object) and the property panel (one detail block per object). Every row-filling procedure
// takes the running sheet row by reference and leaves it on the row that its description names
// (usually the first free row after what it wrote).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "parse/clsExportContext.h"
#include "support/clsCallSite.h"
#include "xl/xlObjectModel.h"

struct clsBldExcelTestAccess;
struct clsItemUses;

class clsBldExcel {
public:
    explicit clsBldExcel(clsExportContext& ctx);
    ~clsBldExcel();
    clsBldExcel(const clsBldExcel&) = delete;
    clsBldExcel& operator=(const clsBldExcel&) = delete;

    // Lifetime: start the application and write the new, empty workbook under sFileName; lay
    // out the whole workbook; save, close and quit.
    bool InitExl(const std::string& sFileName);
    // Starts the application and adds a workbook that is laid out in memory only and never
    // written: the settings check lays its exports out this way. ExitExl is not called then.
    bool InitExlInMemory();
    bool FillExlFile();
    void ExitExl();

    // The workbook file: whether the final save of ExitExl wrote it whole, and the system's
    // reason when a save could not write it ("" when none failed that way).
    bool WorkbookSaved() const { return bSaved_; }
    const std::string& SaveFailure() const { return sSaveFailure_; }

    // Main panel.
    void FillMainPanelCaption(long nRow);
    void FillMainPanelItems(long& nCount, long nStartRow);
    void FillMainPanelDocs(long& nCount, long nStartRow);
    void FillMainPanelFolders(long& nCount, long nStartRow);
    void FillMainPanelItem(long nRow, long nColOffset, long nIndex);
    void FillMainPanelDoc(long nRow, long nColOffset, long nIndex);
    void FillMainPanelFolder(long nRow, long nColOffset, long nIndex);

    // Detail blocks of the property panel.
    void FillItemsDetail(long& nRow);
    void FillDocsDetail(long& nRow);
    void FillFoldersDetail(long& nRow);
    void FillItemDetail(long nIndex, long& nRow);
    void FillDocDetail(long nIndex, long& nRow);
    void FillFolderDetail(long nIndex, long& nRow);
    void FillItem(const ItemStruct& rec, long& nRow, long nColorIndex, bool bTopBorder);
    void FillDocChild(std::string& sChildren, long& nRow);
    void FillFolderChild(std::string& sChildren, long& nRow);
    void FillItemListForDoc(long nIndex, long& nRow);
    void FillItemListForFolder(long nIndex, long& nRow);
    void FillDocListForItem(long nIndex, long& nRow);
    void FillDocListForFolder(long nIndex, long& nRow);

    // Part list and local alternates.
    void FillChild(long nIndex, long& nRow);
    void FillLAIOfChild2(long nIndex, long& nRow);

    // Related documents, folders and files.
    bool FillDocListForDoc(long nIndex, long& nRow);
    bool FillFolderListForItem(long nIndex, long& nRow);
    bool FillFolderListForDoc(long nIndex, long& nRow);
    bool FillFolderListForFolder(long nIndex, long& nRow);
    bool FillDoc(const DocStruct& rec, long& nRow, const std::string& sLblPath, long nColorIndex,
                 bool bDetail);
    bool FillFolder(const FoldStruct& rec, long& nRow, const std::string& sLblPath,
                    long nColorIndex, bool bDetail);
    bool FillFiles(const std::vector<FileStruct>& arrFiles, long nFileCount, long& nRow);

    // Manufacturers, suppliers and the attribute grid.
    bool FillManufacturAndSupp(long nIndex, long& nRow);
    bool FillManufactur(const std::vector<MNFStruct>& arrMnf, long nMnfCount, long& nRow,
                        bool bDetail);
    bool FillSuppliers(const std::vector<ItemStruct>& arrVnd, long nVndCount, long& nRow,
                       bool bDetail);
    bool FillAttrByCol(const VarStrArray& arrValues, const clsVarTable& arrLabels, long nAttrCount,
                       long& nRow);

    // Anchor names and the hyperlinks of the main panel.
    std::string GetItemHyperlinkName(long nIndex);
    std::string GetDocHyperlinkName(long nIndex);
    std::string GetFolderHyperlinkName(long nIndex);
    bool FillHyperlinkStruct();
    void FillContinuationSheets(long nBarRow, long nLinksToCome);
    void FillPageSetup(xl::xlWorksheet& oSheet, long nLastRow, long nTitleRows = 3,
                       long nLastCol = 6);
    // Links a main-panel cell (or a cell of oSheet) to the block of an anchor name, on
    // whichever sheet it is.
    void AddAnchorLink(long nRow, long nCol, long nIndex);
    void AddAnchorLink(xl::xlWorksheet& oSheet, long nRow, long nCol, const std::string& sAnchor);
    void PromiseAnchorLink(long nRow, long nCol, long nIndex, const std::string& sAnchor);
    // The HYPERLINK formula of a cell past the links a sheet holds, leading to sCell; empty
    // when the cell keeps its text.
    static std::string AnchorLinkFormula(xl::xlWorksheet& oSheet, long nRow, long nCol,
                                         const std::string& sCell);
    bool FillHyperlinkCollect();
    // Lets the rows of the first sheet, and of the sheets its blocks continue on, go to the
    // file's writer while the blocks are filled, with what the sheets get once they are placed
    // promised first; the main panel has nCount rows.
    void WriteAheadOfBlocks(long nCount);
    // Counts the blocks before they are filled, for where the first sheet will be cut
    // (clsBldExcelForecast.cpp).
    bool ForecastBlocks(long nCount);

    // Caption bands, merging and the level sheet.
    bool FillCaption(long nRow, long nFirstCol, long nLastCol, long nInteriorColor,
                     double dRowHeight, long nFontColor, long nFontSize, bool bBorders,
                     bool bMerge);
    bool MergeLevel(long nRow, long nFirstCol, long nLastCol, xl::xlWorksheet& oSheet);
    bool AddLevelSheet();

    // Views beside the panels (clsBldExcelViews.cpp): which ones this export writes (the host's
    // choice, else the settings' EXPORT_VIEWS, each where the export's kind and mode allow
    // it), the outline of the main panel, and the view sheets.
    clsViews GetExportViews();
    void FillOutline(long nCount);
    void FillViews(const clsViews& oViews);
    bool FillLevelSheet();
    bool FillFlatList(const clsItemUses& oUses);
    bool FillWhereUsed(const clsItemUses& oUses);

private:
    friend struct clsBldExcelTestAccess;

    // Caption texts from the settings, with a fallback text. These helpers, the ordered label
    // list and SelectLabels are the builder's only ways into the settings: each tells a lookup
    // recorder attached to the settings (the settings check) where it was called from and what
    // it falls back to.
    std::string GetCaptionById(long lId, const std::string& sDefault, long& lLength,
                               clsCallSite oSite = clsCallSite());
    std::string GetCaptionByName(const std::string& sName, const std::string& sDefault,
                                 long& lLength, clsCallSite oSite = clsCallSite());
    std::string GetCaptionByPath(const std::string& sPath, const std::string& sDefault,
                                 clsCallSite oSite = clsCallSite());
    // The ordered label list of a settings section (GetOrderedAttrList).
    pugi::xpath_node_set GetLabelList(const std::string& sPath, long& lUBound,
                                      clsOrderArray& arrOrder, clsCallSite oSite = clsCallSite());
    std::string GetExportSectionPath() const;
    void FillAttributesHeading(long& nRow);
    static std::string SanitizeName(const std::string& sName);
    // The anchor name of object nIndex of the export's kind ("" for any other kind), and the
    // object's level (error 9 outside the array).
    std::string AnchorNameOf(long nIndex);
    long LevelOf(long nIndex) const;

    // Runs one save of the workbook file; a file that cannot be written leaves its reason in
    // SaveFailure before the error goes on to the procedure's trap.
    void WriteWorkbookFile(const std::function<void()>& fnSave);

    // Makes a settings section current; the result is the switch for labels from the settings
    // of the list or line being written.
    void SelectLabels(const std::string& sNodePath, clsCallSite oSite = clsCallSite());
    // The recorder attached to the settings, if any.
    clsLookupRecorder* Recorder() const;

    // The objects the procedures need; each raises error 91 when it is not there.
    xl::xlWorksheet& Sheet() const;
    clsXMLIniData& Ini() const;

    // The view sheets: a new sheet after the last one, named after a label (made a valid sheet
    // name, and another than the workbook's); the caption block, the heading row 4 with the
    // labels; the finish once the rows are written (columns fitted, the sheet continued past its
    // last row, on every sheet of the view the heading frozen, the AutoFilter, the links and the
    // page set-up).
    xl::xlWorksheet& AddViewSheet(const std::string& sName);
    void FillViewHeading(xl::xlWorksheet& oSheet, const std::vector<std::string>& arrLabels);
    std::vector<xl::xlWorksheet*> FinishViewSheet(xl::xlWorksheet& oSheet, long nLastCol,
                                                  const std::vector<long>& arrWrapCols,
                                                  const std::vector<long>& arrRightCols);
    // Moves the rows of oSheet past its last row to new sheets after it and logs each one.
    std::vector<xl::xlWorksheet*> ContinueSheet(xl::xlWorksheet& oSheet,
                                                const std::vector<long>& arrTitleRows,
                                                long nLinksToCome);
    // What the item views read: every distinct item with its uses and total quantity.
    clsItemUses CollectItemUses();

    // The caption band that opens a list: columns A to F merged, top and bottom borders, the
    // caption in column A in bold italic; the row then advances by one.
    void FillListCaption(long& nRow, const std::string& sCaption);

    // A whole list of related objects: its caption band, then one line per element, from index 0
    // to lUBound, with no fill and no detail. The list procedures differ only in the array they
    // take and the caption they show.
    void FillItemLines(const std::vector<ItemStruct>& arrItems, long lUBound, long& nRow,
                       const std::string& sCaption);
    void FillDocLines(const std::vector<DocStruct>& arrDocs, long lUBound, long& nRow,
                      const std::string& sCaption);
    void FillFolderLines(const std::vector<FoldStruct>& arrFolders, long lUBound, long& nRow,
                         const std::string& sCaption);

    // Writes a row of three caption/value pairs: A caption, B value, C caption, D value,
    // E caption, F value; the captions in bold.
    void FillKeyRow(long nRow, const std::string& sCap1, const std::string& sVal1,
                    const std::string& sCap2, const std::string& sVal2, const std::string& sCap3,
                    const std::string& sVal3);

    clsExportContext& ctx_;
    std::unique_ptr<xl::xlApplication> oExlApp_;
    xl::xlWorkbook* oWorkbook_ = nullptr;
    xl::xlWorksheet* oSheet_ = nullptr;
    bool bLblFromIni_ = false;  // the switch for labels from the settings
    bool bSaved_ = false;
    std::string sSaveFailure_;
    // Views read some of the objects' data after the blocks, which let go of the rest.
    bool bViewsReadRecords_ = false;
    // The main panel's links are promised, not made (WriteAheadOfBlocks).
    bool bPromiseLinks_ = false;
    // By object index: where its block will be, as forecast (none without a forecast); and the
    // links the first sheet will hold, those of its blocks and the main panel's promised so far.
    std::vector<xl::xlBlockPlace> arrForecastPlaces_;
    long nForecastLinks_ = 0;
};
