// The part of a call's state that the ground floor needs: the host's options, the log, the
// current error, the message table and whether the host asked the call to stop. The whole
// per-call context (parse/clsExportContext.h) is built on it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "iclsExportExcel.h"
#include "support/clsComponentRegistry.h"
#include "support/clsRunError.h"
#include "support/modResources.h"

// What the host can set for its calls.
struct clsExportOptions {
    // Receives every line written to the log (without the line end); adds nothing to the file.
    std::function<void(const std::string&)> OnLogLine;
    // Receives progress; never reaches the log.
    std::function<void(const clsProgress&)> OnProgress;
    // The components the export may create by programmatic identifier.
    clsComponentRegistry Components = clsComponentRegistry::WithDefaults();
    // Set by the host (from any thread, or from a signal handler) to stop the calls that share
    // it. The export stops at its next progress point with run-time error 18, saves nothing and
    // removes the workbook it had started. Nothing resets it: the host clears it for new calls.
    std::shared_ptr<std::atomic<bool>> CancelFlag;
    // The views of the workbook in place of the settings' EXPORT_VIEWS; none: the settings say.
    std::optional<clsViews> Views;
    // The folder the workbook goes into instead of the data file's folder; empty: the data
    // file's folder. The workbook's name stays the same.
    std::string OutputDir;
    // The first sheet of an .xlsx workbook may go to the file while it is laid out.
    bool WriteAhead = true;
    // Memory the export frees while it runs goes back to the system (after the parse, during
    // the detail blocks, before the file is completed), which lowers its peak.
    bool ReturnFreedMemory = true;
};

struct clsRunContext {
    clsExportOptions Options;
    std::string LogFilePath;
    clsErrObject Err;
    modResources::clsResources Res;
    bool bInterruptReported = false;  // the interruption has its log line

    bool CancelRequested() const {
        return Options.CancelFlag && Options.CancelFlag->load(std::memory_order_relaxed);
    }
};
