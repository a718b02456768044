// Rows handed over before the save: a sheet filled block by block lets the rows of its finished
// blocks go to a spool file, so its memory holds the blocks being written, not the whole sheet.
//
// A row goes once nothing can change it any more: rows of a block once the block after the next
// one begins (the filler may still touch the block just before the one it writes). A merged area
// that reaches past them holds them back. Rows that a continuation later moves to new sheets
// stay in the spool: each new sheet reads its own run of it. Whole-sheet format changes made
// later are applied as the saver reads the rows back; every other change to a spooled row, and
// every read of one, raises 1004. Should the spool's folder take no file, or a write fail, the
// rows stay in memory as before.
#include <stdio_ext.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

namespace xl {

using namespace modConst;

namespace detail {

namespace {

// A row in the spool: its number, format, height, outline level and cell count, then its cells.
struct RowHeader {
    int32_t lRow;
    uint32_t lStyle;
    uint16_t nHeightTwips;
    uint8_t nOutline;
    uint8_t nSpare;
    uint32_t lCells;
};
static_assert(sizeof(RowHeader) == 16, "a spooled row's header is 16 bytes");

}  // namespace

RowSpool::~RowSpool() {
    if (pFile_) std::fclose(pFile_);
}

bool RowSpool::Write(long lRow, const Row& o, long lShownCol) {
    const RowHeader h{static_cast<int32_t>(lRow),
                      o.lStyle,
                      o.nHeightTwips,
                      o.nOutline,
                      0,
                      static_cast<uint32_t>(o.arrCells.size())};
    const size_t n = o.arrCells.size();
    // After a read (a save in between), writing goes on at the end.
    if (bRead_) {
        if (std::fseek(pFile_, lEnd_, SEEK_SET) != 0) return false;
        bRead_ = false;
    }
    if (std::fwrite(&h, sizeof h, 1, pFile_) != 1 ||
        (n != 0 && std::fwrite(o.arrCells.data(), sizeof(Cell), n, pFile_) != n)) {
        return false;
    }
    if (lFirst == 0) lFirst = lRow;
    if ((lRow - lFirst) % kMarkEvery == 0) arrMarks_.push_back(lEnd_);
    arrShown_.push_back(static_cast<uint16_t>(lShownCol));
    lLast = lRow;
    lEnd_ += static_cast<long>(sizeof h + n * sizeof(Cell));
    lCells += static_cast<long>(n);
    return true;
}

bool RowSpool::Flush() {
    return std::fflush(pFile_) == 0 && !std::ferror(pFile_);
}

bool RowSpool::Rewind(bool bDropUnwritten) {
    bRead_ = true;
    lReadAt_ = 0;
    if (bDropUnwritten) {
        __fpurge(pFile_);
        std::clearerr(pFile_);
    } else if (!Flush()) {
        return false;
    }
    return std::fseek(pFile_, 0, SEEK_SET) == 0;
}

bool RowSpool::Seek(long lRow) {
    if (lFirst == 0 || lRow < lFirst || lRow > lLast) return false;
    if (!Flush()) return false;
    bRead_ = true;
    const size_t k = static_cast<size_t>((lRow - lFirst) / kMarkEvery);
    lReadAt_ = arrMarks_[k];
    if (std::fseek(pFile_, lReadAt_, SEEK_SET) != 0) return false;
    // From the mark, the rows before lRow are read past.
    Row o;
    long r = 0;
    for (long n = (lRow - lFirst) % kMarkEvery; n > 0; --n) {
        if (!Read(r, o)) return false;
    }
    return true;
}

long RowSpool::LastShownRowIn(long a, long b) const {
    for (long r = std::min(b, lLast); r >= std::max(a, lFirst) && lFirst != 0; --r) {
        if (arrShown_[static_cast<size_t>(r - lFirst)] != 0) return r;
    }
    return 0;
}

long RowSpool::LastShownColumnIn(long a, long b) const {
    long n = 0;
    for (long r = std::max(a, lFirst); r <= std::min(b, lLast) && lFirst != 0; ++r)
        n = std::max<long>(n, arrShown_[static_cast<size_t>(r - lFirst)]);
    return n;
}

bool RowSpool::Read(long& lRow, Row& o) {
    if (lReadAt_ >= lEnd_) return false;
    RowHeader h;
    if (std::fread(&h, sizeof h, 1, pFile_) != 1) RaiseError(errAppDefined);
    o.arrCells.resize(h.lCells);
    if (h.lCells != 0 &&
        std::fread(o.arrCells.data(), sizeof(Cell), h.lCells, pFile_) != h.lCells) {
        RaiseError(errAppDefined);
    }
    lReadAt_ += static_cast<long>(sizeof h + h.lCells * sizeof(Cell));
    lRow = h.lRow;
    o.lStyle = h.lStyle;
    o.nHeightTwips = h.nHeightTwips;
    o.nOutline = h.nOutline;
    return true;
}

void RaiseRowDropped() {
    RaiseError(errAppDefined);
}

}  // namespace detail

void xlWorksheet::Impl::CheckNotSpooled(long r1, long r2) const {
    const long a = SpoolFirst();
    if (a != 0 && r1 <= SpoolLast() && r2 >= a) RaiseError(errAppDefined);
}

void xlWorksheet::Impl::CheckNoneSpooled() const {
    const long a = SpoolFirst();
    if (a != 0 && SpoolLast() >= a) RaiseError(errAppDefined);
}

void xlWorksheet::Impl::ApplySpoolChanges(detail::Row& o) const {
    for (uint32_t lChange : arrSpoolChanges) {
        if (o.lStyle != detail::kUnformatted) o.lStyle = pStyles->Apply(o.lStyle, lChange);
        for (detail::Cell& c : o.arrCells)
            c.lStyle = pStyles->Apply(c.lStyle, lChange);
    }
}

long xlWorksheet::Impl::SpooledLastShownRow() const {
    const long a = SpoolFirst();
    if (a == 0) return 0;
    const long r = pSpool->LastShownRowIn(a + lSpoolShift, SpoolLast() + lSpoolShift);
    return r == 0 ? 0 : r - lSpoolShift;
}

long xlWorksheet::Impl::SpooledLastShownColumn() const {
    const long a = SpoolFirst();
    if (a == 0) return 0;
    return pSpool->LastShownColumnIn(a + lSpoolShift, SpoolLast() + lSpoolShift);
}

void xlWorksheet::Impl::SettleFinishedBlocks() {
    // The blocks before the last two are finished.
    if (arrBlockStarts.size() < 3) return;
    SpoolFinishedBlocks();
    // Rows that stay in memory give back the room their first record made for more, those
    // before the first block (the rows the blocks follow) as well.
    const long lDone = std::min<long>(arrBlockStarts[arrBlockStarts.size() - 2] - 1,
                                      static_cast<long>(arrRows.size()));
    for (long r = lTrimmed + 1; r <= lDone; ++r) {
        if (!Spooled(r)) arrRows[static_cast<size_t>(r - 1)].arrCells.shrink_to_fit();
    }
    lTrimmed = std::max(lTrimmed, lDone);
}

void xlWorksheet::Impl::SpoolFinishedBlocks() {
    if (!bStream) return;
    const long lFrom = pSpool && pSpool->lFirst != 0 ? pSpool->lLast + 1 : arrBlockStarts.front();
    long lTo = arrBlockStarts[arrBlockStarts.size() - 2] - 1;
    // A merged area that reaches past the rows holds back the rows from its first one.
    for (long r = lFrom; r <= lTo && static_cast<size_t>(r) <= arrMergedRows.size(); ++r) {
        for (uint32_t k : arrMergedRows[static_cast<size_t>(r - 1)]) {
            if (arrMerged[k][2] > lTo || arrMerged[k][0] < lFrom) lTo = std::min(lTo, r - 1);
        }
    }
    if (lTo < lFrom || static_cast<size_t>(lTo) > arrRows.size()) return;
    if (!pSpool) {
        std::FILE* p = modSaveFile::UnlinkedScratchFile(oSpoolFolder, ".rows-spool-");
        if (!p) {
            bStream = false;
            return;
        }
        pSpool = std::make_shared<detail::RowSpool>(p);
        bSpoolOwner = true;
    }
    if (pAhead && lForecastKeep != 0) {
        // The rows go to the sheets the forecast puts them on; the continuation checks it.
        detail::WriteAheadRows(*pAhead, lFrom, lTo);
    } else if (pAhead) {
        // A sheet past its last row, or past the links or names it holds with the links still
        // to come, continues on new sheets: its rows move, and cannot go ahead.
        if (lTo > lMaxRows ||
            mapLinks.size() + lPromisedLinks > static_cast<size_t>(xlMaxHyperlinks) ||
            mapNames.size() > static_cast<size_t>(xlMaxLocalNames)) {
            StopWriteAhead();
        } else {
            detail::WriteAheadRows(*pAhead, lFrom, lTo);
        }
    }
    for (long r = lFrom; r <= lTo; ++r) {
        const detail::Row& o = arrRows[static_cast<size_t>(r - 1)];
        if (!pSpool->Write(r, o, detail::LastShownColumn(*this, o))) {
            UnspoolAll();
            return;
        }
    }
    // The rows leave memory once the disk has them, a megabyte at a time.
    if (pSpool->Bytes() - lSpoolFlushedBytes >= kSpoolFlushBytes) FlushSpool();
}

void xlWorksheet::Impl::FlushSpool() {
    if (!pSpool || !bSpoolOwner || pSpool->lFirst == 0 || pSpool->lConfirmed == pSpool->lLast) {
        return;
    }
    if (!pSpool->Flush()) {
        UnspoolAll();
        return;
    }
    lSpoolFlushedBytes = pSpool->Bytes();
    // The records of the rows on the disk go, with their lists of merged areas; their cell lists
    // serve the rows to come.
    const size_t lFrom = static_cast<size_t>(pSpool->lFirst - 1);
    const size_t lTo = static_cast<size_t>(pSpool->lLast);
    for (size_t i = lFrom; i < std::min(lTo, arrRows.size()); ++i) {
        if (arrSpareCells.size() >= kMaxSpareCells) break;
        if (!arrRows.Dropped(i)) KeepSpareCells(arrRows[i].arrCells);
    }
    arrRows.Drop(lFrom, lTo);
    arrMergedRows.Drop(lFrom, lTo);
    pSpool->lConfirmed = pSpool->lLast;
}

void xlWorksheet::Impl::UnspoolAll() {
    bStream = false;
    // Rows that come back may change again.
    StopWriteAhead();
    if (!pSpool) return;
    // Rows that went on to other sheets cannot come back (a continuation flushes them first).
    if (!bSpoolOwner || lSpoolCut != std::numeric_limits<long>::max()) RaiseError(errAppDefined);
    std::shared_ptr<detail::RowSpool> p = std::move(pSpool);
    bSpoolOwner = false;
    if (p->lFirst == 0) {
        arrSpoolChanges.clear();
        return;  // nothing went
    }
    if (p->lConfirmed != 0) {
        // Rows that left memory come back, with the whole-sheet changes made since.
        if (!p->Rewind(true)) RaiseError(errAppDefined);
        arrRows.Restore();
        detail::Row o;
        long lRow = 0;
        while (lRow < p->lConfirmed && p->Read(lRow, o)) {
            ApplySpoolChanges(o);
            arrRows[static_cast<size_t>(lRow - 1)] = std::move(o);
            o = detail::Row();
        }
        if (lRow != p->lConfirmed) RaiseError(errAppDefined);
    }
    // The merged areas of the spooled rows are listed for them again.
    arrMergedRows.Restore();
    const long lLast = std::min<long>(p->lLast, static_cast<long>(arrMergedRows.size()));
    for (long r = p->lFirst; r <= lLast; ++r)
        arrMergedRows[static_cast<size_t>(r - 1)].clear();
    for (uint32_t k = 0; k < arrMerged.size(); ++k) {
        const auto& a = arrMerged[k];
        for (long r = std::max<long>(a[0], p->lFirst); r <= std::min<long>(a[2], lLast); ++r)
            arrMergedRows[static_cast<size_t>(r - 1)].push_back(k);
    }
    arrSpoolChanges.clear();
}

void xlWorksheet::StreamFinishedBlocks() {
    Impl& d = *pImpl_;
    // Only a workbook that has its place (SaveAs): the spool lies beside it.
    if (!pBook_ || pBook_->FullName().empty()) return;
    d.oSpoolFolder = std::filesystem::path(pBook_->FullName()).parent_path();
    if (d.oSpoolFolder.empty()) d.oSpoolFolder = std::filesystem::current_path();
    d.bStream = true;
}

}  // namespace xl
