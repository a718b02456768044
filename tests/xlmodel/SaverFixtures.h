// What the saver tests of both file formats share: rows of texts of one, two and five lines to
// fit, what LibreOffice makes of a saved workbook's rows, texts that compress little.
#pragma once

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "JsonLite.h"
#include "TestUtil.h"
#include "support/modConst.h"
#include "xl/xlObjectModel.h"

namespace saverfixtures {

using namespace modConst;
using xl::xlWorksheet;

// Texts that compress little, so that the file takes about as much room as its rows.
inline std::string Scrambled(long lSeed) {
    std::string s;
    uint32_t x = static_cast<uint32_t>(lSeed) * 2654435761u + 1;
    for (int i = 0; i < 100; ++i) {
        x = x * 1103515245u + 12345u;
        s += static_cast<char>('a' + (x >> 16) % 26);
    }
    return s;
}

// Rows of texts of one, two and five lines, regular and bold, in a column of width 21 (rows 1
// to 6) and in a merged area D:F (rows 7 to 12), laid out as the export lays out its sheet.
inline void FillFittedRows(xlWorksheet& ws) {
    ws.Columns().ColumnWidth(21);
    ws.Cells().HorizontalAlignment(xlLeft);
    ws.Cells().WrapText(true);
    ws.Cells().NumberFormat("@");
    const std::string sOne = "Pump housing, cast";
    const std::string sTwo = "Centrifugal pump assembly";
    const std::string sFive =
        "Stainless steel impeller with seven curved blades, balanced to grade 2.5 for quiet "
        "running at all speeds";
    const std::string sRefOne = "R1-R3,R5,R7";
    auto Designators = [](int nLast) {
        std::string t;
        for (int i = 1; i <= nLast; i += 2)
            t += (i > 1 ? ", R" : "R") + std::to_string(i);
        return t;
    };
    const std::string sRefTwo = Designators(39);
    const std::string sRefFive = Designators(119);
    long r = 1;
    for (bool bBold : {false, true}) {
        for (const std::string* p : {&sOne, &sTwo, &sFive}) {
            ws.Cells(r, 2).Value(*p);
            if (bBold) ws.Cells(r, 2).Font().FontStyle("Bold");
            ++r;
        }
    }
    for (bool bBold : {false, true}) {
        for (const std::string* p : {&sRefOne, &sRefTwo, &sRefFive}) {
            ws.Range(ws.Cells(r, 4), ws.Cells(r, 6)).MergeCells(true);
            ws.Cells(r, 4).Value(*p);
            if (bBold) ws.Cells(r, 4).Font().FontStyle("Bold");
            ++r;
        }
    }
    ws.Cells().VerticalAlignment(xlTop);
}

// What LibreOffice makes of a workbook's rows, through tests/tools/lo_rows.py; empty when
// LibreOffice or its Python bridge is not installed.
inline jsonlite::Value LibreOfficeRows(const std::string& sFile) {
    const std::string sCmd = "/usr/bin/python3 '" + testutil::SourceDir() +
                             "/tests/tools/lo_rows.py' '" + sFile + "' 2>/dev/null";
    FILE* p = popen(sCmd.c_str(), "r");
    if (!p) throw std::runtime_error("cannot run lo_rows.py");
    std::string s;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        s.append(buf, n);
    const int rc = pclose(p);
    if (WIFEXITED(rc) && WEXITSTATUS(rc) == 3) return jsonlite::Value();
    if (rc != 0) throw std::runtime_error("lo_rows.py failed: " + s);
    return jsonlite::Parse(s)[sFile];
}

// Two sheets as the views lay them out: the first with a row outline (rows 3 to 12 at levels 2
// to 8 and back, summary rows above their details), the second a list with its header row
// frozen and an AutoFilter over it; a third sheet with rows and columns frozen and nothing
// else.
inline void FillWindowAndOutline(xl::xlWorkbook& book) {
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(1, 1).Value("Level");
    ws.Cells(1, 2).Value("Item ID");
    const long arrLevel[] = {0, 1, 2, 3, 4, 5, 6, 7, 9, 1};
    for (long i = 0; i < 10; ++i) {
        ws.Cells(i + 3, 1).Value(static_cast<double>(arrLevel[i]));
        ws.Cells(i + 3, 2).Value("P-" + std::to_string(i));
        ws.Rows(i + 3).OutlineLevel(std::min(arrLevel[i], 7L) + 1);
    }
    ws.Rows(15).OutlineLevel(3);  // a row with an outline level and nothing else
    ws.OutlineSummaryRow(xlSummaryAbove);

    xlWorksheet& w2 = book.Worksheets().Add();
    w2.Name("Where Used");
    const char* arrHead[] = {"Item ID", "Revision", "Parent ID", "Quantity"};
    for (long c = 0; c < 4; ++c) {
        w2.Cells(1, c + 1).Value(arrHead[c]);
        w2.Cells(1, c + 1).Font().Bold(true);
    }
    for (long r = 2; r <= 40; ++r) {
        w2.Cells(r, 1).Value("P-" + std::to_string(r));
        w2.Cells(r, 2).Value("A");
        w2.Cells(r, 3).Value("P-" + std::to_string(r / 2));
        w2.Cells(r, 4).Value(static_cast<double>(r % 5));
    }
    w2.FreezePanes(2, 1);
    w2.Range(w2.Cells(1, 1), w2.Cells(40, 4)).AutoFilter();

    xlWorksheet& w3 = book.Worksheets().Add();
    w3.Cells(1, 1).Value("x");
    w3.FreezePanes(3, 2);
}

// What a saved FillWindowAndOutline workbook must show, in either file format.
inline void ExpectWindowAndOutline(const jsonlite::Value& v) {
    const jsonlite::Value& s1 = v["sheets"][0];
    EXPECT_TRUE(s1["freeze_panes"].IsNull());
    EXPECT_TRUE(s1["auto_filter"].IsNull());
    EXPECT_FALSE(s1["summary_below"].Bool());
    const long arrWant[] = {0, 1, 2, 3, 4, 5, 6, 7, 7, 1};
    for (long i = 0; i < 10; ++i) {
        const jsonlite::Value& o = s1["outline_levels"][std::to_string(i + 3)];
        if (arrWant[i] == 0) {
            EXPECT_TRUE(o.IsNull()) << i;
        } else {
            EXPECT_EQ(o.Num(), arrWant[i]) << i;
        }
    }
    EXPECT_EQ(s1["outline_levels"]["15"].Num(), 2);
    EXPECT_EQ(s1["outline_levels"].Size(), 10u);

    const jsonlite::Value& s2 = v["sheets"][1];
    EXPECT_EQ(s2["title"].Str(), "Where Used");
    EXPECT_EQ(s2["freeze_panes"].Str(), "A2");
    EXPECT_EQ(s2["auto_filter"].Str(), "A1:D40");
    EXPECT_TRUE(s2["summary_below"].Bool());
    EXPECT_EQ(s2["outline_levels"].Size(), 0u);
    EXPECT_EQ(s2["cells"]["D7"]["value"].Num(), 2);

    const jsonlite::Value& s3 = v["sheets"][2];
    EXPECT_EQ(s3["freeze_panes"].Str(), "B3");
    EXPECT_TRUE(s3["auto_filter"].IsNull());
}

}  // namespace saverfixtures
