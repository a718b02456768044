// The message table, the configurable element names, the log writer and two string functions.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

struct clsRunContext;
class iclsLabelSource;

namespace modResources {

// The texts of the log messages and the element names of the data file, all read from the
// settings document by InitResources; empty until then.
struct clsResources {
    // Message table (settings element in the comment).
    std::string MsgFileNameEmpty;      // MSG_FILE_NAME_EMPTY
    std::string MsgFile;               // MSG_FILE
    std::string MsgWasNotFound;        // MSG_WAS_NOT_FOUND
    std::string MsgIncorIniFileData;   // MSG_INCOR_INI_FILE_DATA
    std::string MsgSetupStringError;   // MSG_SETUP_STRING_ERROR
    std::string MsgRunError;           // MSG_RUN_ERROR
    std::string MsgLoadParseError;     // MSG_LOAD_PARSE_ERROR
    std::string MsgOnLine;             // MSG_ON_LINE
    std::string MsgAtPosition;         // MSG_AT_POSITION
    std::string MsgErrorXmlStructure;  // MSG_ERROR_XML_STRUCTURE
    std::string MsgRootNodeNotFound;   // MSG_ROOT_NODE_NOT_FOUND
    std::string MsgFirstChildNodeNot;  // MSG_FIRST_CHILD_NODE_NOT
    std::string MsgOfItem;             // MSG_OF_ITEM
    std::string MsgHaventChildren;     // MSG_HAVENT_CHILDREN
    std::string MsgChildOfNode;        // MSG_CHILD_OF_NODE
    std::string MsgOfDoc;              // MSG_OF_DOC
    std::string MsgOfFolder;           // MSG_OF_FOLDER
    std::string MsgNotDataset;         // MSG_NOT_DATASET
    std::string MsgDocDataset;         // MSG_DOC_DATASET
    std::string MsgContinuesOnSheet;   // MSG_CONTINUES_ON_SHEET
    std::string MsgQuantityNotNumber;  // MSG_QUANTITY_NOT_NUMBER

    // Configurable names of the data file (settings element in the comment).
    std::string NameItem;                // CUSTOM_OBJECTS/ITEM
    std::string NameItemPsDef;           // CUSTOM_OBJECTS/ITEM_PS_DEF
    std::string NameItemMnf;             // CUSTOM_OBJECTS/ITEM_MNF
    std::string NameItmVndMnf;           // CUSTOM_OBJECTS/ITM_VND_MNF
    std::string NameItemDoc;             // CUSTOM_OBJECTS/ITEM_DOC
    std::string NameItemFolder;          // CUSTOM_OBJECTS/ITEM_FOLDER
    std::string NameLocalAlternateItem;  // CUSTOM_OBJECTS/LOCAL_ALTERNATE_ITEM
    std::string NameRefDesDef;           // CUSTOM_OBJECTS/REF_DES_DEF
    std::string NameDoc;                 // CUSTOM_OBJECTS/DOC
    std::string NameDocPs;               // CUSTOM_OBJECTS/DOC_PS
    std::string NameDocDataset;          // CUSTOM_OBJECTS/DOC_DATASET
    std::string NameDocItem;             // CUSTOM_OBJECTS/DOC_ITEM
    std::string NameDocFolder;           // CUSTOM_OBJECTS/DOC_FOLDER
    std::string NameDataset;             // CUSTOM_OBJECTS/DATASET
    std::string NameDocDoc;              // CUSTOM_OBJECTS/DOC_DOC
    std::string NameFolder;              // CUSTOM_OBJECTS/FOLDER
    std::string NameFolderPs;            // CUSTOM_OBJECTS/FOLDER_PS
    std::string NameFolderItem;          // CUSTOM_OBJECTS/FOLDER_ITEM
    std::string NameFolderDoc;           // CUSTOM_OBJECTS/FOLDER_DOC
    std::string NameFolderFolder;        // CUSTOM_OBJECTS/FOLDER_FOLDER
    std::string NameFileName;            // CUSTOM_FIELDS/FILE_NAME
    std::string NameDesignationKey;      // CUSTOM_FIELDS/DESIGNATION_KEY
    std::string NameMnfVndKey;           // CUSTOM_FIELDS/MNF_VND_KEY
};

// Fills the message table and the names of ctx from the settings document oIniData.
void InitResources(clsRunContext& ctx, iclsLabelSource* oIniData);

// Formats one log line and appends it to ctx.LogFilePath. Without error details: sMsg, " ",
// date-time. With them: sMsg, description, " ", number, " ", date-time, " in ", sSource.
void WriteLog(clsRunContext& ctx, const std::string& sMsg, const std::string& sSource, long lUnused,
              bool bWithError);

// Appends one line (followed by CR LF) to a file; any failure is ignored.
void AppendLine(const std::string& sText, const std::string& sFilePath);

// Appends a line to the log of the call and hands it to the caller's observer, if any.
void LogLine(clsRunContext& ctx, const std::string& sLine);

// Text before (bAfter false) or after (bAfter true) the last / first occurrence of sDelim.
std::string SplitAtLast(const std::string& sText, const std::string& sDelim, bool bAfter,
                        bool bEmptyIfMissing);
std::string SplitAtFirst(const std::string& sText, const std::string& sDelim, bool bAfter,
                         bool bEmptyIfMissing);

// The general date form of the log: "M/d/yyyy h:mm:ss AM", local time.
std::string FormatGeneralDate(std::time_t t);
std::string NowGeneralDate();
// Time part alone: "h:mm:ss AM".
std::string FormatLongTime(std::time_t t);
// "MM/dd/yyyy" + " " + long time, the caption date of a four-element caption section.
std::string FormatCaptionDate(std::time_t t);

}  // namespace modResources
