#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "TestUtil.h"
#include "support/modEnvironment.h"

namespace fs = std::filesystem;
using namespace modEnvironment;
using testutil::ScopedEnv;
using testutil::TempDir;

namespace {

// Each test starts from an empty cache on this thread.
class DirTest : public ::testing::Test {
protected:
    void SetUp() override { ResetAppDataRootCache(); }
    void TearDown() override { ResetAppDataRootCache(); }
};

}  // namespace

TEST_F(DirTest, ExportDirIsBelowTheUserFolderWhenItExists) {
    TempDir tmp;
    fs::create_directories(tmp.Path() / "Korvane");
    ScopedEnv env("APPDATA", tmp.Str());
    EXPECT_EQ(GetDir("ORV_EXPORT_DIR"), tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export/");
    EXPECT_EQ(GetDir("ORV_EXPORT_TEMP_DIR"),
              tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export/Temp/");
    EXPECT_EQ(GetDir("ORV_IMPORT_DIR"), tmp.Str() + "/Korvane/Addin Modules/Zenfold/Import/");
    EXPECT_EQ(GetDir("APP_DATA_ROOT_DIR"), tmp.Str() + "/Korvane/");
    EXPECT_EQ(GetDir("CACHE_DIR"), tmp.Str() + "/Korvane/cache/");
    EXPECT_EQ(GetDir("CONFIG_DIR"), tmp.Str() + "/Korvane/config/");
    EXPECT_EQ(GetDir("DOWNLOAD_DIR"), tmp.Str() + "/Korvane/config/download/");
    EXPECT_EQ(GetDir("ADDINS_DIR"), tmp.Str() + "/Korvane/config/addins/");
    EXPECT_EQ(GetDir("SETTINGS_DIR"), tmp.Str() + "/Korvane/config/settings/");
    EXPECT_EQ(GetDir("REPORTS_DIR"), tmp.Str() + "/Korvane/config/reports/");
    EXPECT_EQ(GetDir("CONNECTIONS_DIR"), tmp.Str() + "/Korvane/connections/");
    EXPECT_EQ(GetDir("TEMP_DIR"), tmp.Str() + "/Korvane/temp/");
}

TEST_F(DirTest, EveryKeyButTheReleaseOnesPreparesTheDataRoot) {
    TempDir tmp;
    fs::create_directories(tmp.Path() / "Korvane");
    ScopedEnv env("APPDATA", tmp.Str());
    long lBefore = AppDataRootComputations();
    GetDir("RELEASE_DIR");
    GetDir("HELP_DIR");
    EXPECT_EQ(AppDataRootComputations(), lBefore);
    EXPECT_EQ(GetDir("APP_PATH"), GetProgramDir() + "/");
    EXPECT_EQ(AppDataRootComputations(), lBefore + 1);
}

TEST_F(DirTest, ReleaseKeysUseTheProgramFolder) {
    std::string sProgram = GetProgramDir();
    EXPECT_EQ(GetDir("RELEASE_DIR"), sProgram + "/");
    EXPECT_EQ(GetDir("APP_PATH"), sProgram + "/");
    EXPECT_EQ(GetDir("HELP_DIR"), sProgram + "/help/");
    EXPECT_EQ(GetDir("ORV_HELP_DIR"), AddTrailingSlashParent(sProgram) + "Help/");
    EXPECT_EQ(GetReleaseDir(), sProgram + "/");
}

TEST_F(DirTest, SecondCallOnTheSameThreadDoesNotLookAgain) {
    TempDir a, b;
    fs::create_directories(a.Path() / "Korvane");
    fs::create_directories(b.Path() / "Korvane");
    ScopedEnv env("APPDATA", a.Str());
    long lBefore = AppDataRootComputations();
    std::string sFirst = GetAppDataRoot();
    EXPECT_EQ(AppDataRootComputations(), lBefore + 1);
    setenv("APPDATA", b.Str().c_str(), 1);
    fs::remove_all(a.Path() / "Korvane");  // the file system is not asked again either
    EXPECT_EQ(GetAppDataRoot(), sFirst);
    EXPECT_EQ(GetDir("ORV_EXPORT_DIR"), a.Str() + "/Korvane/Addin Modules/Zenfold/Export/");
    EXPECT_EQ(AppDataRootComputations(), lBefore + 1);
}

TEST_F(DirTest, TheCacheIsPerThread) {
    TempDir a, b;
    fs::create_directories(a.Path() / "Korvane");
    fs::create_directories(b.Path() / "Korvane");
    ScopedEnv env("APPDATA", a.Str());
    std::string sMain = GetAppDataRoot();
    setenv("APPDATA", b.Str().c_str(), 1);
    std::string sOther;
    std::thread t([&] { sOther = GetAppDataRoot(); });
    t.join();
    EXPECT_EQ(sMain, a.Str() + "/Korvane/");
    EXPECT_EQ(sOther, b.Str() + "/Korvane/");
}

TEST_F(DirTest, AllUsersFolderIsCopiedToTheUserFolder) {
    TempDir user, all;
    // ALLUSERSPROFILE + the fourth component of the user path + "Korvane".
    fs::path pUser = user.Path() / "home" / "me" / ".config";
    fs::create_directories(pUser);
    std::string sTail = GetAppDataTail(pUser.string());
    fs::path pAllRoot = fs::path(all.Str() + sTail + "Korvane");
    fs::create_directories(pAllRoot / "Addin Modules" / "Zenfold" / "Export");
    testutil::WriteFile((pAllRoot / "marker.txt").string(), "x");
    ScopedEnv env("APPDATA", pUser.string());
    ScopedEnv env2("ALLUSERSPROFILE", all.Str());
    EXPECT_EQ(GetAppDataRoot(), pUser.string() + "/Korvane/");
    EXPECT_TRUE(fs::exists(pUser / "Korvane" / "marker.txt"));
    EXPECT_TRUE(fs::is_directory(pUser / "Korvane" / "Addin Modules" / "Zenfold" / "Export"));
}

TEST_F(DirTest, WithoutAnyDataFolderTheExportDirIsTheProgramFolder) {
    TempDir user, all;
    ScopedEnv env("APPDATA", user.Str());
    ScopedEnv env2("ALLUSERSPROFILE", all.Str());
    // No Korvane anywhere and no Release folder beside the program folder's parent: the root
    // is empty.
    if (!GetReleaseFallback(GetProgramDir()).empty()) GTEST_SKIP() << "a Release folder exists";
    EXPECT_EQ(GetAppDataRoot(), "/");
    EXPECT_EQ(GetDir("ORV_EXPORT_DIR"), GetProgramDir() + "/");
    EXPECT_EQ(GetDir("ORV_EXPORT_TEMP_DIR"), GetProgramDir() + "/Temp/");
}

TEST_F(DirTest, UnsetAppDataFallsBackToTheXdgConfigFolder) {
    TempDir tmp;
    fs::create_directories(tmp.Path() / "cfg" / "Korvane");
    const char* sOld = std::getenv("APPDATA");
    std::string sSaved = sOld ? sOld : "";
    unsetenv("APPDATA");
    ScopedEnv env("XDG_CONFIG_HOME", (tmp.Path() / "cfg").string());
    EXPECT_EQ(GetSpecialFolder(CSIDL_APPDATA), (tmp.Path() / "cfg").string());
    EXPECT_EQ(GetAppDataRoot(), (tmp.Path() / "cfg" / "Korvane").string() + "/");
    if (sOld) setenv("APPDATA", sSaved.c_str(), 1);
}

TEST(AppDataTail, FourthComponentOrApplicationData) {
    EXPECT_EQ(GetAppDataTail("/home/me/.config"), "/.config/");
    EXPECT_EQ(GetAppDataTail("/home/me/ Roaming /x"), "/Roaming/");
    EXPECT_EQ(GetAppDataTail("/home/me"), "/Application Data/");
    EXPECT_EQ(GetAppDataTail("/home/me/"), "//");  // there, but blank
    EXPECT_EQ(GetAppDataTail("/home/me/   /x"), "//");
    EXPECT_EQ(GetAppDataTail(""), "/Application Data/");
}

TEST(AllUsersAppData, FirstXdgConfigDirOrEtcXdg) {
    {
        ScopedEnv env("XDG_CONFIG_DIRS", "/opt/a:/opt/b");
        EXPECT_EQ(GetAllUsersAppData(), "/opt/a");
    }
    {
        ScopedEnv env("XDG_CONFIG_DIRS", "");
        EXPECT_EQ(GetAllUsersAppData(), "/etc/xdg");
    }
}

TEST(AddTrailingSlashParent, KeepsTextUpToTheLastSeparator) {
    EXPECT_EQ(AddTrailingSlashParent("/opt/orv/bin"), "/opt/orv/");
    EXPECT_EQ(AddTrailingSlashParent("nothing"), "");
}

TEST(FolderHelpers, FolderPathAndCopy) {
    TempDir tmp;
    EXPECT_EQ(GetFolderPath(tmp.Str() + "/missing"), "");
    fs::create_directories(tmp.Path() / "a" / "b");
    testutil::WriteFile((tmp.Path() / "a" / "b" / "f.txt").string(), "1");
    EXPECT_EQ(GetFolderPath(tmp.Str() + "/a/b/.."), fs::canonical(tmp.Path() / "a").string());
    EXPECT_TRUE(CopyFolder((tmp.Path() / "a").string(), (tmp.Path() / "c").string()));
    EXPECT_EQ(testutil::ReadFile((tmp.Path() / "c" / "b" / "f.txt").string()), "1");
}

TEST(ResolvePathText, StepsDotsAndSeparatorsAreResolvedInText) {
    // The program folder immediately followed by the release fallback's relative part.
    EXPECT_EQ(ResolvePathText("/opt/orv/bin../../../Release"), "/opt/Release");
    EXPECT_EQ(ResolvePathText("/opt/orv/bin/../Release"), "/opt/orv/Release");
    EXPECT_EQ(ResolvePathText("/opt//orv/./bin/"), "/opt/orv/bin");
    EXPECT_EQ(ResolvePathText("/opt/orv.../bin."), "/opt/orv/bin");   // trailing dots dropped
    EXPECT_EQ(ResolvePathText("/a/../../../Release"), "/Release");    // never above the root
    EXPECT_EQ(ResolvePathText("/..../x"), "/x");                      // a name of dots only
    EXPECT_EQ(ResolvePathText("bin../../../Release"), "../Release");  // a relative start
    EXPECT_EQ(ResolvePathText("a/.."), ".");
    EXPECT_EQ(ResolvePathText("/"), "/");
}

TEST(ReleaseFallback, IsTheProgramFoldersGrandparentPlusRelease) {
    TempDir tmp;
    const fs::path pProgram = tmp.Path() / "orv" / "bin";
    fs::create_directories(pProgram);
    // Nothing there yet: empty.
    EXPECT_EQ(GetReleaseFallback(pProgram.string()), "");
    // The parent's Release folder is not the one.
    fs::create_directories(tmp.Path() / "orv" / "Release");
    EXPECT_EQ(GetReleaseFallback(pProgram.string()), "");
    // The grandparent's is, found without a folder named "bin.." anywhere.
    fs::create_directories(tmp.Path() / "Release");
    EXPECT_EQ(GetReleaseFallback(pProgram.string()),
              fs::canonical(tmp.Path() / "Release").string());
    EXPECT_FALSE(fs::exists(tmp.Path() / "orv" / "bin.."));
}

namespace {

// The process's resident memory in KB.
long ResidentKb() {
    std::ifstream in("/proc/self/statm");
    long lSize = 0, lResident = 0;
    in >> lSize >> lResident;
    return lResident * (::sysconf(_SC_PAGESIZE) / 1024);
}

constexpr bool kOwnAllocator =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    true;
#else
    false;
#endif

}  // namespace

// Memory freed inside the heap goes back to the system: glibc keeps it otherwise, and gives back
// only what lies at the top of its heap.
TEST(ReturnFreedMemory, FreedPagesInsideTheHeapLeaveTheProcess) {
    if (kOwnAllocator) GTEST_SKIP() << "the sanitizers bring an allocator of their own";
    // 128 MB in pieces below the size glibc maps on its own; every other one is freed, so that
    // no freed piece joins another or lies at the top of the heap.
    constexpr size_t kPiece = 64 * 1024;
    std::vector<char*> arr;
    for (int i = 0; i < 2048; ++i) {
        char* p = static_cast<char*>(std::malloc(kPiece));
        ASSERT_NE(p, nullptr);
        std::memset(p, 1, kPiece);
        arr.push_back(p);
    }
    for (size_t i = 0; i < arr.size(); i += 2)
        std::free(arr[i]);
    const long lBefore = ResidentKb();
    ReturnFreedMemory();
    const long lAfter = ResidentKb();
    for (size_t i = 1; i < arr.size(); i += 2)
        std::free(arr[i]);
    EXPECT_LT(lAfter, lBefore - 32 * 1024) << lBefore << " KB before, " << lAfter << " KB after";
}
