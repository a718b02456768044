// The records of a row: kept in the row itself up to a few, on the heap past that, and the same
// list either way for every change a sheet makes to a row.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using xl::detail::Cell;
using xl::detail::CellList;

namespace {

constexpr size_t kInline = CellList::kInline;

Cell At(long lCol) {
    Cell c{};
    c.nCol = static_cast<uint16_t>(lCol);
    c.lPayload = static_cast<uint64_t>(lCol) * 1000;
    return c;
}

std::vector<long> Columns(const CellList& v) {
    std::vector<long> arr;
    for (const Cell& c : v)
        arr.push_back(c.nCol);
    return arr;
}

// The payloads follow their cells wherever the records go.
void ExpectPayloads(const CellList& v) {
    for (const Cell& c : v)
        EXPECT_EQ(c.lPayload, static_cast<uint64_t>(c.nCol) * 1000) << "column " << c.nCol;
}

CellList Filled(size_t n) {
    CellList v;
    for (size_t i = 1; i <= n; ++i)
        v.push_back(At(static_cast<long>(i)));
    return v;
}

bool InRow(const CellList& v) {
    const auto* p = reinterpret_cast<const unsigned char*>(v.data());
    const auto* a = reinterpret_cast<const unsigned char*>(&v);
    return p >= a && p < a + sizeof(CellList);
}

}  // namespace

TEST(CellList, AFewRecordsStayInTheRowAndMoreGoToTheHeapInOrder) {
    CellList v = Filled(kInline);
    EXPECT_TRUE(InRow(v));
    EXPECT_EQ(v.capacity(), kInline);
    v.push_back(At(static_cast<long>(kInline) + 1));
    EXPECT_FALSE(InRow(v));
    EXPECT_EQ(v.size(), kInline + 1);
    std::vector<long> arrWant;
    for (size_t i = 1; i <= kInline + 1; ++i)
        arrWant.push_back(static_cast<long>(i));
    EXPECT_EQ(Columns(v), arrWant);
    ExpectPayloads(v);
    EXPECT_EQ(v.back().nCol, static_cast<uint16_t>(kInline + 1));
}

TEST(CellList, InsertsAndErasesKeepTheOrderAcrossTheMoveToTheHeap) {
    CellList v;
    for (long c : {2L, 4L, 6L, 8L, 10L, 12L})
        v.push_back(At(c));
    // Full in the row: one more in the middle moves everything to the heap.
    Cell* p = v.insert(v.begin() + 2, At(5));
    EXPECT_EQ(p->nCol, 5);
    EXPECT_EQ(Columns(v), (std::vector<long>{2, 4, 5, 6, 8, 10, 12}));
    const std::vector<Cell> arrMore = {At(13), At(14), At(15)};
    v.insert(v.end(), arrMore.begin(), arrMore.end());
    v.insert(v.begin(), At(1));
    EXPECT_EQ(Columns(v), (std::vector<long>{1, 2, 4, 5, 6, 8, 10, 12, 13, 14, 15}));
    ExpectPayloads(v);
    p = v.erase(v.begin() + 1, v.begin() + 4);
    EXPECT_EQ(p->nCol, 6);
    EXPECT_EQ(Columns(v), (std::vector<long>{1, 6, 8, 10, 12, 13, 14, 15}));
    v.erase(v.end() - 3, v.end());
    EXPECT_EQ(Columns(v), (std::vector<long>{1, 6, 8, 10, 12}));
    ExpectPayloads(v);
    // Spare room goes, and what fits moves back into the row.
    EXPECT_FALSE(InRow(v));
    v.shrink_to_fit();
    EXPECT_TRUE(InRow(v));
    EXPECT_EQ(Columns(v), (std::vector<long>{1, 6, 8, 10, 12}));
    ExpectPayloads(v);
}

TEST(CellList, ShrinkingKeepsOnlyTheRoomTheRecordsNeed) {
    CellList v = Filled(kInline * 3);
    v.erase(v.begin() + static_cast<long>(kInline) * 2, v.end());
    EXPECT_GT(v.capacity(), kInline * 2);
    v.shrink_to_fit();
    EXPECT_EQ(v.capacity(), kInline * 2);
    EXPECT_FALSE(InRow(v));
    EXPECT_EQ(v.size(), kInline * 2);
    ExpectPayloads(v);
    v.clear();
    v.shrink_to_fit();
    EXPECT_TRUE(InRow(v));
    EXPECT_TRUE(v.empty());
}

TEST(CellList, CopiesAndMovesTakeTheRecordsWhereverTheyLie) {
    for (size_t n : {size_t{0}, size_t{3}, kInline, kInline + 5}) {
        SCOPED_TRACE("records: " + std::to_string(n));
        const CellList a = Filled(n);
        CellList b(a);
        EXPECT_EQ(Columns(b), Columns(a));
        EXPECT_NE(b.data(), a.data());
        CellList c(std::move(b));
        EXPECT_EQ(Columns(c), Columns(a));
        EXPECT_TRUE(b.empty());
        ExpectPayloads(c);
        CellList d = Filled(kInline + 2);
        d = c;
        EXPECT_EQ(Columns(d), Columns(a));
        CellList e = Filled(1);
        e = std::move(d);
        EXPECT_EQ(Columns(e), Columns(a));
        EXPECT_TRUE(d.empty());
        // A list emptied by a move takes records again.
        d.push_back(At(7));
        EXPECT_EQ(Columns(d), (std::vector<long>{7}));
        CellList f = Filled(2);
        f.swap(e);
        EXPECT_EQ(Columns(f), Columns(a));
        EXPECT_EQ(Columns(e), (std::vector<long>{1, 2}));
        ExpectPayloads(f);
    }
}

TEST(CellList, ResizeAndAssignFillTheListAsTold) {
    CellList v;
    v.resize(kInline + 2);
    EXPECT_EQ(v.size(), kInline + 2);
    for (const Cell& c : v) {
        EXPECT_EQ(c.nCol, 0);
        EXPECT_EQ(c.lPayload, 0u);
    }
    const CellList w = Filled(4);
    v.assign(w.begin(), w.end());
    EXPECT_EQ(Columns(v), (std::vector<long>{1, 2, 3, 4}));
    std::vector<long> arrBack;
    for (auto it = v.rbegin(); it != v.rend(); ++it)
        arrBack.push_back(it->nCol);
    EXPECT_EQ(arrBack, (std::vector<long>{4, 3, 2, 1}));
}

// A sheet's row with more cells than the row holds itself reads back every value, whatever order
// the cells were written in.
TEST(CellList, ARowOfManyCellsWrittenOutOfOrderReadsBackEveryValue) {
    xl::xlApplication app;
    xl::xlWorkbook& wb = app.Workbooks().Add();
    xl::xlWorksheet& ws = wb.Worksheets().Item(1);
    const long nCols = static_cast<long>(kInline) * 3;
    for (long c = nCols; c >= 1; c -= 2)
        ws.Cells(1, c).Value("v" + std::to_string(c));
    for (long c = 1; c <= nCols; c += 2)
        ws.Cells(1, c).Value("v" + std::to_string(c));
    ws.Range(ws.Cells(1, 3), ws.Cells(1, 5)).Value(xl::xlVariant{});
    for (long c = 1; c <= nCols; ++c) {
        const std::string sWant = c >= 3 && c <= 5 ? "" : "v" + std::to_string(c);
        EXPECT_EQ(ws.Cells(1, c).Text(), sWant) << "column " << c;
    }
}
