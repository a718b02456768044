// orv-baseline: the fastest an export can be. Reads a dump written by orv-model-dump into
// memory, then makes the same libxlsxwriter calls in the same order (constant-memory mode), with
// nothing else in between, and prints how long the writing took and how much memory the writer
// itself took at most (its peak resident memory over what the dump already held):
//
//     orv-baseline DUMP XLSX_OUT      prints "write SECONDS" and "writer_mb MB" on standard output
//                                     (the latter only where the peak could be counted anew)
//
// Knows nothing of exports: it only replays lines.
#include <xlsxwriter.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "DumpReader.h"

using dump::D;
using dump::DumpOp;
using dump::U;

namespace {

// A figure of /proc/self/status ("VmRSS", "VmHWM") in kB, 0 where there is none.
long StatusKb(const char* sField) {
    std::ifstream in("/proc/self/status");
    std::string sLine;
    const size_t n = std::strlen(sField);
    while (std::getline(in, sLine)) {
        if (sLine.compare(0, n, sField) == 0 && sLine.size() > n && sLine[n] == ':')
            return std::strtol(sLine.c_str() + n + 1, nullptr, 10);
    }
    return 0;
}

// From here on the peak resident memory counts anew (Linux: clear_refs 5); false where the
// system refuses, and the peak still holds the reading of the dump.
bool ResetPeak() {
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: orv-baseline DUMP XLSX_OUT\n");
        return 2;
    }
    std::vector<char> buf;
    if (!dump::ReadDumpFile(argv[1], buf)) return 1;
    const std::vector<DumpOp> arrOps = dump::ParseDump(buf);

    const bool bPeakReset = ResetPeak();
    const long lHeldKb = StatusKb("VmRSS");
    const auto t0 = std::chrono::steady_clock::now();
    // Temporary files beside the output, as the export keeps them.
    std::string sDir = argv[2];
    sDir = sDir.find('/') == std::string::npos ? "." : sDir.substr(0, sDir.rfind('/'));
    lxw_workbook_options opt{};
    opt.constant_memory = LXW_TRUE;
    opt.tmpdir = sDir.data();
    lxw_workbook* wb = workbook_new_opt(argv[2], &opt);
    if (!wb) return 1;
    lxw_worksheet* ws = nullptr;
    std::vector<lxw_format*> arrFmt;
    auto F = [&](const char* s) -> lxw_format* {
        const long i = std::strtol(s, nullptr, 10);
        return i < 0 ? nullptr : arrFmt[static_cast<size_t>(i)];
    };
    int err = 0;
    for (const DumpOp& op : arrOps) {
        const auto& a = op.arrField;
        switch (op.cKind) {
            case 'F': {
                lxw_format* f = workbook_add_format(wb);
                if (a[1][0] == '1') format_set_bold(f);
                if (a[2][0] == '1') format_set_italic(f);
                if (a[3][0] == '1') format_set_underline(f, LXW_UNDERLINE_SINGLE);
                if (a[4][0] != '-') format_set_font_color(f, std::strtoul(a[4], nullptr, 16));
                if (D(a[5]) != 11) format_set_font_size(f, D(a[5]));
                if (a[6][0] != '-') {
                    format_set_pattern(f, LXW_PATTERN_SOLID);
                    format_set_bg_color(f, std::strtoul(a[6], nullptr, 16));
                }
                if (U(a[7])) format_set_left(f, static_cast<uint8_t>(U(a[7])));
                if (U(a[8])) format_set_top(f, static_cast<uint8_t>(U(a[8])));
                if (U(a[9])) format_set_bottom(f, static_cast<uint8_t>(U(a[9])));
                if (U(a[10])) format_set_right(f, static_cast<uint8_t>(U(a[10])));
                if (U(a[11])) format_set_align(f, static_cast<uint8_t>(U(a[11])));
                if (U(a[12])) format_set_align(f, static_cast<uint8_t>(U(a[12])));
                if (a[13][0] == '1') format_set_text_wrap(f);
                if (a[14][0]) format_set_num_format(f, a[14]);
                arrFmt.push_back(f);
                break;
            }
            case 'W':
                ws = workbook_add_worksheet(wb, a[0]);
                if (D(a[1]) != 15.0) worksheet_set_default_row(ws, D(a[1]), LXW_FALSE);
                break;
            case 'R':
                if (a.size() > 3) {
                    lxw_row_col_options opt{};
                    opt.level = static_cast<uint8_t>(U(a[3]));
                    err |= worksheet_set_row_opt(ws, U(a[0]), D(a[1]), F(a[2]), &opt);
                } else {
                    err |= worksheet_set_row(ws, U(a[0]), D(a[1]), F(a[2]));
                }
                break;
            case 'Z':
                worksheet_freeze_panes(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])));
                break;
            case 'O':
                worksheet_outline_settings(ws, LXW_TRUE, LXW_FALSE, LXW_TRUE, LXW_FALSE);
                break;
            case 'Y':
                err |= worksheet_autofilter(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), U(a[2]),
                                            static_cast<lxw_col_t>(U(a[3])));
                break;
            case 'M':
                err |= worksheet_merge_range(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), U(a[2]),
                                             static_cast<lxw_col_t>(U(a[3])), "", nullptr);
                break;
            case 'S':
                err |= worksheet_write_string(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), a[3],
                                              F(a[2]));
                break;
            case 'N':
                err |= worksheet_write_number(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), D(a[3]),
                                              F(a[2]));
                break;
            case 'E':
                err |= worksheet_write_formula_str(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])),
                                                   a[3], F(a[2]), a[4]);
                break;
            case 'B':
                err |= worksheet_write_blank(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), F(a[2]));
                break;
            case 'U':
                err |= worksheet_write_url_opt(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), a[3],
                                               F(a[2]), a[4], a[5][0] ? a[5] : nullptr);
                break;
            case 'C':
                err |= worksheet_set_column(ws, static_cast<lxw_col_t>(U(a[0])),
                                            static_cast<lxw_col_t>(U(a[1])), D(a[2]), F(a[3]));
                break;
            case 'L':
                worksheet_set_landscape(ws);
                break;
            case 'G':
                worksheet_fit_to_pages(ws, static_cast<uint16_t>(U(a[0])),
                                       static_cast<uint16_t>(U(a[1])));
                break;
            case 'Q':
                worksheet_set_print_scale(ws, static_cast<uint16_t>(U(a[0])));
                break;
            case 'X':
                // The used range replaces the dimension that formatted columns widened.
                ws->dim_rowmin = 0;
                ws->dim_colmin = 0;
                ws->dim_rowmax = U(a[0]);
                ws->dim_colmax = static_cast<lxw_col_t>(U(a[1]));
                break;
            case 'T':
                err |= worksheet_repeat_rows(ws, U(a[0]), U(a[1]));
                break;
            case 'A':
                err |= worksheet_print_area(ws, U(a[0]), static_cast<lxw_col_t>(U(a[1])), U(a[2]),
                                            static_cast<lxw_col_t>(U(a[3])));
                break;
            case 'P':
                err |= worksheet_set_footer(ws, a[0]);
                break;
            case 'D':
                err |= workbook_define_name(wb, a[0], a[1]);
                break;
            default:
                break;
        }
    }
    err |= workbook_close(wb);
    const double dWrite =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (err) {
        std::fprintf(stderr, "orv-baseline: the writer reported an error\n");
        return 1;
    }
    std::printf("write %.3f\n", dWrite);
    if (bPeakReset) {
        std::printf("writer_mb %.1f\n", static_cast<double>(StatusKb("VmHWM") - lHeldKb) / 1024.0);
    }
    return 0;
}
