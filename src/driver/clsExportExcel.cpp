#include "driver/clsExportExcel.h"

#include <filesystem>
#include <system_error>

#include "orvExportExcel.h"
#include "parse/clsXMLPars.h"
#include "support/modConst.h"
#include "support/modEnvironment.h"
#include "support/modResources.h"
#include "workbook/clsBldExcel.h"

#ifndef ORV_VERSION
#define ORV_VERSION "0.1.0"
#endif

namespace fs = std::filesystem;
using modResources::WriteLog;

namespace {

// True when the path names an existing file (not a folder). Wildcards are not expanded.
bool FileMatches(const std::string& sPath) {
    std::error_code ec;
    return !sPath.empty() && fs::is_regular_file(fs::path(sPath), ec);
}

// True when two paths name the same file: the same file when both exist (hard links included),
// else the same absolute path once "." and ".." and the links of the folders are resolved.
bool SameFile(const std::string& sA, const std::string& sB) {
    if (sA.empty() || sB.empty()) return false;
    std::error_code ec;
    if (fs::exists(sA, ec) && fs::exists(sB, ec)) {
        const bool bSame = fs::equivalent(sA, sB, ec);
        if (!ec) return bSame;
    }
    std::error_code ecA, ecB;
    const fs::path a = fs::weakly_canonical(fs::absolute(sA, ecA), ecA);
    const fs::path b = fs::weakly_canonical(fs::absolute(sB, ecB), ecB);
    return !ecA && !ecB && a == b;
}

}  // namespace

clsExportExcel::clsExportExcel() = default;

clsExportExcel::clsExportExcel(clsExportOptions oOptions) {
    ctx_.Options = std::move(oOptions);
}

bool clsExportExcel::ParseMain(const std::string& sXFullPath, const std::string& sXIniFullPath,
                               const std::string& sSetupXString, const std::string& sExtension) {
    try {
        // Every call runs on a fresh object: nothing of one export reaches the next.
        sLastWorkbookPath_.clear();
        oWorkbookState_ = {};
        auto oExport = std::make_unique<clsExportExcel>(ctx_.Options);
        bool bResult =
            oExport->ParseXML2Excel(sXFullPath, sXIniFullPath, sSetupXString, sExtension);
        if (bResult) sLastWorkbookPath_ = oExport->ctx_.WorkbookPath;
        oWorkbookState_ = oExport->oWorkbookState_;
        return bResult;
    } catch (...) {
        return false;
    }
}

void clsExportExcel::SetLogObserver(std::function<void(const std::string&)> fnObserver) {
    ctx_.Options.OnLogLine = std::move(fnObserver);
}

void clsExportExcel::SetProgressObserver(std::function<void(const clsProgress&)> fnObserver) {
    ctx_.Options.OnProgress = std::move(fnObserver);
}

void clsExportExcel::RegisterGroup(const std::string& sProgID,
                                   std::function<std::unique_ptr<IclsGroup>()> fnFactory) {
    if (fnFactory)
        ctx_.Options.Components.RegisterGroup(sProgID, std::move(fnFactory));
    else
        ctx_.Options.Components.Unregister(sProgID);
}

void clsExportExcel::SetCancelFlag(std::shared_ptr<std::atomic<bool>> pFlag) {
    ctx_.Options.CancelFlag = std::move(pFlag);
}

void clsExportExcel::SetViews(std::optional<clsViews> oViews) {
    ctx_.Options.Views = oViews;
}

