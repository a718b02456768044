// An in-memory spreadsheet object model that behaves like the spreadsheet application the
// builder was written for: application, workbooks, worksheets, ranges, fonts, fills, borders,
// merges, names, hyperlinks and page set-up, with the application's limits and errors (what it
// would refuse raises run-time error 1004). Saving renders the model as an .xlsx file, or as an
// Excel 97-2003 (.xls) file when the name ends in ".xls"; the limits of that format (65,536 rows,
// 256 columns, 4,000 cell formats) are then the limits of the workbook.
//
// Rows and columns are 1-based. Settings on the whole sheet, on rows, columns and ranges apply in
// the order they are made; a later one wins for the cells it covers.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "support/modConst.h"

namespace xl {

namespace detail {
class WriteAhead;
}

// A merged area of a sheet: first row, first column, last row, last column (32 bits each: a
// sheet lists hundreds of thousands).
using xlMergedArea = std::array<int32_t, 4>;
inline xlMergedArea MergedArea(long r1, long c1, long r2, long c2) {
    return {static_cast<int32_t>(r1), static_cast<int32_t>(c1), static_cast<int32_t>(r2),
            static_cast<int32_t>(c2)};
}

// A cell value: empty, text or a number.
using xlVariant = std::variant<std::monostate, std::string, double>;

// The complete format of one cell, as the saver writes it.
struct xlStyle {
    bool bBold = false;
    bool bItalic = false;
    bool bUnderline = false;   // single underline (the look of a hyperlink)
    long lFontColorIndex = 0;  // 0: automatic; else 1..56 of the default palette
    double dFontSize = 11;
    long lInteriorColorIndex = 0;  // 0: no fill; else 1..56
    long lBorderTop = 0;           // 0: none; else a line style (1 continuous)
    long lBorderBottom = 0;
    long lBorderLeft = 0;
    long lBorderRight = 0;
    long lHorizontalAlignment = 1;    // xlGeneral
    long lVerticalAlignment = -4107;  // xlBottom
    bool bWrapText = false;
    std::string sNumberFormat = "General";
    bool operator==(const xlStyle&) const = default;
};

// RGB of a colour index of the default 56-colour palette (1 black, 2 white, 15 C0C0C0, ...);
// raises 1004 for an index outside 1..56.
uint32_t PaletteRGB(long lColorIndex);

// "A" for 1, "Z" for 26, "AA" for 27, ...
std::string ColumnLetters(long lColumn);

class xlWorksheet;
class xlWorkbook;
class xlRange;
class xlFont;
class xlInterior;
class xlBorder;
struct xlStyleTable;
namespace detail {
class TextArena;
}

// One change to the format of cells: which property and its new value. Ranges apply changes;
// the model remembers the result of each change to each distinct format.
struct xlStyleChange {
    enum Kind : uint8_t {
        kBold,
        kItalic,
        kFontStyle,  // bold (1) and italic (2) at once
        kUnderline,
        kFontColor,
        kFontSize,
        kInterior,
        kBorderLeft,
        kBorderTop,
        kBorderBottom,
        kBorderRight,
        kHorizontal,
        kVertical,
        kWrap,
        kNumberFormat
    };
    Kind eKind = kBold;
    long lValue = 0;     // flags (0/1), colour indices (0 = none), line styles, alignments
    double dValue = 0;   // font size
    std::string sValue;  // number format
};

// A rectangle of cells of one worksheet (a cell, a span, whole rows, whole columns or all
// cells). A light handle: copies refer to the same cells.
class xlRange {
public:
    xlRange(xlWorksheet* pSheet, long lRow1, long lCol1, long lRow2, long lCol2);

