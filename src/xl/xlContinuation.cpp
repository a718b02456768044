// A sheet that continues on new sheets. The sheet is filled as one long sheet, past the last row
// of its file format if need be; the filler marks where each block of rows begins. Moving the
// rows then works block by block: a block stays whole on one sheet unless it is longer than a
// sheet by itself, and a sheet takes no more hyperlinks and local names than the applications
// read.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

namespace xl {

using detail::Cell;
using RowRec = detail::Row;
using namespace modConst;

namespace {

[[noreturn]] void Fail() {
    RaiseError(errAppDefined);
}

// The rows [lFirst, lLast] of the long sheet that one new sheet takes.
struct Part {
    long lFirst;
    long lLast;
};

// Where the long sheet is cut: the last row the sheet keeps, and the parts of the new sheets.
struct Plan {
    long lKeep = 0;
    std::vector<Part> arrParts;
};

// Hyperlinks and local names of the rows up to each row of the long sheet: those of the rows a to
// b are the difference of two entries.
struct Running {
    // One count a row: a sheet's links and names fit 32 bits many times over.
    std::vector<uint32_t> arrLinks;
    std::vector<uint32_t> arrNames;

    long LinksIn(long a, long b) const { return Diff(arrLinks, a, b); }
    long NamesIn(long a, long b) const { return Diff(arrNames, a, b); }