bool ParseViewList(const std::string& sList, clsViews& oViews, std::string& sError) {
    clsViews oResult;
    bool bNone = false;
    long nWords = 0;
    size_t p = 0;
    while (p <= sList.size()) {
        size_t q = sList.find(',', p);
        if (q == std::string::npos) q = sList.size();
        std::string sWord = sList.substr(p, q - p);
        const size_t a = sWord.find_first_not_of(" \t");
        sWord = a == std::string::npos ? std::string()
                                       : sWord.substr(a, sWord.find_last_not_of(" \t") - a + 1);
        ++nWords;
        if (sWord == "level") {
            oResult.bLevelSheet = true;
        } else if (sWord == "flat") {
            oResult.bFlatList = true;
        } else if (sWord == "where-used") {
            oResult.bWhereUsed = true;
        } else if (sWord == "outline") {
            oResult.bOutline = true;
        } else if (sWord == "none") {
            bNone = true;
        } else {
            sError = sWord.empty() ? "an empty entry in the list of views '" + sList + "'"
                                   : "unknown view '" + sWord + "'";
            sError += " (the views are level, flat, where-used and outline, or none)";
            return false;
        }
        p = q + 1;
    }
    if (bNone && nWords > 1) {
        sError = "'none' stands alone in the list of views '" + sList + "'";
        return false;
    }
    oViews = oResult;
    return true;
}

void clsExportExcel::SetOutputDir(const std::string& sOutputDir) {
    ctx_.Options.OutputDir = sOutputDir;
}

void clsExportExcel::SetWriteAhead(bool bWriteAhead) {
    ctx_.Options.WriteAhead = bWriteAhead;
}

void clsExportExcel::SetReturnFreedMemory(bool bReturn) {
    ctx_.Options.ReturnFreedMemory = bReturn;
}

bool clsExportExcel::ParseXML2Excel(const std::string& sXFullPath, const std::string& sXIniFullPath,
                                    const std::string& sSetupXString,
                                    const std::string& sExtension) {
    std::unique_ptr<clsXMLPars> oPars;
    std::unique_ptr<pugi::xml_document> oDocument;
    // Whatever way the call ends, the parser, the data document and the settings are released.
    struct clsRelease {
        clsExportContext& ctx;
        std::unique_ptr<clsXMLPars>& oPars;
        std::unique_ptr<pugi::xml_document>& oDocument;
        ~clsRelease() {
            oDocument.reset();
            oPars.reset();
            ctx.IniData.reset();
        }
    } oRelease{ctx_, oPars, oDocument};
    bool bResult = false;
    try {
        ctx_.LogFilePath = modEnvironment::GetDir("ORV_EXPORT_DIR") + modConst::LOG_FILE_NAME;
        const std::string sExt = sExtension.size() >= 1 ? sExtension : std::string(".xls");

        if (!GetIniXML(sXIniFullPath)) return false;
        modResources::InitResources(ctx_, ctx_.IniData.get());

        if (sXFullPath.empty()) {
            WriteLog(ctx_, ctx_.Res.MsgFileNameEmpty, "", -1, false);
            return false;
        }
        if (!FileMatches(sXFullPath)) {
            WriteLog(ctx_, ctx_.Res.MsgFile + sXFullPath + ctx_.Res.MsgWasNotFound, "", -1, false);
            return false;
        }

        if (!FillExcellCap(ctx_, sSetupXString)) {
            WriteLog(ctx_, ctx_.Res.MsgSetupStringError, "", -1, false);
        } else if (!FillAttrLabels(ctx_)) {
            WriteLog(ctx_, ctx_.Res.MsgIncorIniFileData, "", -1, false);
        } else {
            oPars = std::make_unique<clsXMLPars>(ctx_);
            if (oPars->LoadCurrentXML(oDocument, sXFullPath)) {
                ClearExportModel();
                oPars->MainXStruct(*oDocument);
                oDocument.reset();
                // The parsed document was the largest thing the export held so far.
                if (ctx_.Options.ReturnFreedMemory) modEnvironment::ReturnFreedMemory();
                // A walk cut short by the host is no export: nothing is built from it.
                if (ctx_.CancelRequested()) RaiseError(modConst::errUserInterrupt);
                if (ctx_.Model.ObjCount > -1) {
                    bResult = BuildExcel(sXFullPath, sExt);
                    ClearExportModel();
                }
            }
        }
        ClearLabelTables(ctx_);
    } catch (...) {
        ReportRunError(ctx_, "clsExportExcel", "ParseXML2Excel");
        return false;
    }
    return bResult;
}