    void Value(const xlVariant& v);
    // A formula in every cell of the range. The model knows one function, a link that a cell
    // shows: =HYPERLINK("location") or =HYPERLINK("location", "text to show"), each a text of
    // up to 255 characters in quotes ("" for a quote). The cell's value is the text it shows.
    // Raises 1004 for any other formula.
    void Formula(const std::string& sFormula);
    void Value(const std::string& s) { TextValue(s); }
    void Value(const char* s) { TextValue(s); }
    void Value(double d) { Value(xlVariant(d)); }
    void Value(long l) { Value(xlVariant(static_cast<double>(l))); }
    void Value(int i) { Value(xlVariant(static_cast<double>(i))); }
    xlVariant GetValue() const;  // the value of the top-left cell
    std::string Text() const;    // the top-left value as text ("" when empty)

    xlFont Font() const;
    xlInterior Interior() const;
    xlBorder Borders(long lIndex) const;  // 7 left, 8 top, 9 bottom, 10 right edge

    void MergeCells(bool bMerge);
    bool GetMergeCells() const;
    void HorizontalAlignment(long lAlign);
    void VerticalAlignment(long lAlign);
    void WrapText(bool bWrap);
    void NumberFormat(const std::string& sFormat);
    void RowHeight(double dHeight);
    void ColumnWidth(double dWidth);
    // Whole columns: each column takes the width that the widest line of its cells needs (in
    // their fonts; a cell under a merged area that spans columns does not count); a column
    // without values keeps its width. Whole rows: each row drops a height of its own and fits
    // its text again. Raises 1004 for any other range.
    void AutoFit();
    // The outline level of whole rows, numbered as the application numbers it: 1 for a row in
    // no group up to 8 for a row inside seven nested groups. Raises 1004 for another level, or
    // for a range that is not whole rows (or is the whole sheet).
    void OutlineLevel(long lLevel);
    // An AutoFilter over the range: its first row holds the filter buttons, the rows below it
    // are filtered. A sheet has one; a later one replaces it.
    void AutoFilter();

    // Absolute A1 address: "$A$1", "$A$1:$D$3", "$5:$5" for a whole row, "$A:$A" for a column.
    std::string Address() const;
    // The same with the sheet's name in front, quoted where a formula needs it:
    // "'Sheet1 (2)'!$A$5".
    std::string AddressExternal() const;

    // Copies values and formats to a destination of the same size (or its top-left cell).
    void Copy(const xlRange& oDestination) const;

    long Row() const { return lRow1_; }
    long Column() const { return lCol1_; }
    long LastRow() const { return lRow2_; }
    long LastColumn() const { return lCol2_; }
    xlWorksheet* Sheet() const { return pSheet_; }

    // Applies a change to the format of every cell of the range (and to the row, column or
    // sheet format when the range is whole rows, columns or the sheet).
    void ApplyStyle(const xlStyleChange& oChange) const;

    bool IsWholeRows() const;     // every column of its rows
    bool IsWholeColumns() const;  // every row of its columns

private:
    void TextValue(std::string_view s);

