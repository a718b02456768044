// The storage behind the spreadsheet object model, shared by the model and the .xlsx saver.
//
// Cells are kept per row, in vectors sorted by column, 16 bytes each; texts live in an arena of
// the workbook, each distinct text once. Formats are interned in a table of the workbook and
// referred to by small ids; the result of applying a change to a format is remembered, so
// formatting a million cells costs a million table look-ups, not a million format copies.
//
// What a cell shows when it has no record of its own: the format of its row when the row was
// formatted as a whole, else that of its column, else the sheet's. Every whole-row, whole-column
// and whole-sheet change keeps this true by creating records only where a cell would otherwise
// show the wrong format (where a formatted row crosses a formatted column), as the application
// does.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "xl/xlObjectModel.h"

namespace xl {

// Interned formats and changes, with the memo of change results.
struct xlStyleTable {
    xlStyleTable();

    // A format not yet in the table raises 1004 when the table holds lMaxCount already.
    uint32_t Intern(const xlStyle& oStyle);
    const xlStyle& Get(uint32_t lId) const { return arrStyles[lId]; }
    size_t Count() const { return arrStyles.size(); }

    uint32_t InternChange(const xlStyleChange& oChange);
    // The format that results from applying change lChange to format lStyle.
    uint32_t Apply(uint32_t lStyle, uint32_t lChange);

    struct StyleHash {
        size_t operator()(const xlStyle& s) const noexcept;
    };
    struct ChangeKey {
        uint8_t eKind;
        long lValue;
        uint64_t dBits;
        std::string sValue;
        bool operator==(const ChangeKey&) const = default;
    };
    struct ChangeHash {
        size_t operator()(const ChangeKey& k) const noexcept;
    };

    size_t lMaxCount = std::numeric_limits<size_t>::max();
    std::vector<xlStyle> arrStyles;  // id 0: the default format
    std::unordered_map<xlStyle, uint32_t, StyleHash> mapStyles;
    std::vector<xlStyleChange> arrChanges;
    std::unordered_map<ChangeKey, uint32_t, ChangeHash> mapChanges;
    // The changes interned last, by a few bits of their kind and value (id plus one, 0: none): a
    // builder applies the same few changes to cell after cell, and finds them here without a
    // key made and hashed.
    std::array<uint32_t, 64> arrRecentChanges{};
    // The result of each change on each format, plus one (0: not yet known), by format and
    // change: formats and changes are few, and this is looked up for every cell formatted.
    std::vector<std::vector<uint32_t>> arrApplied;
};

namespace detail {

constexpr uint32_t kUnformatted = std::numeric_limits<uint32_t>::max();
constexpr uint16_t kNoHeight = std::numeric_limits<uint16_t>::max();
constexpr double kDefaultRowHeight = 15.0;
constexpr double kDefaultColumnWidth = 8.43;

// The texts of a workbook's cells: each distinct text is stored once, behind its length, in
// 1 MiB chunks, and every cell that shows it refers to that one copy (an export repeats its
// labels in every block). The sheets of a workbook share them, so a row moved to another sheet
// takes its texts along. Texts are never removed: a cell given another value refers to another
// text.
class TextArena {
public:
    uint64_t Add(std::string_view s);
    std::string_view Get(uint64_t lRef) const {
        const char* p = arrChunks_[lRef >> kShift].get() + (lRef & kMask);
        uint32_t n;
        std::memcpy(&n, p, sizeof n);
        return {p + sizeof n, n};
    }
    // The same text as a NUL-terminated string (a text holding a NUL ends there).
    const char* CStr(uint64_t lRef) const {
        return arrChunks_[lRef >> kShift].get() + (lRef & kMask) + sizeof(uint32_t);
    }
    // How many distinct texts are stored.
    size_t Count() const { return lCount_; }

private:
    static constexpr unsigned kShift = 20;
    static constexpr uint64_t kChunk = uint64_t{1} << kShift;
    static constexpr uint64_t kMask = kChunk - 1;
    uint64_t Store(std::string_view s);
    void Grow();
    std::vector<std::unique_ptr<char[]>> arrChunks_;
    uint64_t lUsed_ = kChunk;  // bytes used in the last chunk
    // The distinct texts: an open-addressed table, kept at most half full, whose slots hold a
    // text's reference plus one (0: free) in their low 44 bits and the top 20 bits of its hash
    // above, so that a look-up reads one slot and compares texts only when those agree.
    static constexpr uint64_t kRefMask = (uint64_t{1} << 44) - 1;
    static constexpr uint64_t kTagMask = ~kRefMask;
    static constexpr size_t kMaxChunks = size_t{1} << (44 - kShift);
    std::vector<uint64_t> arrSlots_;
    size_t lCount_ = 0;
    // The texts found again most recently, by the low bits of their hash: an export's labels and
    // its repeated values come back all the time, and are found here, close together in memory,
    // without a look into the table (whose slots lie far apart) or into the chunks.
    struct Recent {
        uint64_t lHash = 0;
        uint64_t lRef = 0;  // the text's reference plus one (0: none)
    };
    static constexpr size_t kRecent = 4096;
    std::vector<Recent> arrRecent_;
};

// A formula cell holds its formula and the value it shows as one text of the arena: the
// formula's length in decimal, ":", the formula, the value (see FormulaOf and FormulaValueOf).
enum : uint8_t { kEmpty = 0, kText = 1, kNumber = 2, kFormula = 3 };

// One cell record: column, kind of value, format id and the value (a number, or a text of the
// arena).
struct Cell {
    uint16_t nCol;
    uint8_t eType;
    uint8_t nSpare;
    uint32_t lStyle;
    uint64_t lPayload;

