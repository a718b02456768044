// Everything one ParseMain call keeps: created by the driver for each call and passed down to the
// settings, the parser and the workbook builder. Nothing of it outlives the call.
#pragma once

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
};

struct clsExportContext {
    clsExportOptions Options;
    std::string LogFilePath;
    clsErrObject Err;
    std::unique_ptr<clsXMLIniData> IniData;
    modResources::clsResources Res;
    clsLabelTables Labels;
    clsExportModel Model;
    std::string WorkbookPath;  // set when the workbook was written
};