    xlWorksheet* pSheet_;
    long lRow1_, lCol1_, lRow2_, lCol2_;
};

class xlFont {
public:
    explicit xlFont(const xlRange& r);
    void FontStyle(const std::string& sStyle);  // "Regular", "Bold", "Italic", "Bold Italic"
    void Bold(bool b);
    void Italic(bool b);
    void Underline(long lStyle);  // xlUnderlineStyleSingle or xlUnderlineStyleNone
    void ColorIndex(long lIndex);
    void Size(double dSize);

private:
    xlRange r_;
};

class xlInterior {
public:
    explicit xlInterior(const xlRange& r);
    void ColorIndex(long lIndex);  // xlColorIndexNone (-4142) removes the fill

private:
    xlRange r_;
};

class xlBorder {
public:
    xlBorder(const xlRange& r, long lIndex);
    void LineStyle(long lStyle);  // xlContinuous (1), xlLineStyleNone (-4142), xlDash, ...

private:
    xlRange r_;
    long lIndex_;
};

inline xlFont xlRange::Font() const {
    return xlFont(*this);
}
inline xlInterior xlRange::Interior() const {
    return xlInterior(*this);
}
inline xlBorder xlRange::Borders(long lIndex) const {
    return xlBorder(*this, lIndex);
}

struct xlNameEntry {
    std::string sName;
    long lRow1, lCol1, lRow2, lCol2;
};

class xlNames {
    friend class xlRange;
    friend class xlWorksheet;

public:
    explicit xlNames(xlWorksheet* pSheet) : pSheet_(pSheet) {}
    // A name local to the worksheet; raises 1004 for an invalid or over-long name.
    void Add(const std::string& sName, const xlRange& oRefersTo);
    long Count() const { return static_cast<long>(arr_.size()); }
    const std::vector<xlNameEntry>& Items() const { return arr_; }
    // The name of that text (in any case), or nullptr.
    const xlNameEntry* Find(const std::string& sName) const;
    // What name e of this sheet refers to, as a file holds it: "=Sheet1!$5:$5". Made when
    // asked: an export names every block, and the text would take room for each.
    std::string RefersTo(const xlNameEntry& e) const;

private:
    xlWorksheet* pSheet_;
    std::vector<xlNameEntry> arr_;
};

// A link's texts are kept in the workbook's text store, as its cells' texts are: a sheet of
// many links would otherwise hold three strings for each.
struct xlHyperlinkEntry {
    static constexpr uint64_t kNoText = ~uint64_t{0};

    xlHyperlinkEntry(long r, long c, const detail::TextArena& oTexts, uint64_t lAddr, uint64_t lSub,
                     uint64_t lTip)
        : lRow(r), lCol(c), pTexts(&oTexts), lAddress(lAddr), lSubAddress(lSub), lScreenTip(lTip) {}
    std::string_view Address() const { return Text(lAddress); }
    std::string_view SubAddress() const { return Text(lSubAddress); }
    std::string_view ScreenTip() const { return Text(lScreenTip); }

    long lRow, lCol;
    const detail::TextArena* pTexts;             // the store of the workbook that holds the link
    uint64_t lAddress, lSubAddress, lScreenTip;  // references into it, or kNoText for ""

private:
    std::string_view Text(uint64_t lRef) const;
};

class xlHyperlinks {
    friend class xlRange;
    friend class xlWorksheet;

public:
    explicit xlHyperlinks(xlWorksheet* pSheet) : pSheet_(pSheet) {}
    // Adds a hyperlink on the anchor's top-left cell (replacing one already there). Without
    // TextToDisplay the cell keeps its text (an empty cell shows the address, else the
    // sub-address); the cell takes the look of a link. Raises 1004 past the worksheet's limit
    // and for an address too long for the file.
    void Add(const xlRange& oAnchor, const std::string& sAddress,
             const std::string& sSubAddress = "", const std::string& sScreenTip = "",
             const std::optional<std::string>& sTextToDisplay = std::nullopt);
    long Count() const;
    const std::vector<xlHyperlinkEntry>& Items() const { return arr_; }
    // Promises that Add(oAnchor, sAddress, sSubAddress) is called for this cell once the rows
    // that go ahead are filled (see xlWorksheet::WriteAhead); nothing is added now. Promised
    // cells come in row order.
    void Promise(const xlRange& oAnchor, const std::string& sAddress,
                 const std::string& sSubAddress);
    // The same for a link past those the sheet holds: that the cell's Formula(sFormula) (a
    // HYPERLINK formula) is set, and its font underlined in colour 5, once the rows are filled.
    void PromiseFormula(const xlRange& oAnchor, const std::string& sFormula);

private:
    xlWorksheet* pSheet_;
    std::vector<xlHyperlinkEntry> arr_;
};

class xlPageSetup {
public:
    explicit xlPageSetup(const xlWorksheet* pSheet = nullptr) : pSheet_(pSheet) {}
    void Orientation(long l);                          // xlPortrait (1) or xlLandscape (2)
    void PrintTitleRows(const std::string& sAddress);  // a range address; its rows repeat
    void CenterFooter(const std::string& s);           // header/footer codes, such as "&P"
    void PrintArea(const std::string& sAddress);       // "" removes it
    // Printing scale in percent (10 to 400), or False (0): the sheet is printed scaled to fit
    // FitToPagesWide pages across and FitToPagesTall pages down.
    void Zoom(long lPercent);
    // Pages across / down when Zoom is False: 1 to 32767, or False (0) for as many as needed.
    void FitToPagesWide(long lPages);
    void FitToPagesTall(long lPages);