    double Number() const {
        double d;
        std::memcpy(&d, &lPayload, sizeof d);
        return d;
    }
    void SetNumber(double d) { std::memcpy(&lPayload, &d, sizeof d); }
};
static_assert(sizeof(Cell) == 16, "a cell record is 16 bytes");

// The cell's payload is a text of the arena.
inline bool HoldsText(const Cell& c) {
    return c.eType == kText || c.eType == kFormula;
}

// The two halves of a formula cell's text.
inline size_t FormulaLengthEnd(std::string_view sStored, size_t& lLength) {
    size_t i = 0;
    lLength = 0;
    while (i < sStored.size() && sStored[i] >= '0' && sStored[i] <= '9')
        lLength = lLength * 10 + static_cast<size_t>(sStored[i++] - '0');
    return i < sStored.size() ? i + 1 : i;  // past the ":"
}
inline std::string_view FormulaOf(std::string_view sStored) {
    size_t n;
    const size_t p = FormulaLengthEnd(sStored, n);
    return sStored.substr(p, n);
}
inline std::string_view FormulaValueOf(std::string_view sStored) {
    size_t n;
    const size_t p = FormulaLengthEnd(sStored, n);
    return p + n <= sStored.size() ? sStored.substr(p + n) : std::string_view();
}
// The stored text of a formula and its value, both storable already.
inline std::string FormulaText(const std::string& sFormula, const std::string& sValue) {
    return std::to_string(sFormula.size()) + ":" + sFormula + sValue;
}

// The defined names of a sheet by their text, ASCII letters in any case: positions in the
// sheet's list of names, whose texts the set reads. A key of its own for each name would be a
// second copy of every name, and an export names every block.
struct NameKey {
    const std::vector<xlNameEntry>* pNames = nullptr;
    using is_transparent = void;

