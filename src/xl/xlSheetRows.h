// Reading a sheet's rows in order for a saver, whether the model holds them or its spool does.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"

namespace xl::detail {

// The rows of a sheet in order, whether the model holds them or its spool does; a spooled row
// comes back with the whole-sheet format changes made since it went. Also the merged areas that
// cover each row (indices into the sheet's list), and the used range, which it counts as the
// rows go by.
class SheetRows {
public:
    explicit SheetRows(const xlWorksheet::Impl& d) : d_(d) {
        if (d_.SpoolFirst() != 0 && d_.SpoolLast() >= d_.SpoolFirst() &&
            !d_.pSpool->Seek(d_.SpoolFirst() + d_.lSpoolShift)) {
            RaiseError(modConst::errAppDefined);
        }
        arrByStart_.resize(d_.arrMerged.size());
        for (uint32_t i = 0; i < arrByStart_.size(); ++i)
            arrByStart_[i] = i;
        std::sort(arrByStart_.begin(), arrByStart_.end(),
                  [&](uint32_t a, uint32_t b) { return d_.arrMerged[a] < d_.arrMerged[b]; });
    }
    // Reading begins at row r (the rows before were written already): the areas that began
    // before it are met as covering it.
    void SkipTo(long r) {
        while (lNextStart_ < arrByStart_.size() && d_.arrMerged[arrByStart_[lNextStart_]][0] < r)
            arrActive_.push_back(arrByStart_[lNextStart_++]);
    }
    // Merged areas in the order the file lists them: by first row, then column.
    const std::vector<uint32_t>& MergedInOrder() const { return arrByStart_; }

    // Row r (1-based, in order); the areas covering it.
    const Row& Get(long r) {
        while (lNextStart_ < arrByStart_.size() && d_.arrMerged[arrByStart_[lNextStart_]][0] <= r)
            arrActive_.push_back(arrByStart_[lNextStart_++]);
        arrActive_.erase(std::remove_if(arrActive_.begin(), arrActive_.end(),
                                        [&](uint32_t k) { return d_.arrMerged[k][2] < r; }),
                         arrActive_.end());
        const Row* p = &d_.arrRows[static_cast<size_t>(r - 1)];
        if (d_.Spooled(r)) {
            long lRow = 0;
            if (!d_.pSpool->Read(lRow, oSpooled_) || lRow != r + d_.lSpoolShift) {
                RaiseError(modConst::errAppDefined);
            }
            d_.ApplySpoolChanges(oSpooled_);
            p = &oSpooled_;
        }
        if (const long c = detail::LastShownColumn(d_, *p); c != 0) {
            lUsedRow_ = r;
            lUsedCol_ = std::max(lUsedCol_, c);
        }
        return *p;
    }
    const std::vector<uint32_t>* Merged() const {
        return arrActive_.empty() ? nullptr : &arrActive_;
    }
    long UsedLastRow() const { return lUsedRow_; }
    long UsedLastColumn() const { return lUsedCol_; }

private:
    const xlWorksheet::Impl& d_;
    std::vector<uint32_t> arrByStart_;
    size_t lNextStart_ = 0;
    std::vector<uint32_t> arrActive_;
    Row oSpooled_;
    long lUsedRow_ = 0;
    long lUsedCol_ = 0;
};

}  // namespace xl::detail