bool clsExportExcel::GetIniXML(const std::string& sXIniFullPath) {
    try {
        if (sXIniFullPath.empty()) {
            WriteLog(ctx_, "INI FILE NAME IS EMPTY", "", -1, false);
            return false;
        }
        if (!FileMatches(sXIniFullPath)) {
            WriteLog(ctx_, "INI FILE " + sXIniFullPath + " WAS NOT FOUND", "", -1, false);
            return false;
        }
        sXIniFullPath_ = sXIniFullPath;
        ctx_.IniData = std::make_unique<clsXMLIniData>();
        std::string sErrMsg;
        bool bLoaded = ctx_.IniData->LoadXDoc(sXIniFullPath, sErrMsg);
        if (!sErrMsg.empty()) modResources::LogLine(ctx_, sErrMsg);
        return bLoaded;
    } catch (...) {
        ReportRunErrorWith(ctx_, "Run Error: ", "clsExportExcel", "GetIniXML");
        return false;
    }
}

std::string clsExportExcel::OutputPath(clsExportContext& ctx, const std::string& sXFullPath,
                                       const std::string& sExtension) {
    const std::string sPath = OutputPathBesideData(ctx, sXFullPath, sExtension);
    const std::string& sDir = ctx.Options.OutputDir;
    if (sDir.empty()) return sPath;
    const size_t lSep = sPath.rfind(modEnvironment::PATH_SEP);
    const std::string sName = lSep == std::string::npos ? sPath : sPath.substr(lSep + 1);
    return sDir.back() == modEnvironment::PATH_SEP ? sDir + sName
                                                   : sDir + modEnvironment::PATH_SEP + sName;
}

std::string clsExportExcel::OutputPathBesideData(clsExportContext& ctx,
                                                 const std::string& sXFullPath,
                                                 const std::string& sExtension) {
    // Neither the caption value nor the extension may lead out of the data file's folder.
    const auto fnNoSeparators = [](std::string s) {
        for (char& c : s)
            if (c == '/' || c == '\\') c = '_';
        return s;
    };
    const std::string sExt = fnNoSeparators(sExtension);
    // The caption value of the second caption entry names the workbook; error 9 without it.
    const std::string& sName = ctx.Labels.CaptionTable.Item(1, 1);
    if (!sName.empty()) {
        const std::string sFile = fnNoSeparators(sName) + sExt;
        size_t lSep = sXFullPath.rfind(modEnvironment::PATH_SEP);
        if (lSep == std::string::npos) return sFile;  // a bare file name: the current folder
        return sXFullPath.substr(0, lSep + 1) + sFile;
    }
    // The data file's extension is replaced; a file name without a dot keeps its whole path.
    size_t lSep = sXFullPath.rfind(modEnvironment::PATH_SEP);
    size_t lDot = sXFullPath.rfind('.');
    if (lDot == std::string::npos || (lSep != std::string::npos && lDot < lSep)) {
        return sXFullPath + sExt;
    }
    return sXFullPath.substr(0, lDot) + sExt;
}

std::string clsExportExcel::InputNamedBy(const std::string& sOutputPath,
                                         const std::string& sXFullPath,
                                         const std::string& sXIniFullPath,
                                         const std::string& sLogFilePath) {
    if (SameFile(sOutputPath, sXFullPath)) return "data file";
    if (SameFile(sOutputPath, sXIniFullPath)) return "settings file";
    if (SameFile(sOutputPath, sLogFilePath)) return "log file";
    return std::string();
}

