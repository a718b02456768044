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

// A path resolved in text, as the platform the folders come from resolves it: "." and ".."
// steps are taken on the names before them (never above the root), runs of separators count as
// one, and the trailing dots of a name are dropped. Nothing needs to exist.
std::string ResolvePathText(const std::string& sPath);

// The folder that stands in for the data root when there is neither a per-user nor an all-users
// one: sProgramDir immediately followed by "..\..\..\Release", resolved in text, so the
// program folder's grandparent + "Release"; empty when that folder does not exist.
std::string GetReleaseFallback(const std::string& sProgramDir);

// The folder of the running library (or executable), without a trailing separator.
std::string GetProgramDir();

// Forgets the cached root of this thread, so that the next GetAppDataRoot computes it again.
void ResetAppDataRootCache();

// How many times this thread computed the root (for checking the cache).
long AppDataRootComputations();

// Gives the memory that the process has freed back to the system (glibc keeps it otherwise,
// and the next phase of an export would be counted with it); does nothing elsewhere.
void ReturnFreedMemory();

}  // namespace modEnvironment