    static unsigned char Up(char ch) {
        return static_cast<unsigned char>(ch >= 'a' && ch <= 'z' ? ch - 'a' + 'A' : ch);
    }
    static size_t Hash(std::string_view s) {
        uint64_t h = 0xcbf29ce484222325ULL;
        for (char ch : s)
            h = (h ^ Up(ch)) * 0x100000001b3ULL;
        return static_cast<size_t>(h);
    }
    static bool Same(std::string_view a, std::string_view b) {
        if (a.size() != b.size()) return false;
        for (size_t i = 0; i < a.size(); ++i) {
            if (Up(a[i]) != Up(b[i])) return false;
        }
        return true;
    }
    std::string_view Text(uint32_t i) const { return (*pNames)[i].sName; }
    size_t operator()(uint32_t i) const { return Hash(Text(i)); }
    size_t operator()(std::string_view s) const { return Hash(s); }
    bool operator()(uint32_t a, uint32_t b) const { return Same(Text(a), Text(b)); }
    bool operator()(uint32_t a, std::string_view b) const { return Same(Text(a), b); }
    bool operator()(std::string_view a, uint32_t b) const { return Same(a, Text(b)); }
};
using NameSet = std::unordered_set<uint32_t, NameKey, NameKey>;

struct Row {
    std::vector<Cell> arrCells;         // sorted by column
    uint32_t lStyle = kUnformatted;     // the row's own format, when formatted as a whole
    uint16_t nHeightTwips = kNoHeight;  // 1/20 point
    uint8_t nOutline = 0;               // outline level as the files hold it: 0 (none) to 7
    bool bLinked = false;               // a link was added to a cell of the row (see bLinksNoted)
};

// Records by row (index: row - 1) of a sheet whose rows may go to its spool. The records of
// spooled rows leave memory as one run (Drop): what stays is the rows before the run, kept
// together, and those after it, from which the run takes more from the front as blocks finish.
// A record of the run reads as an empty one and cannot be changed (1004).
[[noreturn]] void RaiseRowDropped();  // 1004

template <class T>
class RowRecords {
public:
    size_t size() const { return lSize_; }
    bool empty() const { return lSize_ == 0; }
    bool Dropped(size_t i) const { return bRun_ && i >= arrHead_.size() && i < lRunEnd_; }

    const T& operator[](size_t i) const {
        if (i < arrHead_.size()) return arrHead_[i];
        if (bRun_ && i < lRunEnd_) return Empty();
        return arrTail_[i - lRunEnd_];
    }
    T& operator[](size_t i) {
        if (i < arrHead_.size()) return arrHead_[i];
        if (bRun_ && i < lRunEnd_) RaiseDropped();
        return arrTail_[i - lRunEnd_];
    }

    // Growing adds empty records after the last; shrinking into the run cuts it there.
    void resize(size_t n) {
        if (!bRun_) {
            arrHead_.resize(n);
        } else if (n >= lRunEnd_) {
            arrTail_.resize(n - lRunEnd_);
        } else if (n >= arrHead_.size()) {
            arrTail_.clear();
            arrTail_.shrink_to_fit();
            lRunEnd_ = n;
        } else {
            arrHead_.resize(n);
            arrTail_.clear();
            arrTail_.shrink_to_fit();
            bRun_ = false;
            lRunEnd_ = 0;
        }
        lSize_ = n;
    }
    void reserve(size_t n) {
        if (!bRun_) arrHead_.reserve(n);
    }
    void shrink_to_fit() {
        arrHead_.shrink_to_fit();
        arrTail_.shrink_to_fit();
    }
    void clear() {
        arrHead_.clear();
        arrTail_.clear();
        bRun_ = false;
        lRunEnd_ = 0;
        lSize_ = 0;
    }

    // The records of indices lFrom to lTo - 1 leave memory, as far as they exist. The first
    // call starts the run at lFrom; each later one extends it to lTo.
    void Drop(size_t lFrom, size_t lTo) {
        lTo = std::min(lTo, lSize_);
        if (!bRun_) {
            if (lFrom >= lTo) return;
            arrTail_.assign(std::make_move_iterator(arrHead_.begin() + static_cast<long>(lFrom)),
                            std::make_move_iterator(arrHead_.end()));
            arrHead_.resize(lFrom);
            arrHead_.shrink_to_fit();
            bRun_ = true;
            lRunEnd_ = lFrom;
        }
        while (lRunEnd_ < lTo) {
            arrTail_.pop_front();
            ++lRunEnd_;
        }
    }
    // Grows to n records of which lFrom to lTo - 1 are dropped from the start: the same as
    // resize(n) and Drop(lFrom, lTo), without making the records that go at once. The records
    // from lFrom on must not exist yet.
    void GrowWithRun(size_t n, size_t lFrom, size_t lTo) {
        lTo = std::min(lTo, n);
        if (bRun_ || lSize_ > lFrom || lFrom >= lTo) {
            resize(n);
            Drop(lFrom, lTo);
            return;
        }
        arrHead_.resize(lFrom);
        arrHead_.shrink_to_fit();
        arrTail_.resize(n - lTo);
        bRun_ = true;
        lRunEnd_ = lTo;
        lSize_ = n;
    }
    // The records of the run come back, empty.
    void Restore() {
        if (!bRun_) return;
        arrHead_.reserve(lSize_);
        arrHead_.resize(lRunEnd_);
        for (T& o : arrTail_)
            arrHead_.push_back(std::move(o));
        arrTail_.clear();
        bRun_ = false;
        lRunEnd_ = 0;
    }

