// Everything one ParseMain call keeps: created by the driver for each call and passed down to the
// settings, the parser and the workbook builder. Nothing of it outlives the call.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "iclsExportExcel.h"
#include "parse/ExportModel.h"
#include "settings/clsXMLIniData.h"
#include "support/clsComponentRegistry.h"
#include "support/clsLabelTables.h"
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
};

struct clsExportContext {
    clsExportOptions Options;
    std::string LogFilePath;
    clsErrObject Err;
    std::unique_ptr<clsXMLIniData> IniData;
    modResources::clsResources Res;
    clsLabelTables Labels;
    clsExportModel Model;
    std::string WorkbookPath;         // set when the workbook was written
    bool bInterruptReported = false;  // the interruption has its log line

    bool CancelRequested() const {
        return Options.CancelFlag && Options.CancelFlag->load(std::memory_order_relaxed);
    }
};
