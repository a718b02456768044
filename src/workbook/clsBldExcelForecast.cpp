// The extent of each detail block counted before the blocks are filled: the rows, links and
// names each will take, so that the first sheet knows where it will be cut while its rows still
// go to the file's writer.
#include <optional>
#include <string>
#include <vector>

#include "support/clsRunError.h"
#include "workbook/clsBldExcel.h"

namespace {

// Counts a block as the Fill procedures lay it out, row for row, without filling anything.
// It never raises: what a Fill procedure would trap (a list shorter than its count, a child key
// that is no index) ends the count instead, and the blocks are then not forecast.
class clsBlockCounter {
public:
    explicit clsBlockCounter(const clsExportModel& m) : m_(m) {}
    bool Ok() const { return bOk_; }

    // The extent of the block of object nIndex (FillItemDetail, FillDocDetail,
    // FillFolderDetail).
    xl::xlBlockExtent Block(long nIndex) {
        lLinks_ = 0;
        long long n = 0;
        switch (m_.ExportKind) {
            case 1:
                n = ItemDetail(nIndex);
                break;
            case 2:
                n = DocDetail(nIndex);
                break;
            case 3:
                n = FolderDetail(nIndex);
                break;
            default:
                bOk_ = false;
        }
        if (n > kMaxRows || lLinks_ > kMaxRows) bOk_ = false;
        return {bOk_ ? static_cast<long>(n) : 0, bOk_ ? static_cast<long>(lLinks_) : 0, 1};
    }

private:
    static constexpr long long kMaxRows = xl::xlWorksheet::kMaxContinuedRows;

    template <class V>
    const typename V::value_type* Get(const V& v, long long i) {
        if (i < 0 || static_cast<unsigned long long>(i) >= v.size()) {
            bOk_ = false;
            return nullptr;
        }
        return &v[static_cast<size_t>(i)];
    }

    // FillAttrByCol: three values to a row.
    static long long AttrRows(const VarStrArray& a) {
        return a ? (static_cast<long long>(a->size()) + 2) / 3 : 0;
    }

    // A list with its caption row (FillListCaption), one entry after the other.
    template <class V, class F>
    long long List(const V& v, long lUBound, F fnRows) {
        long long n = 1;
        for (long i = 0; i <= lUBound && bOk_; ++i) {
            if (const auto* p = Get(v, i)) n += fnRows(*p);
        }
        return n;
    }

    // The child keys of a list, in order (NextChild), each checked against the array.
    template <class V, class F>
    long long Children(const std::string& sChildren, const V& v, F fnRows) {
        long long n = 1;
        size_t p = 0;
        while (p < sChildren.size() && bOk_) {
            size_t q = sChildren.find('!', p);
            if (q == std::string::npos) q = sChildren.size();
            const std::optional<long long> k = ChildKey(sChildren, p, q);
            p = q < sChildren.size() ? q + 1 : q;
            if (!k) {
                bOk_ = false;
                break;
            }
            if (const auto* o = Get(v, *k)) n += fnRows(*o);
        }
        return n;
    }

    // A decimal index between spaces, as the Fill procedures read it.
    static std::optional<long long> ChildKey(const std::string& s, size_t p, size_t q) {
        while (p < q && s[p] == ' ')
            ++p;
        while (q > p && s[q - 1] == ' ')
            --q;
        if (p == q) return std::nullopt;
        long long n = 0;
        for (size_t i = p; i < q; ++i) {
            if (s[i] < '0' || s[i] > '9') return std::nullopt;
            n = n * 10 + (s[i] - '0');
            if (n > INT32_MAX) return std::nullopt;
        }
        return n;
    }

    // FillItem: the key row, the attributes' heading in an item export, the attributes and one
    // empty row.
    long long Item(const ItemStruct& r) const {
        return 1 + (m_.ExportKind == 1 ? 1 : 0) + AttrRows(r.Attrs) + 1;
    }

    // FillDoc: the key row, the heading of a block's own attributes, the attributes, then the
    // files under their caption, each a linked name, its attributes and an empty row.
    long long Doc(const DocStruct& r, bool bDetail) {
        long long n = 1 + (bDetail ? 1 : 0) + AttrRows(r.Attrs);
        if (r.FileCount < 0) return n;
        n += 1;
        for (long i = 0; i <= r.FileCount && bOk_; ++i) {
            const FileStruct* f = Get(r.Files, i);
            if (!f) break;
            if (!f->FileName.empty()) ++lLinks_;
            n += 1 + AttrRows(f->Attrs) + 1;
        }
        return n;
    }

    // FillFolder: like a document line, without files.
    static long long Folder(const FoldStruct& r, bool bDetail) {
        return 1 + (bDetail ? 1 : 0) + AttrRows(r.Attrs);
    }

    // FillSuppliers with their attributes.
    long long Suppliers(const std::vector<ItemStruct>& v, long lUBound) {
        long long n = 0;
        for (long i = 0; i <= lUBound && bOk_; ++i) {
            if (const ItemStruct* p = Get(v, i)) n += 1 + AttrRows(p->Attrs);
        }
        return n;
    }

