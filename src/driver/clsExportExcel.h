// The export driver: one ParseMain call runs one export, from the settings to the saved workbook.
#pragma once

#include <memory>
#include <string>

#include "iclsExportExcel.h"
#include "parse/clsExportContext.h"

class clsExportExcel : public iclsExportExcel {
public:
    clsExportExcel();
    explicit clsExportExcel(clsExportOptions oOptions);

    // Creates a fresh clsExportExcel for the call, runs ParseXML2Excel on it and releases it.
    bool ParseMain(const std::string& sXFullPath, const std::string& sXIniFullPath,
                   const std::string& sSetupXString, const std::string& sExtension) override;
    void SetLogObserver(std::function<void(const std::string&)> fnObserver) override;
    void SetProgressObserver(std::function<void(const clsProgress&)> fnObserver) override;
    void RegisterGroup(const std::string& sProgID,
                       std::function<std::unique_ptr<IclsGroup>()> fnFactory) override;
    void SetCancelFlag(std::shared_ptr<std::atomic<bool>> pFlag) override;
    void SetViews(std::optional<clsViews> oViews) override;
    void SetOutputDir(const std::string& sOutputDir) override;
    void SetWriteAhead(bool bWriteAhead) override;
    void SetReturnFreedMemory(bool bReturn) override;
    std::string LastWorkbookPath() const override { return sLastWorkbookPath_; }
    clsWorkbookState LastWorkbookState() const override { return oWorkbookState_; }

    // One whole export.
    bool ParseXML2Excel(const std::string& sXFullPath, const std::string& sXIniFullPath,
                        const std::string& sSetupXString, const std::string& sExtension);
    bool GetIniXML(const std::string& sXIniFullPath);
    bool BuildExcel(const std::string& sXFullPath, const std::string& sExtension);
    void ClearExportModel();
    template <class Arr>
    bool SetObjCount(const Arr& arr) {
        ctx_.Model.ObjCount = -1;
        ctx_.Model.ObjCount = static_cast<int32_t>(arr.size()) - 1;
        return true;
    }

    // The output path of BuildExcel: the caption value of entry (1, 1) in the data file's
    // folder, else the data file's path with its extension replaced. With the host's output
    // folder (clsExportOptions::OutputDir) the same name goes into that folder instead.
    static std::string OutputPath(clsExportContext& ctx, const std::string& sXFullPath,
                                  const std::string& sExtension);
    static std::string OutputPathBesideData(clsExportContext& ctx, const std::string& sXFullPath,
                                            const std::string& sExtension);
    // Which file of the export the output path names ("data file", "settings file", "log
    // file"), after resolving the folders and links of both; "" when none.
    static std::string InputNamedBy(const std::string& sOutputPath, const std::string& sXFullPath,
                                    const std::string& sXIniFullPath,
                                    const std::string& sLogFilePath);

    // Caption and label tables (defined in clsExportExcelCaptions.cpp).
    static bool FillExcellCap(clsExportContext& ctx, const std::string& sSetupXString);
    static bool FillAttrLabels(clsExportContext& ctx);
    static bool FillAttrLabelArray(clsExportContext& ctx, clsVarTable& arr,
                                   const std::string& sKind);
    static bool GetAdditionalTags(clsExportContext& ctx, const std::string& sName);
    // Empties the tables at the end of an export, as much as the export empties them.
    static void ClearLabelTables(clsExportContext& ctx);

    clsExportContext& Context() { return ctx_; }

private:
    clsExportContext ctx_;
    std::string sLastWorkbookPath_;
    std::string sXIniFullPath_;  // the settings file of the call, set by GetIniXML
    clsWorkbookState oWorkbookState_;
};