    long lOrientation = 1;        // xlPortrait
    std::string sPrintTitleRows;  // as set, e.g. "$A$1:$D$3"
    long lTitleRow1 = 0, lTitleRow2 = 0;
    std::string sCenterFooter;
    std::string sPrintArea;
    long lAreaRow1 = 0, lAreaCol1 = 0, lAreaRow2 = 0, lAreaCol2 = 0;
    long lZoom = 100;                               // 0: False, fitted to pages
    long lFitToPagesWide = 1, lFitToPagesTall = 1;  // 0: False, as many as needed

private:
    const xlWorksheet* pSheet_;  // whose limits addresses are read against
};

// One stored cell, for readers of the model (tests, the saver).
struct xlCellView {
    xlVariant vValue;
    xlStyle oStyle;
    std::string sFormula;  // empty unless the cell holds a formula
};

// The rows, hyperlinks and local names a block of a sheet will take (ForecastContinuation).
struct xlBlockExtent {
    long lRows = 0;
    long lLinks = 0;
    long lNames = 0;
};
// Where such a block will be: on the sheet itself or on a new one, and its first cell there
// with its sheet ("'Sheet1 (2)'!$A$5").
struct xlBlockPlace {
    bool bStays = true;
    std::string sCell;
};

class xlWorksheet {
public:
    xlWorksheet(xlWorkbook* pBook, std::string sName);
    ~xlWorksheet();
    xlWorksheet(const xlWorksheet&) = delete;
    xlWorksheet& operator=(const xlWorksheet&) = delete;

    const std::string& Name() const { return sName_; }
    // Renames the sheet: 1 to 31 characters, none of : \ / ? * [ ], not beginning or ending with
    // an apostrophe, and no other sheet of the workbook of that name (in any case); 1004 else.
    void Name(const std::string& sName);

    xlRange Cells();                      // all cells
    xlRange Cells(long lRow, long lCol);  // one cell; 1004 when out of the sheet
    xlRange Range(const xlRange& a, const xlRange& b);
    xlRange Range(const std::string& sAddress);  // "A1", "A1:F10", "$A$1:$D$3"
    xlRange Rows();
    xlRange Rows(long lRow);
    xlRange Columns();
    xlRange Columns(long lCol);

    xlPageSetup& PageSetup() { return oPageSetup_; }
    xlNames& Names() { return oNames_; }
    xlHyperlinks& Hyperlinks() { return oHyperlinks_; }
    const xlPageSetup& PageSetup() const { return oPageSetup_; }
    const xlNames& Names() const { return oNames_; }
    const xlHyperlinks& Hyperlinks() const { return oHyperlinks_; }
    xlWorkbook* Parent() const { return pBook_; }

