#include "support/modResources.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "support/clsRunContext.h"
#include "support/iclsLabelSource.h"

namespace modResources {

namespace {

// The 21 message keys and the 23 configurable names, in the order they are read.
struct clsResourceKey {
    const char* sXPath;
    std::string clsResources::*pEntry;
};

const clsResourceKey kResourceKeys[] = {
    {"//MSG_FILE_NAME_EMPTY", &clsResources::MsgFileNameEmpty},
    {"//MSG_FILE", &clsResources::MsgFile},
    {"//MSG_WAS_NOT_FOUND", &clsResources::MsgWasNotFound},
    {"//MSG_INCOR_INI_FILE_DATA", &clsResources::MsgIncorIniFileData},
    {"//MSG_SETUP_STRING_ERROR", &clsResources::MsgSetupStringError},
    {"//MSG_RUN_ERROR", &clsResources::MsgRunError},
    {"//MSG_LOAD_PARSE_ERROR", &clsResources::MsgLoadParseError},
    {"//MSG_ON_LINE", &clsResources::MsgOnLine},
    {"//MSG_AT_POSITION", &clsResources::MsgAtPosition},
    {"//MSG_ERROR_XML_STRUCTURE", &clsResources::MsgErrorXmlStructure},
    {"//MSG_ROOT_NODE_NOT_FOUND", &clsResources::MsgRootNodeNotFound},
    {"//MSG_FIRST_CHILD_NODE_NOT", &clsResources::MsgFirstChildNodeNot},
    {"//MSG_OF_ITEM", &clsResources::MsgOfItem},
    {"//MSG_HAVENT_CHILDREN", &clsResources::MsgHaventChildren},
    {"//MSG_CHILD_OF_NODE", &clsResources::MsgChildOfNode},
    {"//MSG_OF_DOC", &clsResources::MsgOfDoc},
    {"//MSG_OF_FOLDER", &clsResources::MsgOfFolder},
    {"//MSG_NOT_DATASET", &clsResources::MsgNotDataset},
    {"//MSG_DOC_DATASET", &clsResources::MsgDocDataset},
    {"//MSG_CONTINUES_ON_SHEET", &clsResources::MsgContinuesOnSheet},
    {"//MSG_QUANTITY_NOT_NUMBER", &clsResources::MsgQuantityNotNumber},
    {"//CUSTOM_OBJECTS/ITEM", &clsResources::NameItem},
    {"//CUSTOM_OBJECTS/ITEM_PS_DEF", &clsResources::NameItemPsDef},
    {"//CUSTOM_OBJECTS/ITEM_MNF", &clsResources::NameItemMnf},
    {"//CUSTOM_OBJECTS/ITM_VND_MNF", &clsResources::NameItmVndMnf},
    {"//CUSTOM_OBJECTS/ITEM_DOC", &clsResources::NameItemDoc},
    {"//CUSTOM_OBJECTS/ITEM_FOLDER", &clsResources::NameItemFolder},
    {"//CUSTOM_OBJECTS/LOCAL_ALTERNATE_ITEM", &clsResources::NameLocalAlternateItem},
    {"//CUSTOM_OBJECTS/REF_DES_DEF", &clsResources::NameRefDesDef},
    {"//CUSTOM_OBJECTS/DOC", &clsResources::NameDoc},
    {"//CUSTOM_OBJECTS/DOC_PS", &clsResources::NameDocPs},
    {"//CUSTOM_OBJECTS/DOC_DATASET", &clsResources::NameDocDataset},
    {"//CUSTOM_OBJECTS/DOC_ITEM", &clsResources::NameDocItem},
    {"//CUSTOM_OBJECTS/DOC_FOLDER", &clsResources::NameDocFolder},
    {"//CUSTOM_OBJECTS/DATASET", &clsResources::NameDataset},
    {"//CUSTOM_OBJECTS/DOC_DOC", &clsResources::NameDocDoc},
    {"//CUSTOM_OBJECTS/FOLDER", &clsResources::NameFolder},
    {"//CUSTOM_OBJECTS/FOLDER_PS", &clsResources::NameFolderPs},
    {"//CUSTOM_OBJECTS/FOLDER_ITEM", &clsResources::NameFolderItem},
    {"//CUSTOM_OBJECTS/FOLDER_DOC", &clsResources::NameFolderDoc},
    {"//CUSTOM_OBJECTS/FOLDER_FOLDER", &clsResources::NameFolderFolder},
    {"//CUSTOM_FIELDS/FILE_NAME", &clsResources::NameFileName},
    {"//CUSTOM_FIELDS/DESIGNATION_KEY", &clsResources::NameDesignationKey},
    {"//CUSTOM_FIELDS/MNF_VND_KEY", &clsResources::NameMnfVndKey},
};

std::tm LocalTime(std::time_t t) {
    std::tm tmLocal{};
    localtime_r(&t, &tmLocal);
    return tmLocal;
}

}  // namespace

void InitResources(clsRunContext& ctx, iclsLabelSource* oIniData) {
    try {
        if (!oIniData || !oIniData->SetCurNode("MESSAGES")) {
            WriteLog(ctx, "Resources was not initialized", "", -1, false);
            return;
        }
        for (const auto& key : kResourceKeys) {
            ctx.Res.*(key.pEntry) = oIniData->GetLabelUseCurNode(key.sXPath);
        }
    } catch (...) {
        ReportRunError(ctx, "modResources", "InitResources");
    }
}

void WriteLog(clsRunContext& ctx, const std::string& sMsg, const std::string& sSource,
              long /*lUnused*/, bool bWithError) {
    std::string sLine;
    if (bWithError) {
        sLine = fmt::format("{}{} {} {} in {}", sMsg, ctx.Err.Description, ctx.Err.Number,
                            NowGeneralDate(), sSource);
    } else {
        sLine = fmt::format("{} {}", sMsg, NowGeneralDate());
    }
    LogLine(ctx, sLine);
}

void AppendLine(const std::string& sText, const std::string& sFilePath) {
    if (sFilePath.empty()) return;
    // The line and its end go to the file in one append, so that the exports of many threads
    // (or processes) sharing the log never tear a line. The lock keeps this process's writes
    // apart even when the system splits one; O_APPEND places each at the file's end.
    static std::mutex s_oLogLock;
    const std::string sLine = sText + "\r\n";
    std::lock_guard<std::mutex> oLock(s_oLogLock);
    const int fd = ::open(sFilePath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return;
    size_t lDone = 0;
    while (lDone < sLine.size()) {
        const ssize_t lWritten = ::write(fd, sLine.data() + lDone, sLine.size() - lDone);
        if (lWritten < 0 && errno == EINTR) continue;
        if (lWritten <= 0) break;
        lDone += static_cast<size_t>(lWritten);
    }
    ::close(fd);
}

void LogLine(clsRunContext& ctx, const std::string& sLine) {
    AppendLine(sLine, ctx.LogFilePath);
    if (ctx.Options.OnLogLine) {
        try {
            ctx.Options.OnLogLine(sLine);
        } catch (...) {
            // An observer that fails loses its copy of the line; the log file has it.
        }
    }
}

std::string SplitAtLast(const std::string& sText, const std::string& sDelim, bool bAfter,
                        bool bEmptyIfMissing) {
    if (sText.empty() || sDelim.empty()) return sText;
    size_t p = sText.rfind(sDelim);
    if (p == std::string::npos) return bEmptyIfMissing ? std::string() : sText;
    if (!bAfter) return sText.substr(0, p);
    // 1-based position p+1 is less than the length: there is text after the delimiter.
    if (p + 1 < sText.size()) return sText.substr(std::min(sText.size(), p + sDelim.size()));
    return std::string();
}

std::string SplitAtFirst(const std::string& sText, const std::string& sDelim, bool bAfter,
                         bool bEmptyIfMissing) {
    if (sText.empty() || sDelim.empty()) return sText;
    size_t p = sText.find(sDelim);
    if (p == std::string::npos) return bEmptyIfMissing ? std::string() : sText;
    if (!bAfter) return sText.substr(0, p);
    if (p + 1 < sText.size()) return sText.substr(std::min(sText.size(), p + sDelim.size()));
    return std::string();
}

std::string FormatLongTime(std::time_t t) {
    std::tm tm = LocalTime(t);
    int iHour12 = tm.tm_hour % 12;
    if (iHour12 == 0) iHour12 = 12;
    return fmt::format("{}:{:02}:{:02} {}", iHour12, tm.tm_min, tm.tm_sec,
                       tm.tm_hour < 12 ? "AM" : "PM");
}

std::string FormatGeneralDate(std::time_t t) {
    std::tm tm = LocalTime(t);
    return fmt::format("{}/{}/{} {}", tm.tm_mon + 1, tm.tm_mday, tm.tm_year + 1900,
                       FormatLongTime(t));
}

std::string NowGeneralDate() {
    return FormatGeneralDate(std::time(nullptr));
}

std::string FormatCaptionDate(std::time_t t) {
    std::tm tm = LocalTime(t);
    return fmt::format("{:02}/{:02}/{:04} {}", tm.tm_mon + 1, tm.tm_mday, tm.tm_year + 1900,
                       FormatLongTime(t));
}

}  // namespace modResources
