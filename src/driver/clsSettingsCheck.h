// The settings check (include/orvSettingsCheck.h): lays out one synthetic export of every kind
// and mode with the real caption step and workbook builder, in memory, while a recorder attached
// to the settings document takes down every lookup; then reads the findings off the records.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "orvSettingsCheck.h"
#include "parse/clsExportContext.h"
#include "settings/clsLookupRecorder.h"

class clsSettingsCheck {
public:
    clsSettingsCheckResult Run(const std::string& sXIniFullPath, const std::string& sSetupXString);

    // What the exports looked up (for the tests of the check itself).
    const clsLookupRecorder& Recorder() const { return oRecorder_; }

    // The name of an export: "items/structure", "documents/collection", ...
    static std::string ExportName(int iKind, int iStructure);

    // Fills the model of a synthetic export of ctx's kind and mode that reaches every block
    // of the workbook: objects with attributes, a part list whose children make the part list
    // read its labels in every section it reads them from, local alternates, manufacturers
    // with suppliers, suppliers, related documents with files, folders and items, child
    // documents and folders.
    static void FillSyntheticModel(clsExportContext& ctx);

private:
    // One export of kind iKind and mode iStructure (1 structure, 2 collection); sSetup is the
    // host's setup string, or "" for one made for that kind and mode.
    void RunExport(int iKind, int iStructure, const std::string& sSetup);
    // Reads the findings and the list of reads off the records.
    void Analyse();

    clsLookupRecorder oRecorder_;
    std::unique_ptr<clsXMLIniData> oIni_;
    clsSettingsCheckResult oResult_;
    std::vector<std::string> arrLog_;  // the log lines of the exports, with their export
};
