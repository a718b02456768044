// Shared set-up of the tests that feed the export hostile inputs: a private per-user data folder
// (so the log has a known place), a data folder, generated documents, and helpers that run an
// export and look at what it left behind.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "iclsExportExcel.h"

namespace reliability {

namespace fs = std::filesystem;

// A setup string naming the workbook sName (empty: named after the data file).
std::string SetupXml(const std::string& sName, const std::string& sType = "Item",
                     const std::string& sSpace = "STRUCTURE");

// One item element of the example settings' data shape.
std::string ItemXml(const std::string& sId, const std::string& sDescription = "d",
                    const std::string& sInner = "");

// A collection of n items with ids "I0" ... (description "d").
std::string ItemCollection(long n);

// The log lines of a call joined with "\n", for messages of failed expectations.
std::string Joined(const std::vector<std::string>& arr);

class ReliabilityTest : public ::testing::Test {
public:
    // The names of the files in a folder (hidden ones included).
    static std::vector<std::string> FilesIn(const fs::path& dir);
    // True when the folder holds a temporary file of a save.
    static bool HasTempFile(const fs::path& dir);

protected:
    void SetUp() override;
    void TearDown() override;

    // Runs one export; the data file is written first when sDataText is given.
    bool Run(const std::string& sData, const std::string& sSettings, const std::string& sSetup,
             const std::string& sExt = ".xlsx");
    bool RunData(const std::string& sDataText, const std::string& sSetup = "",
                 const std::string& sExt = ".xlsx");

    std::vector<std::string> Log() const;
    // True when some log line contains sPart.
    bool LogHas(const std::string& sPart) const;
    testutil::TempDir tmp;
    testutil::ScopedEnv env{"APPDATA", tmp.Str()};
    std::string sExportDir;
    std::string sSettings;  // the example settings
    fs::path dataDir;       // where the data files go
    std::string sData;      // dataDir / "export.xml"
    std::shared_ptr<std::atomic<bool>> pCancel;
    std::function<void(const clsProgress&)> fnProgress;
};

// Runs fn in a child process as the unprivileged user "nobody" (uid 65534) when the tests run as
// root, so that file permissions hold; as another user, as that user. Returns fn's result. Only
// when root cannot drop its privileges is bSkipped set. A child killed by a signal or ending
// with any status but fn's result fails the calling test, naming the signal or the status.
bool RunAsNobody(const std::function<bool()>& fn, bool& bSkipped);

// Reads a saved workbook back with openpyxl (which refuses a file holding characters XML does
// not allow) and returns "OK" followed by one line per non-empty cell "A1=<text as JSON>", or
// the error. Also fails when the sheet's XML holds a raw control character. With bParts, the
// text of every part of the file instead, but the document properties (which hold the time).
std::string ReadBack(const std::string& sWorkbook, bool bParts = false);

// True in a build with a sanitizer, where the largest cases take too long.
constexpr bool kSanitizedBuild =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    true;
#else
    false;
#endif
#else
    false;
#endif

}  // namespace reliability
