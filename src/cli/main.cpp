// orv-export-excel: the command-line tool. Runs one export through ParseMain and prints the
// workbook's path; every log line of the call also goes to standard error.
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "iclsExportExcel.h"
#include "orvSettingsCheck.h"
#include "support/clsComponentRegistry.h"

namespace {

// SIGINT and SIGTERM only set the export's stop flag (a lock-free atomic store, safe in a signal
// handler) and remember the signal; the export then ends on its own, saving nothing and leaving
// no temporary file, and the tool exits with 128 + the signal's number. The flag has static
// storage: a signal may come at any moment until the process is gone, while it exits too.
static_assert(std::atomic<bool>::is_always_lock_free);
std::atomic<bool> g_bStop{false};
volatile std::sig_atomic_t g_nSignal = 0;

extern "C" void OnStopSignal(int nSignal) {
    g_nSignal = nSignal;
    g_bStop.store(true, std::memory_order_relaxed);
}

// The stop flag as the export takes it; nothing deletes it.
std::shared_ptr<std::atomic<bool>> StopFlag() {
    return std::shared_ptr<std::atomic<bool>>(&g_bStop, [](std::atomic<bool>*) {});
}

void InstallStopHandlers() {
    struct sigaction sa {};
    sa.sa_handler = OnStopSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

// The progress of a long export on standard error, when that is a terminal: one line,
// rewritten in place at most five times a second, cleared before a log line and at the end.
// An export that is over within a quarter of a second shows nothing.
class ProgressLine {
public:
    explicit ProgressLine(bool bOn) : bOn_(bOn), tStart_(Clock::now()) {}

    void Show(const clsProgress& p) {
        if (!bOn_) return;
        const auto tNow = Clock::now();
        if (tNow - tStart_ < std::chrono::milliseconds(250)) return;
        if (bShown_ && tNow - tLast_ < std::chrono::milliseconds(200)) return;
        tLast_ = tNow;
        char sLine[160];
        if (p.eStage == clsProgress::Stage::Parsing) {
            std::snprintf(sLine, sizeof sLine, "Reading the data file: %ld objects", p.lDone);
        } else if (p.lTotal > 0) {
            std::snprintf(sLine, sizeof sLine, "Writing the workbook: %ld of %ld rows (%ld%%)",
                          p.lDone, p.lTotal, p.lDone * 100 / p.lTotal);
        } else {
            std::snprintf(sLine, sizeof sLine, "Writing the workbook: %ld rows", p.lDone);
        }
        std::cerr << "\r\033[K" << sLine << std::flush;
        bShown_ = true;
    }

    void Clear() {
        if (!bShown_) return;
        std::cerr << "\r\033[K" << std::flush;
        bShown_ = false;
    }

private:
    using Clock = std::chrono::steady_clock;
    bool bOn_;
    bool bShown_ = false;
    Clock::time_point tStart_;
    Clock::time_point tLast_;
};

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

const char* const kUsage =
    "Usage: orv-export-excel [OPTIONS] DATA_XML SETTINGS_XML SETUP [EXTENSION]\n"
    "       orv-export-excel --check-settings SETTINGS_XML [SETUP] [--format text|json]\n"
    "Try 'orv-export-excel --help' for more information.\n";

int UsageError(const std::string& sWhat) {
    std::cerr << "orv-export-excel: " << sWhat << "\n" << kUsage;
    return 2;
}

// --check-settings: the report on standard output; 0 nothing found, 1 findings, 2 the settings
// or the setup cannot be read.
int RunSettingsCheck(const std::vector<std::string>& arrArgs, bool bJson) {
    std::string sSetupXml, sError;
    if (arrArgs.size() > 1 && !ReadSetup(arrArgs[1], sSetupXml, sError)) {
        std::cerr << "orv-export-excel: " << sError << "\n";
        return 2;
    }
    const clsSettingsCheckResult r = CheckSettings(arrArgs[0], sSetupXml);
    if (r.iStatus == 2) std::cerr << "orv-export-excel: " << r.sError << "\n";
    if (bJson) {
        std::cout << FormatSettingsCheckJson(r) << std::flush;
    } else if (r.iStatus != 2) {
        std::cout << FormatSettingsCheckText(r) << std::flush;
    }
    return r.iStatus;
}

}  // namespace

int main(int argc, char** argv) {
    // Listen for the stop signals first, so that no moment of a run ends by the default action.
    const auto pStop = StopFlag();
    InstallStopHandlers();

    CLI::App app{
        "Turns a product-data export XML file into a spreadsheet workbook (.xls or .xlsx).\n"
        "Failures are written to ExportExcel.log in the export folder and to standard error.",
        "orv-export-excel"};
    std::string sData, sSettings, sSetup, sExtension;
    std::string sGrouping = "ranges";
    std::string sViews;
    bool bQuiet = false;
    std::vector<std::string> arrCheck;
    std::string sFormat = "text";
    // DATA_XML, SETTINGS_XML and SETUP are required for an export, not for the settings check.
    CLI::Option* optData = app.add_option("DATA_XML", sData, "The export data XML file");
    CLI::Option* optSettings = app.add_option("SETTINGS_XML", sSettings, "The settings XML file");
    CLI::Option* optSetup = app.add_option(
        "SETUP", sSetup, "The setup XML text (when it starts with '<') or a file holding it");
    CLI::Option* optExtension =
        app.add_option("EXTENSION", sExtension,
                       "Extension of the workbook file, with its dot (default .xls: an Excel "
                       "97-2003 workbook; any other extension, .xlsx included, gives an Office "
                       "Open XML workbook)");
    CLI::Option* optCheck =
        app.add_option("--check-settings", arrCheck,
                       "Check a settings file instead of exporting (no data file needed): every "
                       "label the export reads, where it is looked up and what it falls back "
                       "to, and the elements no export reads. With SETUP, the export kind and "
                       "mode it names; without, all of them")
            ->expected(1, 2)
            ->type_name("SETTINGS_XML [SETUP]");
    app.add_option("--format", sFormat, "Report format of --check-settings: 'text' or 'json'")
        ->check(CLI::IsMember({"text", "json"}))
        ->needs(optCheck);
    app.add_option("--refdes-grouping", sGrouping,
                   "How reference designators are grouped: 'ranges' (R1-R3) or 'none'")
        ->check(CLI::IsMember({"ranges", "none"}));
    CLI::Option* optViews = app.add_option(
        "--views", sViews,
        "The workbook's views, in place of what the settings say: a comma-separated list of "
        "'level' (a level sheet), 'flat' (a flattened list), 'where-used' and 'outline' (the "
        "main panel grouped by level), or 'none'");
    optViews->type_name("LIST");
    app.add_flag("-q,--quiet", bQuiet, "Show no progress on standard error");
    app.set_version_flag("--version", std::string("orv-export-excel ") + orvExportExcelVersion());
    app.footer(
        "Exit status: 0 when the workbook was written, 1 when the export failed (see the log "
        "lines) or the workbook could not be saved (a last line says why), 2 for a usage error "
        "or an unreadable setup file, 130 or 143 when SIGINT or SIGTERM stopped it (nothing is "
        "written then).\n"
        "With --check-settings: 0 when no label falls back and nothing is unused, 1 when the "
        "check found something, 2 when the settings or the setup cannot be read.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return UsageError(e.what());
    }

    if (optCheck->count() > 0) {
        for (const CLI::Option* opt : {optData, optSettings, optSetup, optExtension, optViews}) {
            if (opt->count() > 0) return UsageError("--check-settings takes no " + opt->get_name());
        }
        return RunSettingsCheck(arrCheck, sFormat == "json");
    }
    for (const CLI::Option* opt : {optData, optSettings, optSetup}) {
        if (opt->count() == 0) return UsageError(opt->get_name() + " is required");
    }

    std::optional<clsViews> oViews;
    if (optViews->count() > 0) {
        clsViews oList;
        std::string sViewError;
        if (!ParseViewList(sViews, oList, sViewError)) return UsageError("--views: " + sViewError);
        oViews = oList;
    }

    std::string sSetupXml, sError;
    if (!ReadSetup(sSetup, sSetupXml, sError)) {
        std::cerr << "orv-export-excel: " << sError << "\n";
        return 2;
    }

    auto oExport = CreateExportExcel();
    oExport->SetViews(oViews);
    ProgressLine oProgress(!bQuiet && ::isatty(STDERR_FILENO) == 1);
    oExport->SetLogObserver([&oProgress](const std::string& sLine) {
        oProgress.Clear();
        std::cerr << sLine << std::endl;
    });
    oExport->SetProgressObserver([&oProgress](const clsProgress& p) { oProgress.Show(p); });
    if (sGrouping == "none") {
        oExport->RegisterGroup(GROUP_PROG_ID, [] { return std::make_unique<clsGroupNone>(); });
    }

    oExport->SetCancelFlag(pStop);

    bool bResult = oExport->ParseMain(sData, sSettings, sSetupXml, sExtension);
    oProgress.Clear();
    if (!bResult && g_nSignal != 0) {
        std::cerr << "orv-export-excel: interrupted, no workbook written" << std::endl;
        return 128 + static_cast<int>(g_nSignal);
    }
    // A workbook that was filled but could not be saved is a failure here, whatever the result.
    const clsWorkbookState oBook = oExport->LastWorkbookState();
    if (!oBook.sFailure.empty() || (bResult && !oBook.bWritten)) {
        std::cerr << "orv-export-excel: cannot write the workbook '" << oBook.sPath << "': "
                  << (oBook.sFailure.empty() ? "the save did not complete" : oBook.sFailure)
                  << std::endl;
        return 1;
    }
    if (!bResult) return 1;
    std::cout << oExport->LastWorkbookPath() << std::endl;
    return 0;
}
