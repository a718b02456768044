// Lifetime of the workbook and the sheet plan of the first worksheet.
#include "workbook/clsBldExcel.h"

#include <algorithm>
#include <vector>

#include "settings/clsLookupRecorder.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modProgress.h"
#include "support/modResources.h"
#include "support/modSaveFile.h"

using namespace modConst;

clsBldExcel::clsBldExcel(clsExportContext& ctx) : ctx_(ctx) {}
clsBldExcel::~clsBldExcel() = default;

// Starts the application, adds a workbook and writes it at once under sFileName: the file's
// place and format are fixed here, and a place that cannot be written fails here.
bool clsBldExcel::InitExl(const std::string& sFileName) {
    return TrapRun(ctx_, "clsBldExcel", "InitExl", false, [&] {
        oExlApp_ = std::make_unique<xl::xlApplication>();
        oWorkbook_ = &oExlApp_->Workbooks().Add();
        oWorkbook_->ReturnFreedMemory(ctx_.Options.ReturnFreedMemory);
        WriteWorkbookFile([&] { oWorkbook_->SaveAs(sFileName, xlNoChange); });
        return true;
    });
}

bool clsBldExcel::InitExlInMemory() {
    return TrapRun(ctx_, "clsBldExcel", "InitExlInMemory", false, [&] {
        oExlApp_ = std::make_unique<xl::xlApplication>();
        oWorkbook_ = &oExlApp_->Workbooks().Add();
        return true;
    });
}

// Lays out the whole workbook on its first worksheet: caption block, main panel, property
// panel with one detail block per object, the hyperlinks from the main panel to the blocks,
// and the page set-up. The workbook is not saved here.
bool clsBldExcel::FillExlFile() {
    return TrapRun(ctx_, "clsBldExcel", "FillExlFile", false, [&] {
        if (!oWorkbook_) RaiseError(errObjectNotSet);
        oSheet_ = &oWorkbook_->Worksheets()(1);
        xl::xlWorksheet& oSheet = *oSheet_;
        const clsExportModel& m = ctx_.Model;
        const clsLabelTables& t = ctx_.Labels;

        // Sheet-wide format: every cell holds left-aligned, wrapped text.
        oSheet.Columns().ColumnWidth(21);
        oSheet.Cells().HorizontalAlignment(xlLeft);
        oSheet.Cells().WrapText(true);
        oSheet.Cells().NumberFormat("@");
        oSheet.Rows(1).Font().FontStyle("Bold");

        // Caption block: labels along row 1, their values along row 2; row 3 stays empty.
        for (long i = 0; i <= t.CaptionTable.EntryUBoundOrNone(); ++i) {
            oSheet.Cells(1, i + 1).Value(t.CaptionTable.Item(0, i));
            oSheet.Cells(2, i + 1).Value(t.CaptionTable.Item(1, i));
        }

        // The main-panel bar spans the six fixed columns and one per additional attribute.
        long nAttrCount = -1;
        if (t.AdditionalTagTable.IsArray()) {
            nAttrCount = t.AdditionalTagTable.UBound(2);
            if (m.IsStructure == 2) nAttrCount = nAttrCount - 1;
        }
        FillCaption(4, 1, CheckedAdd(nAttrCount, 7), 1, 18, 2, 14, true, true);
        const std::string sSection = GetExportSectionPath();
        oSheet.Cells(4, 1).Value(GetCaptionByPath(sSection + "/MAIN_PANEL", "Main Panel"));
        oSheet.Cells(4, 1).Font().FontStyle("Bold");

        // The views the export writes beside its panels.
        const clsViews oViews = GetExportViews();
        // The level sheet, the flat list and the where-used list read the objects' records
        // after the blocks.
        bViewsReadRecords_ = oViews.bLevelSheet || oViews.bFlatList || oViews.bWhereUsed;

        oSheet.Rows(5).Font().FontStyle("Bold");
        FillMainPanelCaption(5);
        long nCount = 0;
        switch (m.ExportKind) {
            case 1:
                FillMainPanelItems(nCount, 6);
                break;
            case 2:
                FillMainPanelDocs(nCount, 6);
                break;
            case 3:
                FillMainPanelFolders(nCount, 6);
                break;
            default:
                break;
        }

        // The main panel stays on the first sheet, from row 6: an export with more objects than
        // that sheet has rows is refused.
        if (CheckedAdd(nCount, 5) > oSheet.MaxRows()) RaiseError(errAppDefined);

        if (oViews.bOutline) FillOutline(nCount);

        // The property panel may run past the sheet's last row: it then continues on new
        // sheets, block by block. Blocks whose filling is over may go to the file's writer
        // ahead of the save, wherever they end up.
        oSheet.ContinuePastLastRow();
        oSheet.StreamFinishedBlocks();
        WriteAheadOfBlocks(nCount);

        // One empty row separates the main panel from the property panel.
        long nRow = CheckedAdd(CheckedAdd(nCount, 6), 1);
        const long nBarRow = nRow;
        FillCaption(nRow, 1, 6, 1, 18, 2, 14, true, true);
        oSheet.Cells(nRow, 1).Value(
            GetCaptionByPath(sSection + "/PROPERTY_PANEL", "Property Panel"));
        oSheet.Cells(nRow, 1).Font().FontStyle("Bold");

        nRow = CheckedAdd(nRow, 1);
        switch (m.ExportKind) {
            case 1:
                FillItemsDetail(nRow);
                break;
            case 2:
                FillDocsDetail(nRow);
                break;
            case 3:
                FillFoldersDetail(nRow);
                break;
            default:
                break;
        }

        // Each main-panel row gets one link: the sheet keeps room for them.
        FillContinuationSheets(nBarRow, nCount);

        if (m.IsStructure == 1) {
            FillHyperlinkStruct();
        } else {
            FillHyperlinkCollect();
        }

        // The last row of the property panel on each sheet: a sheet that continues, and each
        // continuation sheet, ends where its rows end.
        const long nSheets = oWorkbook_->Worksheets().Count();
        for (long i = 1; i <= nSheets; ++i) {
            xl::xlWorksheet& ws = oWorkbook_->Worksheets()(i);
            FillPageSetup(ws, nSheets == 1 ? std::min(nRow, ws.MaxRows()) : ws.UsedLastRow());
        }

        FillViews(oViews);
        return true;
    });
}

