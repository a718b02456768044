// Helpers shared by the test executables.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testutil {

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

// The repository's folders.
std::string SourceDir();
std::string ExamplesDir();

// The regular expression of the general date form "M/d/yyyy h:mm:ss AM".
extern const char* const kDateTimeRegex;

}  // namespace testutil
