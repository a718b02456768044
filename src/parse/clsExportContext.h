// Everything one ParseMain call keeps: created by the driver for each call and passed down to the
// settings lookups, the parser and the workbook builder. Nothing of it outlives the call.
// It lives beside the export model it holds; what it adds to the ground floor's run context
// comes from the floors below (settings, the model, the label tables).
#pragma once

#include <memory>
#include <string>

#include "parse/ExportModel.h"
#include "settings/clsXMLIniData.h"
#include "support/clsLabelTables.h"
#include "support/clsRunContext.h"

struct clsExportContext : clsRunContext {
    std::unique_ptr<clsXMLIniData> IniData;
    clsLabelTables Labels;
    clsExportModel Model;
    std::string WorkbookPath;  // set when the workbook was written
};