    // Readers.
    std::optional<xlCellView> GetCell(long lRow, long lCol) const;  // none when never touched
    xlStyle EffectiveStyle(long lRow, long lCol) const;             // also for cells never touched
    double RowHeightOf(long lRow) const;                            // 15 unless set
    double ColumnWidthOf(long lCol) const;                          // 8.43 unless set
    // The height the row has in the workbook: its own height when one was set (RowHeight),
    // else the height its cells need when that is more than the standard height (fitted as the
    // application fits a row to its text, see xlRowFit.h), else the standard height.
    double EffectiveRowHeight(long lRow) const;
    bool HasOwnRowHeight(long lRow) const;  // a height was set for this row
    // The used range: the last row and column holding a cell that shows something (a value, or
    // a format other than its row's, column's or sheet's); 0 when the sheet holds nothing. The
    // used range of a sheet runs from A1 to there.
    long UsedLastRow() const;
    long UsedLastColumn() const;
    // The size of the sheet, which the workbook's file format sets.
    long MaxRows() const;
    long MaxColumns() const;
    // Merged areas as (row1, col1, row2, col2); never overlapping.
    const std::vector<xlMergedArea>& MergedAreas() const;

    // The window: the rows above lRow and the columns left of lCol stay in place while the rest
    // scrolls, as the application's FreezePanes does with cell (lRow, lCol) selected; (1, 1)
    // unfreezes. Raises 1004 for a cell outside the sheet.
    void FreezePanes(long lRow, long lCol);
    long FrozenRows() const;
    long FrozenColumns() const;
    // Where the summary row of each group of the row outline stands: xlSummaryBelow (the
    // default) or xlSummaryAbove; 1004 for any other value.
    void OutlineSummaryRow(long lPosition);
    long OutlineSummaryRowOf() const;
    long RowOutlineLevel(long lRow) const;  // 1 unless set
    // The AutoFilter's range as (row1, col1, row2, col2), or none.
    std::optional<std::array<long, 4>> AutoFilterArea() const;

    // Continuation, for a sheet that is filled past its last row (xlContinuation.cpp). From
    // ContinuePastLastRow on, rows up to kMaxContinuedRows may be written; the rows from each
    // KeepRowsTogetherFrom mark to the next are a block that goes to one sheet when it can.
    // ContinueOnNewSheets then moves every block that does not fit the sheet (its rows, its
    // hyperlinks beside lLinksToCome more that the sheet will take, or its local names) to new
    // worksheets placed after it, named after it with " (2)", " (3)", ...: each with the sheet's
    // column widths, sheet-wide formats, frozen panes and outline settings and, at its top,
    // copies of arrTitleRows; a block longer than a new sheet holds is cut where the sheet ends.
    // Names, hyperlinks, merged areas and outline levels go with their rows; an AutoFilter of
    // the sheet ends at its last row. Returns the new sheets, in order; a sheet that fits gets
    // none. A sheet with rows past its end cannot be saved before.
    static constexpr long kMaxContinuedRows = long{1} << 30;
    void ContinuePastLastRow();
    bool ContinuesPastLastRow() const;
    void KeepRowsTogetherFrom(long lRow);
    std::vector<xlWorksheet*> ContinueOnNewSheets(const std::vector<long>& arrTitleRows,
                                                  long lLinksToCome);
    // Before its first block is marked, where a sheet that continues will cut its blocks if they
    // come as told: one after the other from lFirstRow on, with their rows, hyperlinks and local
    // names, ContinueOnNewSheets taking the same arguments. For each block, where it will be;
    // none when no forecast can be made (a block longer than a new sheet holds, more blocks
    // than kMaxForecastSheets sheets hold). A sheet that
    // writes ahead then writes the rows it will keep while the rest are still being filled; the
    // continuation goes on with that writer only when the blocks began, and the sheet is cut,
    // where forecast.
    static constexpr long kMaxForecastSheets = 8;
    std::optional<std::vector<xlBlockPlace>> ForecastContinuation(
        long lFirstRow, const std::vector<xlBlockExtent>& arrBlocks,
        const std::vector<long>& arrTitleRows, long lLinksToCome);
    // From here on, a block whose filling is over (two blocks later) may be handed to the saver
    // ahead of the save and leave memory, whether the sheet keeps it or a continuation moves it
    // to a new sheet: an .xlsx workbook only, once it has its place (SaveAs). Its rows can then
    // neither be changed nor read, except by whole-sheet format changes (1004).
    void StreamFinishedBlocks();
    // From here on, the rows that go to the spool go to the file's writer as well, ahead of the
    // save, on a thread of its own, with the rows above them first: the first sheet of an .xlsx
    // workbook that streams its finished blocks. The rows are written as the sheet will show them
    // once filled: with the format change promised for all its cells (PromiseVerticalAlignment)
    // and the links promised for its cells (xlHyperlinks::Promise), but neither applied. The save
    // completes that file when the sheet ended as promised, with nothing else changed in the
    // rows it took and no rows moved to other sheets; else it drops the file and writes the
    // workbook from the model, as without this.
    void WriteAhead();
    bool WritesAhead() const;
    // Promises that VerticalAlignment(lAlign) is applied to all the sheet's cells (Cells()) once
    // the rows that go ahead are filled (see WriteAhead).
    void PromiseVerticalAlignment(long lAlign);
    // Every row, merged area and link of the sheet goes (its workbook closes); then, once the
    // writer has them, its defined names.
    void ReleaseContents();
    void ReleaseNames();

