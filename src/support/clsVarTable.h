// A two-dimensional table of strings that may also be "Empty" (no array at all), indexed
// (field, entry) from 0: element (f, j) is field f of entry j.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"

class clsVarTable {
public:
    bool IsArray() const { return bIsArray_; }

    // Dimensions the table to (0 .. lUBoundField, 0 .. lUBoundEntry), all elements empty.
    void ReDim(long lUBoundField, long lUBoundEntry) {
        if (lUBoundField < 0 || lUBoundEntry < 0) RaiseError(modConst::errSubscript);
        nFields_ = lUBoundField + 1;
        nEntries_ = lUBoundEntry + 1;
        arr_.assign(static_cast<size_t>(nFields_ * nEntries_), std::string());
        bIsArray_ = true;
    }

    // Back to Empty.
    void Erase() {
        arr_.clear();
        nFields_ = nEntries_ = 0;
        bIsArray_ = false;
    }

    // Upper bound of dimension 1 (fields) or 2 (entries); error 13 when the table is Empty.
    long UBound(int iDim) const {
        if (!bIsArray_) RaiseError(modConst::errTypeMismatch);
        if (iDim == 1) return nFields_ - 1;
        if (iDim == 2) return nEntries_ - 1;
        RaiseError(modConst::errSubscript);
    }

    // Upper bound of the entries, or -1 when the table is Empty.
    long EntryUBoundOrNone() const { return bIsArray_ ? nEntries_ - 1 : -1; }

    const std::string& Item(long f, long j) const { return arr_[Offset(f, j)]; }
    std::string& Item(long f, long j) { return arr_[Offset(f, j)]; }

private:
    size_t Offset(long f, long j) const {
        if (!bIsArray_) RaiseError(modConst::errTypeMismatch);
        if (f < 0 || f >= nFields_ || j < 0 || j >= nEntries_) RaiseError(modConst::errSubscript);
        return static_cast<size_t>(j * nFields_ + f);
    }
    bool bIsArray_ = false;
    long nFields_ = 0;
    long nEntries_ = 0;
    std::vector<std::string> arr_;
};

// A one-dimensional array of strings held in a Variant: either Empty or a 0-based array.
using VarStrArray = std::optional<std::vector<std::string>>;

// Element i of a Variant array: error 13 when it holds no array, 9 when i is out of range.
inline const std::string& VarItem(const VarStrArray& arr, long i) {
    if (!arr) RaiseError(modConst::errTypeMismatch);
    return At(*arr, i);
}

// Upper bound of a Variant array: error 13 when it holds no array.
inline long VarUBound(const VarStrArray& arr) {
    if (!arr) RaiseError(modConst::errTypeMismatch);
    return static_cast<long>(arr->size()) - 1;
}
