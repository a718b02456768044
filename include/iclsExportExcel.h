// orvExportExcel: turns one product-data export XML file into a spreadsheet workbook.
// The C++ interface. One call of ParseMain is one export; it returns true when the workbook was
// written, false otherwise, and writes every failure to the log file "ExportExcel.log".
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Turns an array of reference designators into grouped form. The export creates it by the
// programmatic identifier "wexgrp.IclsGroup"; a host may register its own implementation.
class IclsGroup {
public:
    virtual ~IclsGroup() = default;
    virtual std::vector<std::string> Group(const std::vector<std::string>& arrDesignators) = 0;
};

// Progress of a long export.
struct clsProgress {
    enum class Stage { Parsing, Writing };
    Stage eStage = Stage::Parsing;
    long lDone = 0;   // objects parsed, or rows written
    long lTotal = 0;  // total when known, else 0
};

// What became of the workbook file of a call.
struct clsWorkbookState {
    std::string sPath;      // the workbook's path; empty when the call started none
    bool bWritten = false;  // the complete workbook reached the disk under sPath
    std::string sFailure;   // why it could not be written: the system's reason, else empty
};

// The views a workbook may have beside its panels. Which ones an export writes depends on its kind
// and mode: the level sheet and the outline need a structure, the flattened list and the
// where-used sheet need items (README, "Views").
struct clsViews {
    bool bLevelSheet = false;  // worksheet 2: the structure as an indented tree
    bool bFlatList = false;    // each item once, with its total quantity and the places it is used
    bool bWhereUsed = false;   // each item with every parent that uses it
    bool bOutline = false;     // the main panel's object rows grouped by their level
    bool operator==(const clsViews&) const = default;
};

// Reads a list of views as the command-line tool's --views takes it: "level", "flat",
// "where-used" and "outline", separated by commas, or "none" alone. False for an empty list,
// an unknown word or "none" beside another word; sError then says why.
bool ParseViewList(const std::string& sList, clsViews& oViews, std::string& sError);

class iclsExportExcel {
public:
    virtual ~iclsExportExcel() = default;

    // sXFullPath: the export data XML file; sXIniFullPath: the settings XML file;
    // sSetupXString: the setup XML text; sExtension: the workbook's extension with its dot
    // (".xls" when empty). All strings are UTF-8.
    virtual bool ParseMain(const std::string& sXFullPath, const std::string& sXIniFullPath,
                           const std::string& sSetupXString, const std::string& sExtension) = 0;

    // Receives each line written to the log (without its line end). Adds nothing to the file.
    virtual void SetLogObserver(std::function<void(const std::string&)> fnObserver) = 0;

    // Receives progress of the following calls; nothing of it reaches the log.
    virtual void SetProgressObserver(std::function<void(const clsProgress&)> fnObserver) = 0;

    // A flag that stops the following calls when set (from any thread or a signal handler): the
    // running export ends at its next progress point, saves nothing, removes the workbook it had
    // started, logs one line and returns false. The flag is not reset by the export; an empty
    // pointer removes it.
    virtual void SetCancelFlag(std::shared_ptr<std::atomic<bool>> pFlag) = 0;

    // The views of the following calls' workbooks, in place of what the settings say (their
    // section EXPORT_VIEWS); std::nullopt lets the settings decide again.
    virtual void SetViews(std::optional<clsViews> oViews) = 0;
    // The folder the workbooks of the following calls go into, instead of the data file's
    // folder; their names stay the same. An empty string brings back the data file's folder.
    virtual void SetOutputDir(const std::string& sOutputDir) = 0;
    // Whether the following calls may write an .xlsx workbook's first sheet while it is laid
    // out, on a second thread (on by default). A host that runs exports side by side on all its
    // cores, as a batch does, turns it off: each export then keeps to one core. The workbook is
    // the same either way.
    virtual void SetWriteAhead(bool bWriteAhead) = 0;
    // Whether the following calls give the memory they free back to the system while they run
    // (on by default), which lowers each one's peak. A host that runs many exports in one
    // process, as a batch does, may turn it off: an export then reuses what the ones before it
    // freed, and the system need not hand out those pages again, page by page. The workbook is
    // the same either way.
    virtual void SetReturnFreedMemory(bool bReturn) = 0;

    // Registers (or, with an empty factory, removes) a grouping component under a programmatic
    // identifier; the export asks for "wexgrp.IclsGroup".
    virtual void RegisterGroup(const std::string& sProgID,
                               std::function<std::unique_ptr<IclsGroup>()> fnFactory) = 0;

    // The full path of the workbook written by the last successful ParseMain, else "".
    virtual std::string LastWorkbookPath() const = 0;

    // The workbook file of the last ParseMain call. ParseMain's result says whether the
    // workbook was filled; a final save that fails is logged and leaves that result as it is,
    // so this tells whether the workbook also reached the disk, and if not, why (for instance
    // "No space left on device"). A workbook whose final save failed is removed.
    virtual clsWorkbookState LastWorkbookState() const = 0;
};

// A new export object. Each ParseMain call on it runs one complete export.
std::unique_ptr<iclsExportExcel> CreateExportExcel();

// The library's version, "major.minor.patch".
const char* orvExportExcelVersion();