    long long ItemDetail(long nIndex) {
        const XItemStruct* r = Get(m_.XItems, nIndex);
        if (!r) return 0;
        long long n = Item(r->Head);
        // FillChild: two rows a child, and a child's local alternates under their caption with
        // one empty row after them.
        if (!r->Children.empty()) {
            n += Children(r->Children, m_.XItems, [&](const XItemStruct& c) -> long long {
                if (c.LAICount < 0) return 2;
                if (c.LAIs.size() <= static_cast<size_t>(c.LAICount)) bOk_ = false;
                return 2 + 1 + (static_cast<long long>(c.LAICount) + 1) + 1;
            });
        }
        auto fnDoc = [&](const DocStruct& o) { return Doc(o, false); };
        auto fnFolder = [&](const FoldStruct& o) { return Folder(o, false); };
        if (r->DocCount > -1) n += List(r->Docs, r->DocCount, fnDoc);
        if (r->FolderCount > -1) n += List(r->Folders, r->FolderCount, fnFolder);
        // FillManufacturAndSupp.
        if (r->MnfVndFlag == 1 || r->MnfVndFlag == 3) {
            n += List(r->MNFs, r->MNFCount, [](const MNFStruct&) { return 1LL; });
        }
        if (r->VNDCount > -1) n += 1 + Suppliers(r->VNDs, r->VNDCount);
        if (r->MnfVndFlag == 2 || r->MnfVndFlag == 3) {
            n += List(r->MNFs, r->MNFCount, [&](const MNFStruct& o) {
                long long k = 1 + AttrRows(o.Attrs);
                if (o.VendorCount >= 0) k += 1 + Suppliers(o.Vendors, o.VendorCount);
                return k;
            });
        }
        return n;
    }

    long long DocDetail(long nIndex) {
        const XDocStruct* r = Get(m_.XDocs, nIndex);
        if (!r) return 0;
        auto fnItem = [&](const ItemStruct& o) { return Item(o); };
        auto fnDoc = [&](const DocStruct& o) { return Doc(o, false); };
        auto fnFolder = [&](const FoldStruct& o) { return Folder(o, false); };
        long long n = Doc(r->Head, true);
        if (r->ItemCount > -1) n += List(r->Items, r->ItemCount, fnItem);
        if (r->FolderCount > -1) n += List(r->Folders, r->FolderCount, fnFolder);
        if (!r->Children.empty()) {
            n += Children(r->Children, m_.XDocs,
                          [&](const XDocStruct& c) { return Doc(c.Head, false); });
        }
        if (r->DocCount > -1) n += List(r->Docs, r->DocCount, fnDoc);
        return n;
    }

    long long FolderDetail(long nIndex) {
        const XFoldStruct* r = Get(m_.XFolders, nIndex);
        if (!r) return 0;
        auto fnItem = [&](const ItemStruct& o) { return Item(o); };
        auto fnDoc = [&](const DocStruct& o) { return Doc(o, false); };
        auto fnFolder = [&](const FoldStruct& o) { return Folder(o, false); };
        long long n = Folder(r->Head, true);
        if (!r->Children.empty()) {
            n += Children(r->Children, m_.XFolders,
                          [&](const XFoldStruct& c) { return Folder(c.Head, false); });
        }
        if (r->ItemCount > -1) n += List(r->Items, r->ItemCount, fnItem);
        if (r->DocCount > -1) n += List(r->Docs, r->DocCount, fnDoc);
        if (r->FolderCount > -1) n += List(r->Folders, r->FolderCount, fnFolder);
        return n;
    }

    const clsExportModel& m_;
    bool bOk_ = true;
    long long lLinks_ = 0;
};

}  // namespace

// Where the first sheet will be cut, from the blocks counted before they are filled: the
// property panel's bar below the main panel's nCount rows and one empty row, the blocks from
// the row after it. Each object's block gets its place, which the main panel's links lead to;
// none when the blocks cannot be forecast.
bool clsBldExcel::ForecastBlocks(long nCount) {
    return TrapRun(ctx_, "clsBldExcel", "ForecastBlocks", false, [&] {
        arrForecastPlaces_.clear();
        const clsExportModel& m = ctx_.Model;
        // The blocks' procedures report an object count past the objects themselves.
        const size_t lObjects = m.ExportKind == 1   ? m.XItems.size()
                                : m.ExportKind == 2 ? m.XDocs.size()
                                                    : m.XFolders.size();
        if (m.ObjCount < 0 || static_cast<size_t>(m.ObjCount) >= lObjects) return false;
        clsBlockCounter oCounter(m);
        std::vector<long> arrObjects;
        std::vector<xl::xlBlockExtent> arrBlocks;
        for (long i = 0; i <= m.ObjCount && oCounter.Ok(); ++i) {
            if (m.IsStructure != 1 && LevelOf(i) != 0) continue;
            arrObjects.push_back(i);
            arrBlocks.push_back(oCounter.Block(i));
        }
        if (!oCounter.Ok()) return false;
        const long nBarRow = CheckedAdd(nCount, 7);
        std::optional<std::vector<xl::xlBlockPlace>> arrPlaces = Sheet().ForecastContinuation(
            CheckedAdd(nBarRow, 1), arrBlocks, {1, 2, 3, nBarRow}, nCount);
        if (!arrPlaces) return false;
        arrForecastPlaces_.assign(static_cast<size_t>(m.ObjCount) + 1, xl::xlBlockPlace());
        nForecastLinks_ = 0;
        for (size_t j = 0; j < arrObjects.size(); ++j) {
            xl::xlBlockPlace& o = (*arrPlaces)[j];
            if (o.bStays) nForecastLinks_ += arrBlocks[j].lLinks;
            arrForecastPlaces_[static_cast<size_t>(arrObjects[j])] = std::move(o);
        }
        return true;
    });
}