    // Each record in memory, in order, with its index.
    template <class F>
    void ForEachKept(F&& f) {
        for (size_t i = 0; i < arrHead_.size(); ++i)
            f(i, arrHead_[i]);
        for (size_t i = 0; i < arrTail_.size(); ++i)
            f(lRunEnd_ + i, arrTail_[i]);
    }
    template <class F>
    void ForEachKept(F&& f) const {
        for (size_t i = 0; i < arrHead_.size(); ++i)
            f(i, arrHead_[i]);
        for (size_t i = 0; i < arrTail_.size(); ++i)
            f(lRunEnd_ + i, arrTail_[i]);
    }

private:
    static const T& Empty() {
        static const T kEmpty{};
        return kEmpty;
    }
    [[noreturn]] static void RaiseDropped() { RaiseRowDropped(); }

    std::vector<T> arrHead_;  // before the run; every record while there is none
    std::deque<T> arrTail_;   // after the run
    bool bRun_ = false;
    size_t lRunEnd_ = 0;  // index of the first record after the run
    size_t lSize_ = 0;
};

// Rows of a sheet handed over before the save (see xlWorksheet::StreamFinishedBlocks): written in
// order to an unlinked temporary file, and read back in order by the saver, from the start of the
// run of rows each sheet took. What a row holds is written as the model holds it (cell records
// with their text references); each sheet keeps the whole-sheet format changes made after its
// rows went, to be applied as the rows come back.
class RowSpool {
public:
    explicit RowSpool(std::FILE* pFile) : pFile_(pFile) {}
    ~RowSpool();
    RowSpool(const RowSpool&) = delete;
    RowSpool& operator=(const RowSpool&) = delete;

    // Appends row lRow, the row after the last one (the first may be any), with the last column
    // that shows something in it (0: none); false when the file refused it. What was appended is
    // on the disk only once Flush said so.
    bool Write(long lRow, const Row& o, long lShownCol);
    bool Flush();
    // From the first row again; then each row in order, false after the last. With
    // bDropUnwritten what the disk did not take yet is dropped instead of written (after a
    // failed write, to read back what it holds).
    bool Rewind(bool bDropUnwritten = false);
    // From row lRow on (one of the spooled rows): the next Read gives it.
    bool Seek(long lRow);
    bool Read(long& lRow, Row& o);
    long Bytes() const { return lEnd_; }
    // Of the rows a to b: the last that shows something, and the last column shown (0: none).
    long LastShownRowIn(long a, long b) const;
    long LastShownColumnIn(long a, long b) const;