// The rows past the first sheet's end continue on new sheets after it, each with the caption
// block and the property-panel bar at its top; one log line names each new sheet.
void clsBldExcel::FillContinuationSheets(long nBarRow, long nLinksToCome) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillContinuationSheets", [&] {
        ContinueSheet(Sheet(), {1, 2, 3, nBarRow}, nLinksToCome);
    });
}

std::vector<xl::xlWorksheet*> clsBldExcel::ContinueSheet(xl::xlWorksheet& oSheet,
                                                         const std::vector<long>& arrTitleRows,
                                                         long nLinksToCome) {
    const std::vector<xl::xlWorksheet*> arrNew =
        oSheet.ContinueOnNewSheets(arrTitleRows, nLinksToCome);
    for (xl::xlWorksheet* pSheet : arrNew) {
        const std::string& sMsg = ctx_.Res.MsgContinuesOnSheet;
        modResources::WriteLog(ctx_,
                               (sMsg.empty() ? "The workbook continues on sheet" : sMsg) + " '" +
                                   pSheet->Name() + "'.",
                               "", -1, false);
    }
    return arrNew;
}

// Vertical alignment and page set-up of one sheet: landscape; all columns on one page width,
// as many pages down as needed, so that every printed page carries the labels of column A, on any
// paper; rows 1 to nTitleRows repeat on every printed page; the page number in the footer; the
// print area is columns A to nLastCol down to nLastRow. A panel sheet's are rows 1 to 3 and
// columns A to F.
void clsBldExcel::FillPageSetup(xl::xlWorksheet& oSheet, long nLastRow, long nTitleRows,
                                long nLastCol) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillPageSetup", [&] {
        oSheet.Cells().VerticalAlignment(xlTop);
        oSheet.PageSetup().Orientation(xlLandscape);
        oSheet.PageSetup().Zoom(false);
        oSheet.PageSetup().FitToPagesWide(1);
        oSheet.PageSetup().FitToPagesTall(false);
        oSheet.PageSetup().PrintTitleRows(
            oSheet.Range(oSheet.Cells(1, 1), oSheet.Cells(nTitleRows, 4)).Address());
        oSheet.PageSetup().CenterFooter("&P");
        oSheet.PageSetup().PrintArea(
            oSheet.Range(oSheet.Cells(1, 1), oSheet.Cells(std::max(nLastRow, 1L), nLastCol))
                .Address());
    });
}