    // Made for rows 1 to lLast: each link and name counted on its row, then summed down.
    explicit Running(long lLast)
        : arrLinks(static_cast<size_t>(lLast) + 1, 0),
          arrNames(static_cast<size_t>(lLast) + 1, 0) {}
    void AddLinks(long lRow, long n) { Add(arrLinks, lRow, n); }
    void AddNames(long lRow, long n) { Add(arrNames, lRow, n); }
    void Sum() {
        for (size_t i = 1; i < arrLinks.size(); ++i) {
            arrLinks[i] += arrLinks[i - 1];
            arrNames[i] += arrNames[i - 1];
        }
    }

private:
    static void Add(std::vector<uint32_t>& arr, long lRow, long n) {
        if (lRow >= 1 && static_cast<size_t>(lRow) < arr.size()) {
            arr[static_cast<size_t>(lRow)] += static_cast<uint32_t>(n);
        }
    }
    static long Diff(const std::vector<uint32_t>& arr, long a, long b) {
        return static_cast<long>(arr[static_cast<size_t>(b)]) -
               static_cast<long>(arr[static_cast<size_t>(a - 1)]);
    }
};

// The long sheet's rows 1 to lLast, its blocks starting at arrStarts (in order), with the
// running counts of their links and names, cut into the sheet and new ones.
Plan PlanParts(const xlWorksheet::Impl& d, long lLast, const std::vector<long>& arrStarts,
               const Running& oRunning, const std::vector<long>& arrTitleRows, long lLinksToCome) {
    const long lTitleRows = static_cast<long>(arrTitleRows.size());
    const long lRowCap = d.lMaxRows;
    const long lLinkCap = xlMaxHyperlinks;
    const long lNameCap = xlMaxLocalNames;

    Plan plan;
    // The rows before the first block stay on the sheet, and must fit it; those past its end
    // may only be empty or title rows, which every new sheet repeats: they are left out.
    long lHead = arrStarts.empty() ? lLast : arrStarts.front() - 1;
    if (lHead > lRowCap) {
        if (arrStarts.empty()) Fail();
        for (long r = lRowCap + 1; r <= lHead; ++r) {
            const bool bTitle =
                std::find(arrTitleRows.begin(), arrTitleRows.end(), r) != arrTitleRows.end();
            const RowRec* p = d.FindRow(r);
            if (!bTitle && p && !p->arrCells.empty()) Fail();
        }
        lHead = lRowCap;
    }
    plan.lKeep = lHead;

    // The sheet being filled: its rows, links and names so far, and whether it is a new one.
    long lRows = lHead;
    long lLinks = oRunning.LinksIn(1, lHead) + lLinksToCome;
    long lNames = oRunning.NamesIn(1, lHead);
    // A sheet left full by its head takes no block.
    bool bFull = lHead >= lRowCap;
    bool bNew = false;
    long lFirst = 1;
    auto fnOpen = [&](long lFrom) {
        if (bNew) plan.arrParts.push_back({lFirst, lFrom - 1});
        bNew = true;
        bFull = false;
        lFirst = lFrom;
        lRows = lTitleRows;
        lLinks = 0;
        lNames = 0;
    };
    for (size_t j = 0; j < arrStarts.size(); ++j) {
        long a = arrStarts[j];
        const long b = j + 1 < arrStarts.size() ? arrStarts[j + 1] - 1 : lLast;
        while (a <= b) {
            const long n = b - a + 1;
            const long k = oRunning.LinksIn(a, b);
            const long m = oRunning.NamesIn(a, b);
            if (!bFull && lRows + n <= lRowCap && lLinks + k <= lLinkCap &&
                lNames + m <= lNameCap) {
                lRows += n;
                lLinks += k;
                lNames += m;
                if (!bNew) plan.lKeep = b;
                a = b + 1;
            } else if (bNew && lRows == lTitleRows) {
                // A block longer than a sheet by itself: cut where the sheet is full.
                long e = a;
                while (e < b && lRows + (e + 1 - a + 1) <= lRowCap &&
                       lLinks + oRunning.LinksIn(a, e + 1) <= lLinkCap &&
                       lNames + oRunning.NamesIn(a, e + 1) <= lNameCap) {
                    ++e;
                }
                lRows += e - a + 1;
                lLinks += oRunning.LinksIn(a, e);
                lNames += oRunning.NamesIn(a, e);
                a = e + 1;
                if (a <= b) fnOpen(a);
            } else {
                fnOpen(a);
            }
        }
    }
    if (bNew) plan.arrParts.push_back({lFirst, lLast});
    return plan;
}

// "Name (n)", the name shortened so that the whole holds 31 characters at most.
std::string ContinuationName(const std::string& sBase, long n) {
    const std::string sSuffix = " (" + std::to_string(n) + ")";
    std::string s = sBase;
    while (!s.empty() && detail::Utf16Length(s) + sSuffix.size() > 31) {
        // Drop the last character, with all of its UTF-8 bytes.
        size_t i = s.size() - 1;
        while (i > 0 && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80)
            --i;
        s.erase(i);
    }
    while (!s.empty() && s.back() == '\'')
        s.pop_back();
    return s + sSuffix;
}

}  // namespace

std::optional<std::vector<xlBlockPlace>> xlWorksheet::ForecastContinuation(
    long lFirstRow, const std::vector<xlBlockExtent>& arrBlocks,
    const std::vector<long>& arrTitleRows, long lLinksToCome) {
    Impl& d = *pImpl_;
    d.lForecastKeep = 0;
    d.arrForecastStarts.clear();
    d.arrForecastParts.clear();
    d.arrForecastTitles.clear();
    const long lTitles = static_cast<long>(arrTitleRows.size());
    // (Rows before the blocks past the sheet's end would be left out: not forecast.)
    if (!d.bContinues || !d.arrBlockStarts.empty() || !pBook_ || lFirstRow < 1 ||
        lFirstRow - 1 > d.lMaxRows || lTitles >= d.lMaxRows || lLinksToCome < 0) {
        return std::nullopt;
    }
    // The blocks one after the other. One longer than a new sheet holds is cut where its own
    // links and names fall, which are not forecast. Nor are more rows than kMaxForecastSheets
    // sheets hold: the plan counts links and names row by row.
    const long lMaxLast = d.lMaxRows * kMaxForecastSheets;
    std::vector<long> arrStarts;
    arrStarts.reserve(arrBlocks.size());
    long lLast = lFirstRow - 1;
    for (const xlBlockExtent& b : arrBlocks) {
        if (b.lRows < 1 || b.lRows > d.lMaxRows - lTitles || b.lLinks < 0 || b.lNames < 0 ||
            b.lRows > lMaxLast - lLast) {
            return std::nullopt;
        }
        arrStarts.push_back(lLast + 1);
        lLast += b.lRows;
    }
    Running oRunning(lLast);
    for (size_t i = 0; i < arrBlocks.size(); ++i) {
        oRunning.AddLinks(arrStarts[i], arrBlocks[i].lLinks);
        oRunning.AddNames(arrStarts[i], arrBlocks[i].lNames);
    }
    oRunning.Sum();
    Plan plan;
    try {
        plan = PlanParts(d, lLast, arrStarts, oRunning, arrTitleRows, lLinksToCome);
    } catch (const clsRunError&) {
        return std::nullopt;  // the continuation will refuse it
    }

    // The new sheets' names, as the continuation gives them.
    std::vector<std::string> arrNames;
    long n = 2;
    for (size_t p = 0; p < plan.arrParts.size(); ++p) {
        auto fnTaken = [&](const std::string& s) {
            return pBook_->Worksheets().Find(s) ||
                   std::find(arrNames.begin(), arrNames.end(), s) != arrNames.end();
        };
        while (fnTaken(ContinuationName(sName_, n)))
            ++n;
        arrNames.push_back(ContinuationName(sName_, n++));
    }
    std::vector<xlBlockPlace> arrPlaces(arrBlocks.size());
    for (size_t i = 0; i < arrStarts.size(); ++i) {
        const long r = arrStarts[i];
        if (r <= plan.lKeep) {
            arrPlaces[i].sCell = Cells(r, 1).AddressExternal();
            continue;
        }
        auto it = std::upper_bound(plan.arrParts.begin(), plan.arrParts.end(), r,
                                   [](long x, const Part& o) { return x < o.lFirst; });
        if (it == plan.arrParts.begin()) return std::nullopt;
        const size_t p = static_cast<size_t>(it - plan.arrParts.begin()) - 1;
        const long lRowIn = lTitles + (r - plan.arrParts[p].lFirst) + 1;
        arrPlaces[i].bStays = false;
        arrPlaces[i].sCell = detail::QuoteSheetName(arrNames[p]) + "!" + Cells(lRowIn, 1).Address();
    }
    d.lForecastKeep = plan.lKeep;
    d.arrForecastStarts = std::move(arrStarts);
    for (size_t p = 0; p < plan.arrParts.size(); ++p) {
        d.arrForecastParts.push_back(
            {plan.arrParts[p].lFirst, plan.arrParts[p].lLast, std::move(arrNames[p])});
    }
    d.arrForecastTitles = arrTitleRows;
    return arrPlaces;
}

void xlWorksheet::ContinuePastLastRow() {
    pImpl_->bContinues = true;
}

bool xlWorksheet::ContinuesPastLastRow() const {
    return pImpl_->bContinues;
}

void xlWorksheet::KeepRowsTogetherFrom(long lRow) {
    if (lRow < 1 || lRow > pImpl_->RowLimit()) Fail();
    if (pImpl_->arrBlockStarts.empty() || pImpl_->arrBlockStarts.back() != lRow) {
        pImpl_->arrBlockStarts.push_back(lRow);
        pImpl_->SettleFinishedBlocks();
    }
}

std::vector<xlWorksheet*> xlWorksheet::ContinueOnNewSheets(const std::vector<long>& arrTitleRows,
                                                           long lLinksToCome) {
    Impl& d = *pImpl_;
    const long lTitles = static_cast<long>(arrTitleRows.size());
    for (long t : arrTitleRows) {
        if (t < 1 || t > d.RowLimit()) Fail();
    }
    if (lTitles >= d.lMaxRows || lLinksToCome < 0) Fail();
    // Spooled rows not yet on the disk go there first (or, should the disk refuse them, every
    // spooled row comes back into memory): the spool then holds each row it took.
    d.FlushSpool();
    // The plan needs the running counts of links and names down the rows, nothing after it.
    const long lLast = static_cast<long>(d.arrRows.size());
    std::vector<long> arrStarts;
    for (long r : d.arrBlockStarts) {
        if (r <= lLast) arrStarts.push_back(r);
    }
    std::sort(arrStarts.begin(), arrStarts.end());
    arrStarts.erase(std::unique(arrStarts.begin(), arrStarts.end()), arrStarts.end());
    const Plan plan = [&] {
        Running oRunning(lLast);
        for (const xlHyperlinkEntry& e : oHyperlinks_.arr_)
            oRunning.AddLinks(e.lRow, 1);
        // A name goes with its first row.
        for (const xlNameEntry& e : oNames_.arr_)
            oRunning.AddNames(e.lRow1, 1);
        oRunning.Sum();
        return PlanParts(d, lLast, arrStarts, oRunning, arrTitleRows, lLinksToCome);
    }();
    // The rows in the spool, which stay there wherever they go.
    const long lSpoolFirst = d.SpoolFirst();
    const long lSpoolLast = d.SpoolLast();
    d.bContinues = false;
    d.bStream = false;
    d.arrBlockStarts.clear();
    std::vector<xlWorksheet*> arrNew;
    // After a forecast (ForecastContinuation), the file's writer took no row past the cut it
    // told, and the links it took lead where the blocks were to go: it goes on only when the
    // blocks began where forecast, and the sheet is cut there if it is cut. (The last block
    // may end before its forecast end: its empty rows at the end hold nothing.)
    const bool bForecast = d.lForecastKeep != 0;
    const bool bAsForecast = [&] {
        if (!bForecast || arrStarts != d.arrForecastStarts || arrTitleRows != d.arrForecastTitles) {
            return false;
        }
        if (plan.arrParts.empty()) return true;
        if (plan.lKeep != d.lForecastKeep || plan.arrParts.size() != d.arrForecastParts.size()) {
            return false;
        }
        for (size_t p = 0; p < plan.arrParts.size(); ++p) {
            const Part& a = plan.arrParts[p];
            const Impl::ForecastPart& b = d.arrForecastParts[p];
            const bool bLast = p + 1 == plan.arrParts.size();
            if (a.lFirst != b.lFirst || (bLast ? a.lLast > b.lLast : a.lLast != b.lLast)) {
                return false;
            }
        }
        return true;
    }();
    if (bForecast && !bAsForecast) d.StopWriteAhead();
    d.lForecastKeep = 0;
    std::vector<long>().swap(d.arrForecastStarts);
    std::vector<Impl::ForecastPart>().swap(d.arrForecastParts);
    d.arrForecastTitles.clear();
    if (plan.arrParts.empty()) return arrNew;
    if (!pBook_) Fail();
    if (!bAsForecast) d.StopWriteAhead();

    // The part that a row of the long sheet goes to (0: this sheet; kLeftOut: a title row past
    // the sheet's end, which the new sheets repeat) and its row there.
    constexpr size_t kLeftOut = static_cast<size_t>(-1);
    auto fnPartOf = [&](long r) -> size_t {
        if (r <= plan.lKeep) return 0;
        if (r < plan.arrParts.front().lFirst) return kLeftOut;
        auto it = std::upper_bound(plan.arrParts.begin(), plan.arrParts.end(), r,
                                   [](long x, const Part& p) { return x < p.lFirst; });
        return static_cast<size_t>(it - plan.arrParts.begin());
    };
    auto fnRowIn = [&](size_t p, long r) {
        return p == 0 ? r : lTitles + (r - plan.arrParts[p - 1].lFirst) + 1;
    };

    const xlWorksheet* pAfter = this;
    long n = 2;
    for (const Part& part : plan.arrParts) {
        xlWorksheet& ws = pBook_->Worksheets().Add(*pAfter);
        while (pBook_->Worksheets().Find(ContinuationName(sName_, n)))
            ++n;
        ws.Name(ContinuationName(sName_, n++));
        Impl& t = ws.Data();
        t.lSheetStyle = d.lSheetStyle;
        t.arrColStyle = d.arrColStyle;
        t.arrColWidth = d.arrColWidth;
        t.arrFormattedCols = d.arrFormattedCols;
        t.dDefaultRowHeight = d.dDefaultRowHeight;
        t.lFrozenRows = d.lFrozenRows;
        t.lFrozenCols = d.lFrozenCols;
        t.bSummaryBelow = d.bSummaryBelow;
        // The title rows at the top, with the areas merged within each of them.
        for (long i = 0; i < lTitles; ++i) {
            const long r = arrTitleRows[static_cast<size_t>(i)];
            if (const RowRec* p = d.FindRow(r)) {
                RowRec& o = t.EnsureRow(i + 1);
                o.lStyle = p->lStyle;
                o.nHeightTwips = p->nHeightTwips;
                o.arrCells = p->arrCells;  // the sheets of a workbook share their texts
            }
            for (const auto& a : d.arrMerged) {
                if (a[0] == r && a[2] == r) t.AddMerged(MergedArea(i + 1, a[1], i + 1, a[3]));
            }
        }
        // The part's rows. Those in the spool stay there: the new sheet reads its run of them
        // and takes the whole-sheet changes they are still to get. The others move, their cells
        // as they are, texts included.
        const long lRows = lTitles + (part.lLast - part.lFirst) + 1;
        const long a = std::max(part.lFirst, lSpoolFirst);
        const long b = std::min(part.lLast, lSpoolLast);
        const bool bSpooled = lSpoolFirst != 0 && a <= b;
        if (bSpooled) {
            t.pSpool = d.pSpool;
            t.lSpoolShift = part.lFirst - lTitles - 1;
            t.lSpoolFrom = a - t.lSpoolShift;
            t.lSpoolTo = b - t.lSpoolShift;
            t.arrSpoolChanges = d.arrSpoolChanges;
            t.arrRows.GrowWithRun(static_cast<size_t>(lRows), static_cast<size_t>(t.lSpoolFrom - 1),
                                  static_cast<size_t>(t.lSpoolTo));
            t.arrMergedRows.GrowWithRun(static_cast<size_t>(lRows),
                                        static_cast<size_t>(t.lSpoolFrom - 1),
                                        static_cast<size_t>(t.lSpoolTo));
        } else {
            t.arrRows.reserve(static_cast<size_t>(lRows));
        }
        for (long r = part.lFirst; r <= part.lLast; ++r) {
            if (bSpooled && r >= a && r <= b) continue;
            RowRec& from = d.arrRows[static_cast<size_t>(r - 1)];
            RowRec& o = t.EnsureRow(lTitles + (r - part.lFirst) + 1);
            o.lStyle = from.lStyle;
            o.nHeightTwips = from.nHeightTwips;
            o.nOutline = from.nOutline;
            o.arrCells = std::move(from.arrCells);
            from.arrCells = {};
        }
        arrNew.push_back(&ws);
        pAfter = &ws;
    }

    // The sheet keeps the spooled rows up to its last one.
    if (lSpoolFirst != 0) d.lSpoolCut = plan.lKeep;

    // Merged areas, hyperlinks and names go with their first row; each new sheet's lists take
    // their size at once.
    std::vector<size_t> arrMergedIn(arrNew.size() + 1, 0);
    for (const auto& a : d.arrMerged) {
        if (const size_t p = fnPartOf(a[0]); p != kLeftOut) ++arrMergedIn[p];
    }
    // (A new sheet holds the areas of its title rows already.)
    for (size_t p = 1; p <= arrNew.size(); ++p) {
        std::vector<xlMergedArea>& arr = arrNew[p - 1]->Data().arrMerged;
        arr.reserve(arr.size() + arrMergedIn[p]);
    }
    std::vector<xlMergedArea> arrKeptMerged;
    arrKeptMerged.reserve(arrMergedIn[0]);
    for (const auto& a : d.arrMerged) {
        const size_t p = fnPartOf(a[0]);
        if (p == kLeftOut) continue;
        if (p == 0) {
            arrKeptMerged.push_back(a);
            continue;
        }
        const long lEnd = std::min<long>(a[2], plan.arrParts[p - 1].lLast);
        arrNew[p - 1]->Data().AddMerged(MergedArea(fnRowIn(p, a[0]), a[1], fnRowIn(p, lEnd), a[3]));
    }
    // The lists are made anew at the size they keep.
    std::vector<xlMergedArea>().swap(d.arrMerged);
    d.arrMergedRows = {};
    // The spooled rows the sheet keeps have no list of their own: the saver finds their areas
    // in the list of areas itself.
    if (lSpoolFirst != 0 && lSpoolFirst <= plan.lKeep) {
        d.arrMergedRows.GrowWithRun(static_cast<size_t>(plan.lKeep),
                                    static_cast<size_t>(lSpoolFirst - 1),
                                    static_cast<size_t>(std::min(lSpoolLast, plan.lKeep)));
    }
    d.arrMerged.reserve(arrKeptMerged.size());
    for (const auto& a : arrKeptMerged)
        d.AddMerged(a);

    std::vector<size_t> arrNamesIn(arrNew.size() + 1, 0), arrLinksIn(arrNew.size() + 1, 0);
    for (const xlHyperlinkEntry& e : oHyperlinks_.arr_) {
        if (const size_t p = fnPartOf(e.lRow); p != kLeftOut) ++arrLinksIn[p];
    }
    for (size_t p = 1; p <= arrNew.size(); ++p) {
        std::vector<xlHyperlinkEntry>& arr = arrNew[p - 1]->oHyperlinks_.arr_;
        arr.reserve(arr.size() + arrLinksIn[p]);
    }
    std::vector<xlHyperlinkEntry> arrKeptLinks;
    arrKeptLinks.reserve(arrLinksIn[0]);
    for (xlHyperlinkEntry& e : oHyperlinks_.arr_) {
        const size_t p = fnPartOf(e.lRow);
        if (p == kLeftOut) continue;
        if (p == 0) {
            arrKeptLinks.push_back(std::move(e));
            continue;
        }
        xlWorksheet& ws = *arrNew[p - 1];
        e.lRow = fnRowIn(p, e.lRow);
        ws.Data().bLinksNoted = false;
        ws.Data().mapLinks.emplace(detail::CellKey(e.lRow, e.lCol),
                                   static_cast<uint32_t>(ws.oHyperlinks_.arr_.size()));
        ws.oHyperlinks_.arr_.push_back(std::move(e));
    }
    oHyperlinks_.arr_ = std::move(arrKeptLinks);
    d.bLinksNoted = false;
    d.mapLinks.clear();
    for (size_t i = 0; i < oHyperlinks_.arr_.size(); ++i) {
        const xlHyperlinkEntry& e = oHyperlinks_.arr_[i];
        d.mapLinks.emplace(detail::CellKey(e.lRow, e.lCol), static_cast<uint32_t>(i));
    }

    for (const xlNameEntry& e : oNames_.arr_) {
        if (const size_t p = fnPartOf(e.lRow1); p != kLeftOut) ++arrNamesIn[p];
    }
    for (size_t p = 1; p <= arrNew.size(); ++p) {
        std::vector<xlNameEntry>& arr = arrNew[p - 1]->oNames_.arr_;
        arr.reserve(arr.size() + arrNamesIn[p]);
    }
    d.mapNames.clear();
    std::vector<xlNameEntry> arrKeptNames;
    arrKeptNames.reserve(arrNamesIn[0]);
    for (xlNameEntry& e : oNames_.arr_) {
        const size_t p = fnPartOf(e.lRow1);
        if (p == kLeftOut) continue;
        if (p == 0) {
            arrKeptNames.push_back(std::move(e));
            continue;
        }
        xlWorksheet& ws = *arrNew[p - 1];
        const long lEnd = std::min(e.lRow2, plan.arrParts[p - 1].lLast);
        ws.Names().Add(e.sName,
                       xlRange(&ws, fnRowIn(p, e.lRow1), e.lCol1, fnRowIn(p, lEnd), e.lCol2));
    }
    std::vector<xlNameEntry>().swap(oNames_.arr_);
    oNames_.arr_.reserve(arrKeptNames.size());
    for (xlNameEntry& e : arrKeptNames)
        oNames_.Add(e.sName, xlRange(this, e.lRow1, e.lCol1, e.lRow2, e.lCol2));

    d.arrRows.resize(static_cast<size_t>(plan.lKeep));
    d.arrRows.shrink_to_fit();
    // An AutoFilter ends where the sheet's rows end.
    if (d.arrAutoFilter[0] > plan.lKeep) {
        d.arrAutoFilter = {};
    } else if (d.arrAutoFilter[2] > plan.lKeep) {
        d.arrAutoFilter[2] = plan.lKeep;
    }

    // A link to a name that went to another sheet now leads to that sheet's cell.
    std::vector<xlWorksheet*> arrFamily{this};
    arrFamily.insert(arrFamily.end(), arrNew.begin(), arrNew.end());
    for (xlWorksheet* pFrom : arrFamily) {
        for (xlHyperlinkEntry& e : pFrom->oHyperlinks_.arr_) {
            if (!e.Address().empty() || e.SubAddress().empty()) continue;
            const std::string sName(e.SubAddress());
            if (pFrom->Names().Find(sName)) continue;
            for (xlWorksheet* pTo : arrFamily) {
                if (const xlNameEntry* pName = pTo->Names().Find(sName)) {
                    e.lSubAddress = detail::LinkText(
                        d.oText, pTo->Cells(pName->lRow1, pName->lCol1).AddressExternal());
                    break;
                }
            }
        }
    }
    return arrNew;
}

}  // namespace xl