    long lFirst = 0;  // the rows spooled, lFirst to lLast (0: none yet)
    long lLast = 0;
    long lConfirmed = 0;  // rows up to here are on the disk and left memory
    long lCells = 0;      // cell records spooled

private:
    static constexpr long kMarkEvery = 256;
    std::FILE* pFile_;
    long lEnd_ = 0;  // bytes written whole
    bool bRead_ = false;
    long lReadAt_ = 0;                // where the next read starts
    std::vector<long> arrMarks_;      // where rows lFirst, lFirst + kMarkEvery, ... start
    std::vector<uint16_t> arrShown_;  // by row from lFirst: the last column shown
};

inline uint64_t CellKey(long lRow, long lCol) {
    return (static_cast<uint64_t>(lRow) << 16) | static_cast<uint64_t>(lCol);
}

// The target that the saver hands to the writer for a hyperlink: "internal:NAME" for a place in
// the workbook, "external:PATH" for a file, the address itself when it has a URL scheme, and
// "file://PATH" for an absolute POSIX path.
std::string LinkTarget(std::string_view sAddress, std::string_view sSubAddress);
// An address that begins with a URL scheme ("https:", "mailto:"; "C:" is a drive).
bool HasUrlScheme(std::string_view s);
// A link's text in the store (made storable first), or xlHyperlinkEntry::kNoText for "".
uint64_t LinkText(TextArena& oTexts, std::string_view s);
// The length the writer checks against its limit (after escaping and the file:/// prefix).
size_t LinkCheckedLength(const std::string& sTarget);
constexpr size_t kMaxLinkLength = 2079;

// Length in UTF-16 code units, as the application counts characters.
size_t Utf16Length(std::string_view s);
// Utf16Length(s) <= lLimit, without counting a text short enough.
bool Utf16LengthAtMost(std::string_view s, size_t lLimit);

// The parts of a formula =HYPERLINK("location"[, "text"]): false for any other formula, or for
// a text longer than the 255 characters a formula's text may hold. The text shown is the
// location when no text is given.
bool ParseHyperlinkFormula(std::string_view sFormula, std::string& sLocation, std::string& sText);

// 'Sheet name' quoted when a formula needs the quotes.
std::string QuoteSheetName(const std::string& sName);

}  // namespace detail

struct xlWorksheet::Impl {
    Impl(std::shared_ptr<xlStyleTable> p, std::shared_ptr<detail::TextArena> pT);

    std::shared_ptr<xlStyleTable> pStyles;
    std::shared_ptr<detail::TextArena> pTexts;
    detail::TextArena& oText;                 // *pTexts
    detail::RowRecords<detail::Row> arrRows;  // index: row - 1
    uint32_t lSheetStyle = 0;
    std::vector<uint32_t> arrColStyle;  // index: column; kUnformatted unless formatted
    std::vector<float> arrColWidth;     // index: column; negative unless set
    std::vector<uint16_t> arrFormattedCols;
    double dDefaultRowHeight = detail::kDefaultRowHeight;
    long lMaxRows = modConst::xlMaxRows;  // the sheet's size, which the file format sets
    long lMaxCols = modConst::xlMaxColumns;

    // A sheet filled past its last row (see xlWorksheet::ContinuePastLastRow), and the first
    // rows of its blocks, in the order marked.
    bool bContinues = false;
    std::vector<long> arrBlockStarts;
    // The last row it keeps by ForecastContinuation (0 without one): the rows that may go to the
    // file's writer while the blocks are filled; and the first rows of the blocks forecast.
    long lForecastKeep = 0;
    std::vector<long> arrForecastStarts;
    // The rows each new sheet takes by the forecast, and its name; the rows they repeat at the top.
    struct ForecastPart {
        long lFirst;
        long lLast;
        std::string sName;
    };
    std::vector<ForecastPart> arrForecastParts;
    std::vector<long> arrForecastTitles;
    // The last row that may be written: the sheet's, or far past it while it continues.
    long RowLimit() const { return bContinues ? xlWorksheet::kMaxContinuedRows : lMaxRows; }

