// Directory keys turned into folder paths: the per-user application-data root of the product
// family, and the folders below it or below the program's own folder. Every path ends with the
// platform's separator.
#pragma once

#include <string>

namespace modEnvironment {

// The path separator of the platform; the key table's backslashes are written with it.
#ifdef _WIN32
inline constexpr char PATH_SEP = '\\';
#else
inline constexpr char PATH_SEP = '/';
#endif

// CSIDL of the per-user application-data folder.
inline constexpr long CSIDL_APPDATA = 26;

std::string GetDir(const std::string& sKey);
std::string GetAppDataRoot();
std::string GetReleaseDir();
std::string GetFolderPath(const std::string& sPath);
bool CopyFolder(const std::string& sFrom, const std::string& sTo);
std::string GetSpecialFolder(long nCsidl);
std::string GetAllUsersAppData();
std::string GetAppDataTail(const std::string& sAppData);
std::string AddTrailingSlashParent(const std::string& sPath);

// The folder of the running library (or executable), without a trailing separator.
std::string GetProgramDir();

// Forgets the cached root of this thread, so that the next GetAppDataRoot computes it again.
void ResetAppDataRootCache();

// How many times this thread computed the root (for checking the cache).
long AppDataRootComputations();

}  // namespace modEnvironment