// Saves and closes the workbook and ends the application; each reference is tested first, so
// this is safe after a failed InitExl.
void clsBldExcel::ExitExl() {
    TrapRunVoid(ctx_, "clsBldExcel", "ExitExl", [&] {
        oSheet_ = nullptr;
        if (oWorkbook_) {
            // Writing the rows is the long part of an export: the host sees it advance.
            oWorkbook_->OnSaveProgress = [this](long lDone, long lTotal) {
                modProgress::ReportProgress(ctx_, clsProgress::Stage::Writing, lDone, lTotal);
            };
            // Saved and closed at once: what the file's writer has taken leaves memory before
            // the file is completed.
            WriteWorkbookFile([&] { oWorkbook_->Close(true); });
            bSaved_ = true;
            oWorkbook_ = nullptr;
        }
        if (oExlApp_) {
            oExlApp_->Quit();
            oExlApp_.reset();
        }
    });
}

void clsBldExcel::WriteWorkbookFile(const std::function<void()>& fnSave) {
    try {
        fnSave();
    } catch (const modSaveFile::clsWriteError& e) {
        sSaveFailure_ = e.Reason;
        throw;
    }
}

xl::xlWorksheet& clsBldExcel::Sheet() const {
    if (!oSheet_) RaiseError(errObjectNotSet);
    return *oSheet_;
}

clsXMLIniData& clsBldExcel::Ini() const {
    if (!ctx_.IniData) RaiseError(errObjectNotSet);
    return *ctx_.IniData;
}

void clsBldExcel::SelectLabels(const std::string& sNodePath, clsCallSite oSite) {
    bLblFromIni_ = Ini().SetCurNode(sNodePath);
    if (clsLookupRecorder* p = Recorder()) p->OnSite(oSite);
}

clsLookupRecorder* clsBldExcel::Recorder() const {
    return ctx_.IniData ? ctx_.IniData->Recorder() : nullptr;
}

void clsBldExcel::FillListCaption(long& nRow, const std::string& sCaption) {
    xl::xlWorksheet& oSheet = Sheet();
    FillCaption(nRow, 1, 6, 0, 0, 0, 0, true, true);
    oSheet.Cells(nRow, 1).Value(sCaption);
    oSheet.Cells(nRow, 1).Font().FontStyle("Bold Italic");
    nRow = CheckedAdd(nRow, 1);
}

void clsBldExcel::FillKeyRow(long nRow, const std::string& sCap1, const std::string& sVal1,
                             const std::string& sCap2, const std::string& sVal2,
                             const std::string& sCap3, const std::string& sVal3) {
    xl::xlWorksheet& oSheet = Sheet();
    oSheet.Cells(nRow, 1).Value(sCap1);
    oSheet.Cells(nRow, 1).Font().FontStyle("Bold");
    oSheet.Cells(nRow, 2).Value(sVal1);
    oSheet.Cells(nRow, 3).Value(sCap2);
    oSheet.Cells(nRow, 3).Font().FontStyle("Bold");
    oSheet.Cells(nRow, 4).Value(sVal2);
    oSheet.Cells(nRow, 5).Value(sCap3);
    oSheet.Cells(nRow, 5).Font().FontStyle("Bold");
    oSheet.Cells(nRow, 6).Value(sVal3);
}
