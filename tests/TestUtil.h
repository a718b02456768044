// Helpers shared by the test executables.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace testutil {

// The number of the run-time error that fn raises; 0 when it raises none.
long RunErrorOf(const std::function<void()>& fn);

// A fresh temporary folder, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& Path() const { return path_; }
    std::string Str() const { return path_.string(); }
    std::string File(const std::string& sName) const { return (path_ / sName).string(); }

private:
    std::filesystem::path path_;
};

std::string ReadFile(const std::string& sPath);
void WriteFile(const std::string& sPath, const std::string& sText);

// The lines of a log file (CR LF line ends removed).
std::vector<std::string> ReadLogLines(const std::string& sPath);

// The bytes of a log file with each date-time written as "{now}": the whole file, line ends
// included, for comparing it exactly. Empty when there is no file.
std::string ReadLogMasked(const std::string& sPath);

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
public:
    ScopedEnv(const char* sName, const std::string& sValue);
    ~ScopedEnv();

private:
    std::string sName_;
    bool bHad_ = false;
    std::string sOld_;
};

// Runs fn in a child process on whose folder dir a file system of its own, lBytes in size (a
// tmpfs), is mounted: in a mount namespace of the child's own, so the mount goes with the child
// whatever becomes of it. What fn returns comes back in sReport (with a note when the child did not
// end normally). False when no such file system can be mounted here (it takes the privilege to
// mount); sReport then says why.
bool RunOnSmallDisk(const std::filesystem::path& dir, long lBytes,
                    const std::function<std::string()>& fn, std::string& sReport);

// The names in a folder (hidden ones included), sorted, joined with ",".
std::string NamesIn(const std::filesystem::path& dir);

// The process's open descriptors that refer to files in dir (deleted ones included), joined
// with ",": none once a save is over.
std::string OpenFilesIn(const std::filesystem::path& dir);

// What a shell command writes to its standard output; with pStatus, its exit status (as
// pclose gives it; -1 when the command could not be run).
std::string CommandOutput(const std::string& sCmd, int* pStatus = nullptr);

// The repository's folders.
std::string SourceDir();
std::string ExamplesDir();

// The regular expression of the general date form "M/d/yyyy h:mm:ss AM".
extern const char* const kDateTimeRegex;

}  // namespace testutil

// Expects the statement to raise the run-time error num.
#define EXPECT_RUN_ERROR(stmt, num) EXPECT_EQ(::testutil::RunErrorOf([&] { stmt; }), (num))