bool clsExportExcel::BuildExcel(const std::string& sXFullPath, const std::string& sExtension) {
    return TrapRun(ctx_, "clsExportExcel", "BuildExcel", false, [&] {
        std::string sOutputPath = OutputPath(ctx_, sXFullPath, sExtension);
        // The workbook never takes the place of a file the export reads or writes.
        const std::string sInput =
            InputNamedBy(sOutputPath, sXFullPath, sXIniFullPath_, ctx_.LogFilePath);
        if (!sInput.empty()) {
            WriteLog(ctx_,
                     "The workbook path " + sOutputPath + " names the " + sInput +
                         " of the export: nothing was deleted or written.",
                     "", -1, false);
            return false;
        }
        if (FileMatches(sOutputPath)) {
            std::error_code ec;
            if (!fs::remove(sOutputPath, ec) || ec) RaiseError(modConst::errPermissionDenied);
        }
        bool bResult = false;
        bool bStarted = false;
        oWorkbookState_.sPath = sOutputPath;
        {
            clsBldExcel oBuilder(ctx_);
            bStarted = oBuilder.InitExl(sOutputPath);
            if (bStarted) {
                bResult = oBuilder.FillExlFile();
                // The sheets hold all the export shows: the objects' records leave memory
                // before the long write.
                ClearExportModel();
                if (ctx_.Options.ReturnFreedMemory) modEnvironment::ReturnFreedMemory();
                // An interrupted export is not saved: the builder is released unsaved.
                if (!ctx_.CancelRequested()) oBuilder.ExitExl();
            }
            oWorkbookState_.bWritten = oBuilder.WorkbookSaved();
            oWorkbookState_.sFailure = oBuilder.SaveFailure();
        }
        if (ctx_.CancelRequested()) {
            // The workbook that InitExl wrote under the final name goes again, whatever it holds.
            std::error_code ec;
            fs::remove(sOutputPath, ec);
            oWorkbookState_.bWritten = false;
            RaiseError(modConst::errUserInterrupt);
        }
        if (bStarted && !oWorkbookState_.bWritten && FileMatches(sOutputPath)) {
            // The final save failed (and was logged): what lies under the final name is the
            // empty workbook of the start, which nobody may take for the export.
            std::error_code ec;
            fs::remove(sOutputPath, ec);
        }
        if (bResult && oWorkbookState_.bWritten) ctx_.WorkbookPath = sOutputPath;
        return bResult;
    });
}

// Empties the array of the current kind and gives its memory back.
void clsExportExcel::ClearExportModel() {
    ctx_.Model.ClearRecords();
}

std::unique_ptr<iclsExportExcel> CreateExportExcel() {
    return std::make_unique<clsExportExcel>();
}

const char* orvExportExcelVersion() {
    return ORV_VERSION;
}

// The C entries: an export with its options; a list of views that cannot be read returns 0
// without starting it.
extern "C" int orvExportExcel_ParseMainWithOptions(const char* sXFullPath,
                                                   const char* sXIniFullPath,
                                                   const char* sSetupXString,
                                                   const char* sExtension, const char* sViews,
                                                   const char* sOutputDir) {
    try {
        clsExportExcel oExport;
        if (sViews) {
            clsViews oViews;
            std::string sError;
            if (!ParseViewList(sViews, oViews, sError)) return 0;
            oExport.SetViews(oViews);
        }
        oExport.SetOutputDir(sOutputDir ? sOutputDir : "");
        bool b =
            oExport.ParseMain(sXFullPath ? sXFullPath : "", sXIniFullPath ? sXIniFullPath : "",
                              sSetupXString ? sSetupXString : "", sExtension ? sExtension : "");
        return b ? -1 : 0;
    } catch (...) {
        return 0;
    }
}

extern "C" int orvExportExcel_ParseMain(const char* sXFullPath, const char* sXIniFullPath,
                                        const char* sSetupXString, const char* sExtension) {
    return orvExportExcel_ParseMainWithOptions(sXFullPath, sXIniFullPath, sSetupXString, sExtension,
                                               nullptr, nullptr);
}

extern "C" int orvExportExcel_ParseMainWithViews(const char* sXFullPath, const char* sXIniFullPath,
                                                 const char* sSetupXString, const char* sExtension,
                                                 const char* sViews) {
    return orvExportExcel_ParseMainWithOptions(sXFullPath, sXIniFullPath, sSetupXString, sExtension,
                                               sViews, nullptr);
}

extern "C" int orvExportExcel_ParseMainInto(const char* sXFullPath, const char* sXIniFullPath,
                                            const char* sSetupXString, const char* sExtension,
                                            const char* sOutputDir) {
    return orvExportExcel_ParseMainWithOptions(sXFullPath, sXIniFullPath, sSetupXString, sExtension,
                                               nullptr, sOutputDir);
}
