// orv-export-excel: the command-line tool. Runs one export through ParseMain and prints the
// workbook's path, or with --batch one export per data file of a list on several threads;
// every log line of the calls also goes to standard error.
#include <malloc.h>
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
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

// One line on standard error that is drawn over in place, and cleared before anything else is
// written there.
class TerminalLine {
public:
    void Draw(const char* sLine) {
        std::cerr << "\r\033[K" << sLine << std::flush;
        bShown_ = true;
    }
    void Clear() {
        if (!bShown_) return;
        std::cerr << "\r\033[K" << std::flush;
        bShown_ = false;
    }
    bool Shown() const { return bShown_; }

private:
    bool bShown_ = false;
};

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
        // The end of the writing always shows, however soon after the line before it.
        const bool bEnd =
            p.eStage == clsProgress::Stage::Writing && p.lTotal > 0 && p.lDone >= p.lTotal;
        if (!bEnd && oLine_.Shown() && tNow - tLast_ < std::chrono::milliseconds(200)) return;
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
        oLine_.Draw(sLine);
    }

    void Clear() { oLine_.Clear(); }

private:
    using Clock = std::chrono::steady_clock;
    bool bOn_;
    TerminalLine oLine_;
    Clock::time_point tStart_;
    Clock::time_point tLast_;
};

// All of standard input, as it is.
bool ReadStdin(std::string& sText) {
    std::ostringstream ss;
    ss << std::cin.rdbuf();
    sText = ss.str();
    return !std::cin.bad();
}