    // Rows handed to the saver ahead of the save. The sheet that filled the spool owns it; a
    // continuation shares it with the new sheets that take some of its rows: each sheet sees
    // its own run of them (SpoolFirst to SpoolLast in its own rows; the spool's row is the
    // sheet's plus lSpoolShift) and keeps the whole-sheet changes made to them since they went.
    std::shared_ptr<detail::RowSpool> pSpool;
    bool bSpoolOwner = false;
    long lSpoolCut = std::numeric_limits<long>::max();  // the owner's last row after a continuation
    long lSpoolFrom = 0;                                // of a sheet that took spooled rows
    long lSpoolTo = 0;
    long lSpoolShift = 0;
    std::vector<uint32_t> arrSpoolChanges;  // whole-sheet changes since the rows went, in order
    bool bStream = false;
    long lSpoolFlushedBytes = 0;
    static constexpr long kSpoolFlushBytes = 1L << 20;
    // The cell lists of rows that left memory, emptied, for the rows still to come: a sheet that
    // streams would otherwise allocate a list for every row it makes and free one for every row
    // that goes. They hold no more than the rows that went held, and that room would stay with
    // the process as free memory all the same.
    std::vector<std::vector<detail::Cell>> arrSpareCells;
    static constexpr size_t kMaxSpareCells = 1 << 14;
    static constexpr size_t kMaxSpareRoom = 32;  // records; a wider row's list is freed
    // Room for at least n records in an empty list v: a spare list when there is one.
    void RoomForCells(std::vector<detail::Cell>& v, size_t n);
    // Keeps the room of list v, which a row no longer needs, for a row to come (emptied), while
    // it is small and the spare lists are few; else it stays with v.
    void KeepSpareCells(std::vector<detail::Cell>& v);
    std::filesystem::path oSpoolFolder;
    long SpoolFirst() const {
        if (!pSpool) return 0;
        return bSpoolOwner ? pSpool->lFirst : lSpoolFrom;
    }
    long SpoolLast() const {
        if (!pSpool) return 0;
        return bSpoolOwner ? std::min(pSpool->lLast, lSpoolCut) : lSpoolTo;
    }
    bool Spooled(long lRow) const {
        const long a = SpoolFirst();
        return a != 0 && lRow >= a && lRow <= SpoolLast();
    }
    // Raises 1004 when any of the rows r1 to r2 went to the spool: nothing changes or reads them.
    void CheckNotSpooled(long r1, long r2) const;
    // The same for any row of the sheet.
    void CheckNoneSpooled() const;
    // A row read back from the spool takes the whole-sheet changes made since it went.
    void ApplySpoolChanges(detail::Row& o) const;
    // Of the sheet's spooled rows: the last that shows something and the last column shown.
    long SpooledLastShownRow() const;
    long SpooledLastShownColumn() const;
    // At a block's mark: the blocks whose filling is over go to the spool where the sheet keeps
    // them for sure (SpoolFinishedBlocks), and those that stay give back their spare room.
    void SettleFinishedBlocks();
    void SpoolFinishedBlocks();
    long lTrimmed = 0;
    // Makes sure every spooled row is on the disk (before a save reads them back); should the
    // disk refuse, every row comes back into memory and the spool goes.
    void FlushSpool();
    void UnspoolAll();

    // The file's writer that takes the rows ahead of the save (xlWorksheet::WriteAhead), and
    // what is promised to the rows it takes: format changes of all cells, in order, and links
    // by cell, their texts in the store.
    detail::WriteAhead* pAhead = nullptr;
    std::vector<uint32_t> arrPromisedChanges;
    struct PromisedLink {
        uint64_t lKey;  // detail::CellKey
        uint64_t lAddress;
        uint64_t lSubAddress;
        uint64_t lFormula;  // a HYPERLINK formula in its place (FormulaText), else kNoText
        bool IsFormula() const;
    };
    std::vector<PromisedLink> arrPromisedLinks;  // those for rows the writer has not taken
    size_t lPromisedLinks = 0;                   // all promised links
    size_t lPromisedFormulas = 0;                // all promised formulas
    // The format lStyle takes from the promised changes.
    uint32_t Promised(uint32_t lStyle);
    // Row lRow as it will show once the promises are kept: its promised links give their cells
    // the look of a link, its promised formulas replace their cells' texts with that look (from
    // arrPromisedLinks[lNextLink] on, which it moves past the row's), then the promised changes
    // apply to it all. False when a promised cell has no text of its own: adding the link will
    // write one.
    bool ApplyPromises(detail::Row& o, long lRow, size_t& lNextLink);
    // The writer stops for good: the rows it took are no longer what the sheet will show.
    void StopWriteAhead();