    struct Impl;
    Impl& Data() { return *pImpl_; }
    const Impl& Data() const { return *pImpl_; }

private:
    xlWorkbook* pBook_;
    std::string sName_;
    xlPageSetup oPageSetup_;
    xlNames oNames_;
    xlHyperlinks oHyperlinks_;
    std::unique_ptr<Impl> pImpl_;
};

class xlWorksheets {
public:
    explicit xlWorksheets(xlWorkbook* pBook) : pBook_(pBook) {}
    long Count() const { return static_cast<long>(arr_.size()); }
    xlWorksheet& Item(long lIndex);  // 1-based; 9 when out of range
    xlWorksheet& operator()(long lIndex) { return Item(lIndex); }
    const xlWorksheet& Item(long lIndex) const;
    xlWorksheet& Add();                           // a new sheet after the last one, named "SheetN"
    xlWorksheet& Add(const xlWorksheet& oAfter);  // a new sheet right after oAfter
    // The sheet of that name (in any case), or nullptr.
    xlWorksheet* Find(const std::string& sName);

private:
    xlWorkbook* pBook_;
    std::vector<std::unique_ptr<xlWorksheet>> arr_;
    long lNextNumber_ = 1;
};

class xlWorkbook {
public:
    xlWorkbook();  // with one worksheet, "Sheet1"
    ~xlWorkbook();
    xlWorkbook(const xlWorkbook&) = delete;
    xlWorkbook& operator=(const xlWorkbook&) = delete;
    xlWorksheets& Worksheets() { return oSheets_; }
    const xlWorksheets& Worksheets() const { return oSheets_; }
    // Fixes the path and writes the workbook as it is now (an empty workbook, at first).
    void SaveAs(const std::string& sFileName, long lAccessMode = 1);
    // Writes the whole workbook under the SaveAs path. Both write a temporary file in the same
    // folder and rename it over the target; a failure raises 1004 and leaves no file behind.
    void Save();
    void Close();
    // Saves the workbook as Save does, then closes it. Once the file's writer has taken the
    // sheets, their contents leave memory, before the file is completed: a closed workbook
    // holds nothing more.
    void Close(bool bSaveChanges);
    const std::string& FullName() const { return sFullName_; }
    bool IsClosed() const { return bClosed_; }
    // xlOpenXMLWorkbook (51), or xlExcel8 (56) once saved under a name ending in ".xls".
    long FileFormat() const { return lFileFormat_; }
    // The last save completed the file its writer began ahead (xlWorksheet::WriteAhead).
    bool LastSaveWroteAhead() const { return bWroteAhead_; }
    // Whether the closing save gives the memory of the sheets it let go of back to the system
    // before it completes the file (on by default): the close then makes its own records in
    // room the system has, not above the sheets' high-water mark.
    void ReturnFreedMemory(bool bReturn) { bReturnFreedMemory_ = bReturn; }