// The text an argument names: "-" reads standard input, anything else is a file's path. sWhat
// and sFileWhat name it in the error.
bool ReadArgumentText(const std::string& sArg, const std::string& sWhat,
                      const std::string& sFileWhat, std::string& sText, std::string& sError) {
    if (sArg == "-") {
        if (ReadStdin(sText)) return true;
        sError = "cannot read " + sWhat + " from standard input";
        return false;
    }
    std::ifstream in(sArg, std::ios::binary);
    if (!in) {
        sError = "cannot read " + sFileWhat + " '" + sArg + "'";
        return false;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    sText = ss.str();
    return true;
}

// SETUP is the setup XML itself when its first character other than white space is "<" (the
// white space in front is dropped), "-" reads it from standard input, else it is the path of a
// file holding it.
bool ReadSetup(const std::string& sSetup, std::string& sXml, std::string& sError) {
    const size_t lFirst = sSetup.find_first_not_of(" \t\r\n\f\v");
    if (lFirst != std::string::npos && sSetup[lFirst] == '<') {
        sXml = sSetup.substr(lFirst);
        return true;
    }
    if (!ReadArgumentText(sSetup, "the setup", "setup file", sXml, sError)) return false;
    if (sSetup == "-") {
        const size_t lStart = sXml.find_first_not_of(" \t\r\n\f\v");
        sXml.erase(0, lStart == std::string::npos ? sXml.size() : lStart);
    }
    return true;
}

// An extension without its leading dot is used as given; the note says what name results.
void NoteExtension(const std::string& sExtension, const std::string& sWorkbookPath) {
    std::cerr << "orv-export-excel: note: the extension '" << sExtension
              << "' has no leading dot and is used as given: the workbook is '" << sWorkbookPath
              << "'" << std::endl;
}

bool ExtensionWithoutDot(const std::string& sExtension) {
    return !sExtension.empty() && sExtension[0] != '.';
}

const char* const kUsage =
    "Usage: orv-export-excel [OPTIONS] DATA_XML SETTINGS_XML SETUP [EXTENSION]\n"
    "       orv-export-excel [OPTIONS] --batch LIST [-j N] SETTINGS_XML SETUP [EXTENSION]\n"
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

// The data files of a batch list: one path a line; blank lines and lines starting with "#" are
// skipped, white space around a path is dropped. "-" reads the list from standard input.
bool ReadBatchList(const std::string& sList, std::vector<std::string>& arrFiles,
                   std::string& sError) {
    std::string sText;
    if (!ReadArgumentText(sList, "the list", "list file", sText, sError)) return false;
    std::istringstream in(sText);
    std::string sLine;
    const char* const kSpace = " \t\r\n\f\v";
    while (std::getline(in, sLine)) {
        const size_t lFirst = sLine.find_first_not_of(kSpace);
        if (lFirst == std::string::npos || sLine[lFirst] == '#') continue;
        const size_t lLast = sLine.find_last_not_of(kSpace);
        arrFiles.push_back(sLine.substr(lFirst, lLast - lFirst + 1));
    }
    return true;
}

// What every export of a batch shares.
struct clsBatchSettings {
    std::string sSettings;
    std::string sSetupXml;
    std::string sExtension;
    std::string sOutputDir;
    bool bGroupNone = false;
    bool bProgress = false;
    bool bWriteAhead = true;  // the exports leave a core free for each one's writer
    std::shared_ptr<std::atomic<bool>> pStop;
};

// The batch's state: the next file to start, the counts, the files in progress, and the one
// lock under which every line reaches standard output or standard error.
class clsBatchRun {
public:
    clsBatchRun(const clsBatchSettings& oSettings, const std::vector<std::string>& arrFiles)
        : oSettings_(oSettings), arrFiles_(arrFiles) {}

    int Run(unsigned nThreads) {
        std::vector<std::thread> arrThreads;
        for (unsigned i = 0; i < nThreads; ++i)
            arrThreads.emplace_back([this] { Work(); });
        for (auto& th : arrThreads)
            th.join();
        std::lock_guard<std::mutex> oLock(oOutLock_);
        ClearProgress();
        const size_t lTotal = arrFiles_.size();
        std::cout << lExported_ << " of " << lTotal << " exported, " << lFailed_ << " failed";
        const size_t lNotRun = lTotal - lExported_ - lFailed_;
        if (lNotRun > 0) std::cout << ", " << lNotRun << " not exported";
        std::cout << std::endl;
        if (g_nSignal != 0) {
            std::cerr << "orv-export-excel: interrupted, no further export started" << std::endl;
            return 128 + static_cast<int>(g_nSignal);
        }
        return lFailed_ == 0 ? 0 : 1;
    }

private:
    // One thread: its own export object, one ParseMain call per file taken from the list, until
    // the list is done or the batch is stopped.
    void Work() {
        auto oExport = CreateExportExcel();
        std::string sLastLine;
        oExport->SetLogObserver([this, &sLastLine](const std::string& sLine) {
            sLastLine = sLine;
            std::lock_guard<std::mutex> oLock(oOutLock_);
            ClearProgress();
            std::cerr << sLine << std::endl;
            ShowProgress();
        });
        if (oSettings_.bGroupNone) {
            oExport->RegisterGroup(GROUP_PROG_ID, [] { return std::make_unique<clsGroupNone>(); });
        }
        oExport->SetCancelFlag(oSettings_.pStop);
        oExport->SetOutputDir(oSettings_.sOutputDir);
        oExport->SetWriteAhead(oSettings_.bWriteAhead);
        // Each export reuses what the ones before it freed, instead of giving it back to the
        // system and having the next one fault it in again page by page.
        oExport->SetReturnFreedMemory(false);
        for (;;) {
            if (oSettings_.pStop->load()) return;
            const size_t i = lNext_.fetch_add(1);
            if (i >= arrFiles_.size()) return;
            const std::string& sData = arrFiles_[i];
            Started(sData);
            sLastLine.clear();
            const bool bResult = oExport->ParseMain(sData, oSettings_.sSettings,
                                                    oSettings_.sSetupXml, oSettings_.sExtension);
            const clsWorkbookState oBook = oExport->LastWorkbookState();
            std::string sFailure;
            if (!oBook.sFailure.empty() || (bResult && !oBook.bWritten)) {
                sFailure = "cannot write the workbook '" + oBook.sPath + "': " +
                           (oBook.sFailure.empty() ? "the save did not complete" : oBook.sFailure);
            } else if (!bResult) {
                sFailure =
                    sLastLine.empty() ? "no workbook written (no object to export)" : sLastLine;
            }
            Finished(sData, sFailure.empty() ? oExport->LastWorkbookPath() : "", sFailure,
                     oBook.sPath);
        }
    }

    void Started(const std::string& sData) {
        std::lock_guard<std::mutex> oLock(oOutLock_);
        arrRunning_.push_back(sData);
        ShowProgress();
    }

    void Finished(const std::string& sData, const std::string& sWorkbook,
                  const std::string& sFailure, const std::string& sPathTried) {
        std::lock_guard<std::mutex> oLock(oOutLock_);
        ClearProgress();
        arrRunning_.erase(std::find(arrRunning_.begin(), arrRunning_.end(), sData));
        const bool bInterrupted = sWorkbook.empty() && oSettings_.pStop->load();
        if (bInterrupted) {
            std::cout << "INTERRUPTED " << sData << std::endl;
        } else if (!sWorkbook.empty()) {
            ++lExported_;
            std::cout << sWorkbook << std::endl;
        } else {
            ++lFailed_;
            std::cout << "FAILED " << sData << ": " << sFailure << std::endl;
        }
        if (!bNoted_ && ExtensionWithoutDot(oSettings_.sExtension) && !sPathTried.empty()) {
            bNoted_ = true;
            NoteExtension(oSettings_.sExtension, sPathTried);
        }
        ShowProgress();
    }

    // Progress on a terminal: files done, and the file in progress (with how many others run).
    void ShowProgress() {
        if (!oSettings_.bProgress || arrRunning_.empty()) return;
        const std::string sName = std::filesystem::path(arrRunning_.front()).filename().string();
        const std::string sMore = arrRunning_.size() > 1
                                      ? " and " + std::to_string(arrRunning_.size() - 1) + " more"
                                      : std::string();
        char sLine[200];
        std::snprintf(sLine, sizeof sLine, "Batch: %zu of %zu done; exporting %.120s%s",
                      lExported_ + lFailed_, arrFiles_.size(), sName.c_str(), sMore.c_str());
        oLine_.Draw(sLine);
    }

    void ClearProgress() { oLine_.Clear(); }

    const clsBatchSettings& oSettings_;
    const std::vector<std::string>& arrFiles_;
    std::atomic<size_t> lNext_{0};
    std::mutex oOutLock_;
    std::vector<std::string> arrRunning_;
    size_t lExported_ = 0;
    size_t lFailed_ = 0;
    TerminalLine oLine_;
    bool bNoted_ = false;
};

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
    std::string sOutputDir, sBatchList;
    unsigned nJobs = 0;
    // DATA_XML, SETTINGS_XML and SETUP are required for an export, not for the settings check.
    CLI::Option* optData = app.add_option("DATA_XML", sData, "The export data XML file");
    CLI::Option* optSettings = app.add_option("SETTINGS_XML", sSettings, "The settings XML file");
    CLI::Option* optSetup = app.add_option(
        "SETUP", sSetup,
        "The setup XML text (when its first character other than white space is '<'), '-' to "
        "read it from standard input, or a file holding it");
    CLI::Option* optExtension =
        app.add_option("EXTENSION", sExtension,
                       "Extension of the workbook file, with its dot (default .xls: an Excel "
                       "97-2003 workbook; any other extension, .xlsx included, gives an Office "
                       "Open XML workbook). Without the dot it is used as given, and a note "
                       "on standard error names the file");
    app.add_option("-o,--output-dir", sOutputDir,
                   "Write the workbook into DIR (an existing folder) instead of the data file's "
                   "folder, under the same name")
        ->type_name("DIR");
    CLI::Option* optBatch =
        app.add_option("--batch", sBatchList,
                       "Export every data file named in LIST (one path a line, '-' for standard "
                       "input; blank lines and lines starting with '#' are skipped) with the "
                       "same SETTINGS_XML, SETUP and EXTENSION, which then follow without "
                       "DATA_XML. Prints one line per file (the workbook, or 'FAILED' with the "
                       "file and why) and a final count")
            ->type_name("LIST");
    app.add_option("-j,--jobs", nJobs,
                   "Exports run at once in a batch (default: the number of cores)")
        ->check(CLI::Range(1u, 1024u))
        ->needs(optBatch);
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
        "With --batch: 0 when every file was exported, 1 when any failed, 2 for a usage error; "
        "SIGINT or SIGTERM stops the running exports and starts no new one (130 or 143).\n"
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
        if (optBatch->count() > 0) return UsageError("--check-settings takes no --batch");
        return RunSettingsCheck(arrCheck, sFormat == "json");
    }
    const bool bBatch = optBatch->count() > 0;
    if (bBatch) {
        // A batch names no data file: the words shift by one.
        if (optExtension->count() > 0) return UsageError("--batch takes no DATA_XML");
        if (optData->count() == 0) return UsageError("SETTINGS_XML is required");
        if (optSettings->count() == 0) return UsageError("SETUP is required");
        sExtension = sSetup;
        sSetup = sSettings;
        sSettings = sData;
        sData.clear();
        if (sBatchList == "-" && sSetup == "-") {
            return UsageError("the list and the setup cannot both come from standard input");
        }
    } else {
        for (const CLI::Option* opt : {optData, optSettings, optSetup}) {
            if (opt->count() == 0) return UsageError(opt->get_name() + " is required");
        }
    }
    if (!sOutputDir.empty()) {
        std::error_code ec;
        if (!std::filesystem::is_directory(sOutputDir, ec)) {
            std::cerr << "orv-export-excel: the output folder '" << sOutputDir
                      << "' is not an existing folder\n";
            return 2;
        }
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

    if (bBatch) {
        std::vector<std::string> arrFiles;
        if (!ReadBatchList(sBatchList, arrFiles, sError)) {
            std::cerr << "orv-export-excel: " << sError << "\n";
            return 2;
        }
        clsBatchSettings oBatch;
        oBatch.sSettings = sSettings;
        oBatch.sSetupXml = sSetupXml;
        oBatch.sExtension = sExtension;
        oBatch.sOutputDir = sOutputDir;
        oBatch.bGroupNone = sGrouping == "none";
        oBatch.bProgress = !bQuiet && ::isatty(STDERR_FILENO) == 1;
        oBatch.pStop = pStop;
        unsigned nThreads = nJobs > 0 ? nJobs : std::max(1u, std::thread::hardware_concurrency());
        nThreads =
            static_cast<unsigned>(std::max<size_t>(1, std::min<size_t>(nThreads, arrFiles.size())));
        // Exports on every core keep to one each: a writer beside each would only wait.
        oBatch.bWriteAhead = nThreads < std::max(1u, std::thread::hardware_concurrency());
        clsBatchRun oRun(oBatch, arrFiles);
        return oRun.Run(nThreads);
    }

    // One export: the export's thread and the file writer's, which takes the rows while they
    // are laid out, have a heap each, so that neither waits for the other's allocations. Blocks
    // of a quarter megabyte and more are mapped on their own and go back to the system when
    // freed, instead of raising the heaps' high-water mark (the model's growing row lists).
    ::mallopt(M_ARENA_MAX, 2);
    ::mallopt(M_MMAP_THRESHOLD, 256 * 1024);
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
    oExport->SetOutputDir(sOutputDir);

    bool bResult = oExport->ParseMain(sData, sSettings, sSetupXml, sExtension);
    oProgress.Clear();
    if (ExtensionWithoutDot(sExtension) && !oExport->LastWorkbookState().sPath.empty()) {
        NoteExtension(sExtension, oExport->LastWorkbookState().sPath);
    }
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
