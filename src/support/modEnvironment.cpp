#include "support/modEnvironment.h"

#include <dlfcn.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"

namespace fs = std::filesystem;

namespace modEnvironment {

namespace {

thread_local std::string AppDataRoot;
thread_local long lRootComputations = 0;

const char* const FAMILY_FOLDER = "Korvane";

std::string GetEnv(const char* sName) {
    const char* s = std::getenv(sName);
    return s ? std::string(s) : std::string();
}

bool EndsWithSep(const std::string& s) {
    return !s.empty() && s.back() == PATH_SEP;
}

std::string WithTrailingSep(const std::string& s) {
    return EndsWithSep(s) ? s : s + PATH_SEP;
}

// The key table's relative paths, written with backslashes, in the platform's form.
std::string Native(std::string s) {
    for (char& c : s)
        if (c == '\\') c = PATH_SEP;
    return s;
}

bool FolderExists(const std::string& s) {
    std::error_code ec;
    return !s.empty() && fs::is_directory(s, ec);
}

// The one interactive output of the library: there is no window, so it goes to standard error.
void ShowMessageBox(const std::string& sTitle, const std::string& sText) {
    std::cerr << sTitle << ": " << sText << std::endl;
}

}  // namespace

std::string GetProgramDir() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&GetProgramDir), &info) && info.dli_fname) {
        std::error_code ec;
        fs::path p = fs::weakly_canonical(fs::path(info.dli_fname), ec);
        if (ec) p = fs::path(info.dli_fname);
        return p.parent_path().string();
    }
    std::error_code ec;
    return fs::current_path(ec).string();
}

std::string GetSpecialFolder(long nCsidl) {
    if (nCsidl != CSIDL_APPDATA) return std::string();
    std::string s = GetEnv("XDG_CONFIG_HOME");
    if (!s.empty()) return s;
    std::string sHome = GetEnv("HOME");
    return sHome.empty() ? std::string() : sHome + PATH_SEP + ".config";
}

std::string GetAllUsersAppData() {
    // The all-users configuration folder: the first entry of XDG_CONFIG_DIRS, or /etc/xdg.
    std::string s = GetEnv("XDG_CONFIG_DIRS");
    size_t p = s.find(':');
    if (p != std::string::npos) s = s.substr(0, p);
    return s.empty() ? std::string("/etc/xdg") : s;
}

std::string GetAppDataTail(const std::string& sAppData) {
    // The fourth separator-delimited component, trimmed.
    size_t lStart = 0;
    for (int i = 0; i < 3; ++i) {
        size_t p = sAppData.find(PATH_SEP, lStart);
        if (p == std::string::npos) return Native("\\Application Data\\");
        lStart = p + 1;
    }
    size_t lEnd = sAppData.find(PATH_SEP, lStart);
    std::string sPart =
        sAppData.substr(lStart, lEnd == std::string::npos ? std::string::npos : lEnd - lStart);
    size_t a = sPart.find_first_not_of(' ');
    size_t b = sPart.find_last_not_of(' ');
    sPart = (a == std::string::npos) ? std::string() : sPart.substr(a, b - a + 1);
    // A fourth component that is there but blank still counts: only a missing one falls back.
    return std::string(1, PATH_SEP) + sPart + PATH_SEP;
}

std::string AddTrailingSlashParent(const std::string& sPath) {
    size_t p = sPath.rfind(PATH_SEP);
    return p == std::string::npos ? std::string() : sPath.substr(0, p + 1);
}

std::string GetFolderPath(const std::string& sPath) {
    std::error_code ec;
    if (!FolderExists(sPath)) return std::string();
    fs::path p = fs::canonical(sPath, ec);
    return ec ? std::string() : p.string();
}

