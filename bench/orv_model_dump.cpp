// orv-model-dump: runs the parse and the build of an export as the library does, then writes the
// workbook's dump (the calls that saving it makes to the file writer, one line each) instead of
// saving it, and prints how long each step took on standard error.
//
//     orv-model-dump DATA_XML SETTINGS_XML SETUP_FILE DUMP_OUT [--xls] [--save FILE]
//                    [--views LIST]
//     orv-model-dump DATA_XML SETTINGS_XML SETUP_FILE --parse-only
//
// With --xls the workbook is built as an export to an .xls file builds it: it takes that
// format's limits (65,536 rows and 256 columns a sheet, 4,000 cell formats), so a long sheet
// continues on new ones where that format's sheet ends. With --save the workbook is also saved
// as the export saves it (SaveAs: an .xls file for a name ending in ".xls", else an .xlsx), and
// the save is timed; --views gives the export's views as the tool's option of that name does.
// The rows and cells counted are those of every sheet. The last line on standard error reads
//
//     objects N rows N cells N sheets N | load S s, walk S s, build S s, dump S s, save S s
//
// With --parse-only the data file is only loaded and walked, and "parse SECONDS OBJECTS" is
// printed on standard output.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "driver/clsExportExcel.h"
#include "parse/clsXMLPars.h"
#include "support/clsRunError.h"
#include "support/modResources.h"
#include "workbook/clsBldExcel.h"
#include "xl/xlModelData.h"

// The builder keeps its workbook to itself; this tool only reads it.
struct clsBldExcelTestAccess {
    static xl::xlWorkbook* Workbook(clsBldExcel& b) { return b.oWorkbook_; }
};

namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

std::string ReadFile(const std::string& sPath) {
    std::ifstream in(sPath, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

int main(int argc, char** argv) {
    std::string sSave, sViews;
    bool bXls = false;
    bool bUsage = argc < 5;
    for (int i = 5; i < argc && !bUsage; ++i) {
        const bool bValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--xls") == 0) {
            bXls = true;
        } else if (std::strcmp(argv[i], "--save") == 0 && bValue) {
            sSave = argv[++i];
        } else if (std::strcmp(argv[i], "--views") == 0 && bValue) {
            sViews = argv[++i];
        } else {
            bUsage = true;
        }
    }
    if (bUsage) {
        std::cerr << "usage: orv-model-dump DATA_XML SETTINGS_XML SETUP_FILE "
                     "(DUMP_OUT [--xls] [--save FILE] [--views LIST] | --parse-only)\n";
        return 2;
    }
    const bool bParseOnly = std::strcmp(argv[4], "--parse-only") == 0;
    const std::string sData = argv[1], sSettings = argv[2], sDump = argv[4];
    const std::string sSetup = ReadFile(argv[3]);

    clsExportExcel oExport;
    if (!sViews.empty()) {
        clsViews oViews;
        std::string sError;
        if (!ParseViewList(sViews, oViews, sError)) {
            std::cerr << "orv-model-dump: --views: " << sError << "\n";
            return 2;
        }
        oExport.SetViews(oViews);
    }
    clsExportContext& ctx = oExport.Context();
    ctx.Options.OnLogLine = [](const std::string& s) { std::cerr << s << "\n"; };
    ctx.LogFilePath = "/dev/null";

    auto t0 = Clock::now();
    if (!oExport.GetIniXML(sSettings)) return 1;
    modResources::InitResources(ctx, ctx.IniData.get());
    if (!clsExportExcel::FillExcellCap(ctx, sSetup) || !clsExportExcel::FillAttrLabels(ctx)) {
        std::cerr << "orv-model-dump: the settings or the setup string are not usable\n";
        return 1;
    }
    std::unique_ptr<pugi::xml_document> oDocument;
    clsXMLPars oPars(ctx);
    if (!oPars.LoadCurrentXML(oDocument, sData)) return 1;
    const double dLoad = Since(t0);
    oPars.MainXStruct(*oDocument);
    oDocument.reset();
    const double dParse = Since(t0);
    if (ctx.Model.ObjCount < 0) return 1;
    if (bParseOnly) {
        std::printf("parse %.3f %d\n", dParse, ctx.Model.ObjCount + 1);
        std::fprintf(stderr, "load %.3f s, walk %.3f s\n", dLoad, dParse - dLoad);
        return 0;
    }

    // The builder writes the empty workbook once when it starts; that file is thrown away. Its
    // name gives the workbook its file format.
    const std::string sScratch = sDump + (bXls ? ".start.xls" : ".start.xlsx");
    auto t1 = Clock::now();
    clsBldExcel oBuilder(ctx);
    if (!oBuilder.InitExl(sScratch) || !oBuilder.FillExlFile()) return 1;
    std::remove(sScratch.c_str());
    const double dBuild = Since(t1);
    xl::xlWorkbook& oBook = *clsBldExcelTestAccess::Workbook(oBuilder);
    // Rows and cells of all sheets: a long export continues on new ones.
    const long lSheets = oBook.Worksheets().Count();
    long lRows = 0, lCells = 0;
    for (long i = 1; i <= lSheets; ++i) {
        const auto& d = oBook.Worksheets()(i).Data();
        lRows += static_cast<long>(d.arrRows.size());
        // Rows of finished blocks may have gone to the spool during the build.
        for (size_t r = 0; r < d.arrRows.size(); ++r) {
            if (!d.Spooled(static_cast<long>(r) + 1))
                lCells += static_cast<long>(d.arrRows[r].arrCells.size());
        }
        if (d.pSpool && d.bSpoolOwner) lCells += d.pSpool->lCells;
    }

    auto t2 = Clock::now();
    std::FILE* pOut = std::fopen(sDump.c_str(), "wb");
    if (!pOut) return 1;
    static char buf[1 << 20];
    std::setvbuf(pOut, buf, _IOFBF, sizeof buf);
    xl::DumpWorkbook(oBook, pOut);
    if (std::fclose(pOut) != 0) return 1;
    const double dDump = Since(t2);

    double dSave = 0;
    if (!sSave.empty()) {
        auto t3 = Clock::now();
        const bool bSaved = TrapRun(ctx, "orvModelDump", "SaveWorkbook", false, [&] {
            oBook.SaveAs(sSave);
            return true;
        });
        if (!bSaved) return 1;
        dSave = Since(t3);
    }
    std::fprintf(stderr,
                 "objects %d rows %ld cells %ld sheets %ld | load %.3f s, walk %.3f s, "
                 "build %.3f s, dump %.3f s, save %.3f s\n",
                 ctx.Model.ObjCount + 1, lRows, lCells, lSheets, dLoad, dParse - dLoad, dBuild,
                 dDump, dSave);
    return 0;
}
