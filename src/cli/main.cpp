// orv-export-excel: the command-line tool. Runs one export through ParseMain and prints the
// workbook's path; every log line of the call also goes to standard error.
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "iclsExportExcel.h"
#include "support/clsComponentRegistry.h"

namespace {

// SETUP is the setup XML itself when it starts with "<", else the path of a file holding it.
bool ReadSetup(const std::string& sSetup, std::string& sXml, std::string& sError) {
    if (!sSetup.empty() && sSetup[0] == '<') {
        sXml = sSetup;
        return true;
    }
    std::ifstream in(sSetup, std::ios::binary);
    if (!in) {
        sError = "cannot read setup file '" + sSetup + "'";
        return false;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    sXml = ss.str();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Turns a product-data export XML file into a spreadsheet workbook (.xlsx format).\n"
        "Failures are written to ExportExcel.log in the export folder and to standard error.",
        "orv-export-excel"};
    std::string sData, sSettings, sSetup, sExtension;
    std::string sGrouping = "ranges";
    bool bQuiet = false;
    app.add_option("DATA_XML", sData, "The export data XML file")->required();
    app.add_option("SETTINGS_XML", sSettings, "The settings XML file")->required();
    app.add_option("SETUP", sSetup,
                   "The setup XML text (when it starts with '<') or a file holding it")
        ->required();
    app.add_option("EXTENSION", sExtension,
                   "Extension of the workbook file, with its dot (default .xls; the file is "
                   "an Office Open XML workbook whatever the extension)");
    app.add_option("--refdes-grouping", sGrouping,
                   "How reference designators are grouped: 'ranges' (R1-R3) or 'none'")
        ->check(CLI::IsMember({"ranges", "none"}));
    app.add_flag("-q,--quiet", bQuiet, "Show no progress on standard error");
    app.set_version_flag("--version", std::string("orv-export-excel ") + orvExportExcelVersion());
    app.footer(
        "Exit status: 0 when the workbook was written, 1 when the export failed (see the log "
        "lines), 2 for a usage error or an unreadable setup file.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "orv-export-excel: " << e.what() << "\n"
                  << "Usage: orv-export-excel [OPTIONS] DATA_XML SETTINGS_XML SETUP [EXTENSION]\n"
                  << "Try 'orv-export-excel --help' for more information.\n";
        return 2;
    }

    std::string sSetupXml, sError;
    if (!ReadSetup(sSetup, sSetupXml, sError)) {
        std::cerr << "orv-export-excel: " << sError << "\n";
        return 2;
    }

    auto oExport = CreateExportExcel();
    oExport->SetLogObserver([](const std::string& sLine) { std::cerr << sLine << std::endl; });
    if (sGrouping == "none") {
        oExport->RegisterGroup(GROUP_PROG_ID, [] { return std::make_unique<clsGroupNone>(); });
    }
    (void)bQuiet;

    bool bResult = oExport->ParseMain(sData, sSettings, sSetupXml, sExtension);
    if (!bResult) return 1;
    std::cout << oExport->LastWorkbookPath() << std::endl;
    return 0;
}