    // The window and the outline: rows and columns frozen at the top and left, the AutoFilter
    // (row1, col1, row2, col2; row1 0 when there is none), where outline summary rows stand.
    long lFrozenRows = 0;
    long lFrozenCols = 0;
    std::array<long, 4> arrAutoFilter{};
    bool bSummaryBelow = true;

    // Merged areas (row1, col1, row2, col2), and for each row the areas that cover it.
    std::vector<xlMergedArea> arrMerged;
    detail::RowRecords<std::vector<uint32_t>> arrMergedRows;  // index: row - 1

    // Hyperlinks by cell, and defined names by their text in any case: positions in the lists.
    std::unordered_map<uint64_t, uint32_t> mapLinks;
    // Each row that holds a link says so (Row::bLinked), so that a row without one is written
    // without looking its cells up in mapLinks. Links that come to the sheet otherwise than one
    // by one (a copy, a continuation) clear it: every row is looked up then.
    bool bLinksNoted = true;
    detail::NameSet mapNames;

    // Cells.
    detail::Row& EnsureRow(long lRow);
    const detail::Row* FindRow(long lRow) const {
        if (Spooled(lRow)) CheckNotSpooled(lRow, lRow);
        return lRow >= 1 && static_cast<size_t>(lRow) <= arrRows.size() ? &arrRows[lRow - 1]
                                                                        : nullptr;
    }
    const detail::Cell* FindCell(long lRow, long lCol) const;
    detail::Cell* FindCell(long lRow, long lCol);
    detail::Cell& GetOrCreate(long lRow, long lCol);
    // What a cell without a record of its own shows.
    uint32_t Background(long lRow, long lCol) const;
    uint32_t Background(const detail::Row& oRow, long lCol) const {
        if (oRow.lStyle != detail::kUnformatted) return oRow.lStyle;
        uint32_t s = arrColStyle[lCol];
        return s != detail::kUnformatted ? s : lSheetStyle;
    }
    uint32_t EffectiveStyleId(long lRow, long lCol) const;

    void SetValue(detail::Cell& c, const xlVariant& v);
    xlVariant ValueOf(const detail::Cell& c) const;

    // Formats.
    void ApplyToCells(long r1, long c1, long r2, long c2, uint32_t lChange);
    void ApplyToRows(long r1, long r2, uint32_t lChange);
    void ApplyToColumns(long c1, long c2, uint32_t lChange);
    void ApplyToSheet(uint32_t lChange);

    // Merged areas.
    void AddMerged(const xlMergedArea& a);
    void RemoveMerged(uint32_t lIndex);
    std::vector<uint32_t> MergedIntersecting(long r1, long c1, long r2, long c2) const;
};

namespace detail {
// The last column of a row holding a cell that shows something, 0 when none does: a value, or
// a format other than fnBackground(column), what the cell would show without its record.
template <class BackgroundFn>
long LastShownColumn(const Row& o, BackgroundFn&& fnBackground) {
    for (auto it = o.arrCells.rbegin(); it != o.arrCells.rend(); ++it) {
        if (it->eType != kEmpty || it->lStyle != fnBackground(it->nCol)) return it->nCol;
    }
    return 0;
}
long LastShownColumn(const xlWorksheet::Impl& d, const Row& o);

// The writer behind xlWorksheet::WriteAhead (xlSaverXlsx.cpp). Begins the file of the sheet's
// workbook with the sheet (null when it cannot be begun: the save then writes it as ever);
// takes the sheet's rows up to lTo, final now, on the sheet's thread (those from lFrom go to the
// spool, those before stay in memory); stops for good.
std::shared_ptr<WriteAhead> BeginWriteAhead(const xlWorkbook& oBook, xlWorksheet& oSheet);
void WriteAheadRows(WriteAhead& o, long lFrom, long lTo);
void StopWriteAhead(WriteAhead& o);
}  // namespace detail

// Writes, one line each, the calls that saving the workbook makes to the file writer, in the
// same order: formats (numbered by first use), rows, merged areas, cells, columns, page set-up
// and names. Two workbooks with the same dump are saved as the same file.
void DumpWorkbook(const xlWorkbook& oBook, std::FILE* pOut);

}  // namespace xl