bool CopyFolder(const std::string& sFrom, const std::string& sTo) {
    std::error_code ec;
    fs::copy(sFrom, sTo, fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    return !ec;
}

std::string ResolvePathText(const std::string& sPath) {
    const bool bAbsolute = !sPath.empty() && sPath.front() == PATH_SEP;
    std::vector<std::string> arrParts;
    size_t lStart = 0;
    while (lStart <= sPath.size()) {
        size_t lEnd = sPath.find(PATH_SEP, lStart);
        if (lEnd == std::string::npos) lEnd = sPath.size();
        std::string sPart = sPath.substr(lStart, lEnd - lStart);
        lStart = lEnd + 1;
        if (sPart.empty() || sPart == ".") continue;
        if (sPart == "..") {
            if (!arrParts.empty() && arrParts.back() != "..") {
                arrParts.pop_back();
            } else if (!bAbsolute) {
                arrParts.push_back(sPart);  // above a relative start; above the root is the root
            }
            continue;
        }
        // The trailing dots of a name are no part of it: "bin.." names "bin".
        sPart.erase(sPart.find_last_not_of('.') + 1);
        if (!sPart.empty()) arrParts.push_back(sPart);
    }
    std::string sOut = bAbsolute ? std::string(1, PATH_SEP) : std::string();
    for (size_t i = 0; i < arrParts.size(); ++i) {
        if (i > 0) sOut += PATH_SEP;
        sOut += arrParts[i];
    }
    return sOut.empty() ? std::string(".") : sOut;
}

std::string GetReleaseFallback(const std::string& sProgramDir) {
    // No separator between the program folder and the relative part: the last name of the
    // program folder takes the two dots ("bin.."), which the resolution drops again, so the
    // three steps up end in the program folder's grandparent.
    return GetFolderPath(ResolvePathText(sProgramDir + Native("..\\..\\..\\Release")));
}

std::string GetReleaseDir() {
    // Never a development environment: the release folder is the program folder.
    return GetProgramDir() + PATH_SEP;
}

std::string GetAppDataRoot() {
    if (!AppDataRoot.empty()) return AppDataRoot;
    ++lRootComputations;
    std::string sAppData = GetEnv("APPDATA");
    if (sAppData.empty()) sAppData = GetSpecialFolder(CSIDL_APPDATA);
    std::string sTail = GetAppDataTail(sAppData);
    std::string sUserRoot = sAppData + PATH_SEP + FAMILY_FOLDER;
    std::string sRoot;
    if (FolderExists(sUserRoot)) {
        sRoot = sUserRoot;
    } else {
        std::string sAllUsers = GetEnv("ALLUSERSPROFILE");
        std::string sAllRoot = !sAllUsers.empty() ? sAllUsers + sTail + FAMILY_FOLDER
                                                  : GetAllUsersAppData() + PATH_SEP + FAMILY_FOLDER;
        if (FolderExists(sAllRoot)) {
            if (!CopyFolder(sAllRoot, sUserRoot)) {
                ShowMessageBox("WEX (modEnvironment)", "Unable to create user profile copy");
            }
            sRoot = sUserRoot;
        } else {
            sRoot = GetReleaseFallback(GetProgramDir());
        }
    }
    AppDataRoot = WithTrailingSep(sRoot);
    return AppDataRoot;
}

std::string GetDir(const std::string& sKey) {
    try {
        std::string sPath;
        // Every key but the two release ones is based on the data root: its first use on a
        // thread prepares the per-user folder, whatever the key.
        if (sKey != "RELEASE_DIR" && sKey != "HELP_DIR") GetAppDataRoot();
        if (sKey == "RELEASE_DIR" || sKey == "APP_PATH") {
            sPath = GetReleaseDir();
        } else if (sKey == "HELP_DIR") {
            sPath = GetReleaseDir() + "help";
        } else if (sKey == "ORV_HELP_DIR") {
            sPath = AddTrailingSlashParent(GetProgramDir()) + Native("Help\\");
        } else {
            std::string sRoot = GetAppDataRoot();
            bool bNoRoot = sRoot.size() <= 1;
            std::string sProgram = GetProgramDir();
            if (sKey == "APP_DATA_ROOT_DIR")
                sPath = sRoot;
            else if (sKey == "CACHE_DIR")
                sPath = sRoot + "cache";
            else if (sKey == "CONFIG_DIR")
                sPath = sRoot + "config";
            else if (sKey == "DOWNLOAD_DIR")
                sPath = sRoot + Native("config\\download");
            else if (sKey == "ADDINS_DIR")
                sPath = sRoot + Native("config\\addins");
            else if (sKey == "SETTINGS_DIR")
                sPath = sRoot + Native("config\\settings");
            else if (sKey == "REPORTS_DIR")
                sPath = sRoot + Native("config\\reports");
            else if (sKey == "CONNECTIONS_DIR")
                sPath = sRoot + "connections";
            else if (sKey == "TEMP_DIR")
                sPath = sRoot + "temp";
            else if (sKey == "ORV_EXPORT_TEMP_DIR")
                sPath = bNoRoot ? sProgram + Native("\\Temp\\")
                                : sRoot + Native("Addin Modules\\Zenfold\\Export\\Temp\\");
            else if (sKey == "ORV_EXPORT_DIR")
                sPath = bNoRoot ? sProgram + PATH_SEP
                                : sRoot + Native("Addin Modules\\Zenfold\\Export\\");
            else if (sKey == "ORV_IMPORT_DIR")
                sPath = bNoRoot ? sProgram + PATH_SEP
                                : sRoot + Native("Addin Modules\\Zenfold\\Import\\");
            else
                sPath = sRoot;  // an unknown key takes the root as its base
        }
        return WithTrailingSep(sPath);
    } catch (const clsRunError& e) {
        throw clsRunError(e.Number, "could not find application data folder:" + e.Description);
    } catch (const std::exception& e) {
        throw clsRunError(modConst::errPathNotFound,
                          "could not find application data folder:" + std::string(e.what()));
    }
}

void ResetAppDataRootCache() {
    AppDataRoot.clear();
}

long AppDataRootComputations() {
    return lRootComputations;
}

void ReturnFreedMemory() {
    // Under a sanitizer its own allocator serves the process: glibc's heap was never set up, and
    // setting it up here, from several exports' threads at once, is not safe.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    malloc_trim(0);
#endif
}

}  // namespace modEnvironment
