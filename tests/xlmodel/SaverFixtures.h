// What the saver tests of both file formats share: rows of texts of one, two and five lines to
// fit, what LibreOffice makes of a saved workbook's rows, texts that compress little.
#pragma once

#include <sys/wait.h>

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

}  // namespace saverfixtures