    // The formats of all cells of the workbook's sheets, each distinct one held once.
    const std::shared_ptr<xlStyleTable>& Styles() const { return pStyles_; }
    // The texts of all cells of the workbook's sheets: a row that goes to another sheet keeps
    // its texts where they are.
    const std::shared_ptr<detail::TextArena>& Texts() const { return pTexts_; }

    // Receives (rows written, rows of all sheets) while a save runs, every thousand rows.
    std::function<void(long, long)> OnSaveProgress;

private:
    std::shared_ptr<xlStyleTable> pStyles_;
    std::shared_ptr<detail::TextArena> pTexts_;
    xlWorksheets oSheets_;
    std::string sFullName_;
    bool bClosed_ = false;
    long lFileFormat_ = modConst::xlOpenXMLWorkbook;
    bool bWroteAhead_ = false;
    bool bReturnFreedMemory_ = true;
    friend class xlWorksheet;
    // The file the writer began ahead of the save (xlWorksheet::WriteAhead); last, so that it
    // stops before anything it reads goes.
    std::shared_ptr<detail::WriteAhead> pAhead_;

    // With bClosing the sheets' contents go once the writer has them (an .xlsx only).
    void SaveInFormat(const std::string& sPath, long lFormat, bool bClosing = false);
    void ReleaseSheets();
    void SetFileFormat(long lFormat);
};

class xlWorkbooks {
public:
    xlWorkbook& Add();
    long Count() const { return static_cast<long>(arr_.size()); }
    xlWorkbook& Item(long lIndex);

private:
    std::vector<std::unique_ptr<xlWorkbook>> arr_;
};

class xlWorksheetFunction {
public:
    double Max(const xlRange& r) const;  // 0 when the range holds no number
};

// The application object: what "Excel.Application" would create.
class xlApplication {
public:
    xlWorkbooks& Workbooks() { return oBooks_; }
    xlWorksheetFunction WorksheetFunction() const { return {}; }
    void Quit();

private:
    xlWorkbooks oBooks_;
};

// Writes a workbook to an .xlsx file through libxlsxwriter, rows in order (constant memory),
// one format object per distinct style. Raises 1004 when the file cannot be written.
// What a save that closes the workbook lets go of as the writer takes it, each when given:
struct xlSaveRelease {
    // Called for each sheet but the last once the writer holds all of it but its defined
    // names, on a thread of its own while the next sheet is written: it may let go of anything
    // of sheet i but those names (not of what the sheets share).
    std::function<void(long)> fnSheet;
    // Called once the writer holds everything but the defined names, on a thread of its own
    // while the names are handed over and the file is completed: it may let go of anything but
    // those names. The save returns after it.
    std::function<void()> fnContents;
    // Called on the saving thread once the writer holds the names, before the file is completed.
    std::function<void()> fnNames;
};
// What a release raises is the save's failure, raised once the writing it ran beside is over.
// With pAhead, the file that writer began is completed instead, when the sheet it took rows of
// ended as promised (the result is then true); else it is dropped first.
bool SaveWorkbookFile(const xlWorkbook& oBook, const std::string& sPath,
                      const xlSaveRelease& oRelease = {},
                      std::shared_ptr<detail::WriteAhead> pAhead = nullptr);

// Writes a workbook to an Excel 97-2003 (.xls) file: BIFF8 records in an OLE2 compound file
// (xlSaverXls.cpp). The workbook must fit the format's limits. Raises 1004 when the file cannot
// be written.
void SaveWorkbookFileXls(const xlWorkbook& oBook, const std::string& sPath);

// The file format a workbook saved under this name takes: xlExcel8 for a name ending in ".xls"
// (any case), else xlOpenXMLWorkbook.
long FileFormatOfName(const std::string& sFileName);

}  // namespace xl
