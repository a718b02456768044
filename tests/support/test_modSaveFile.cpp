// Writing through a temporary file: the name of the temporary file, the sweep of the ones a
// killed save left behind, and what a refused write leaves (the old file, no temporary file, the
// system's reason in the error).
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>

#include "TestUtil.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testutil::NamesIn;
using testutil::TempDir;

namespace {

// Sets the test seam for the life of the object.
class ScopedSaveFault {
public:
    explicit ScopedSaveFault(modSaveFile::SaveFaultFn fn) { modSaveFile::SetSaveFaultForTests(fn); }
    ~ScopedSaveFault() { modSaveFile::SetSaveFaultForTests(nullptr); }
};

// A file with the given contents whose last change lies tAge before now.
void WriteAged(const fs::path& p, fs::file_time_type::duration tAge, const std::string& s = "x") {
    testutil::WriteFile(p.string(), s);
    fs::last_write_time(p, fs::file_time_type::clock::now() - tAge);
}

// The error a call raises.
modSaveFile::clsWriteError WriteErrorOf(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const modSaveFile::clsWriteError& e) {
        return e;
    }
    return modSaveFile::clsWriteError("(none)", "(no error)");
}

void WriteText(const std::string& sFile, const std::string& sText) {
    testutil::WriteFile(sFile, sText);
}

}  // namespace

TEST(SaveFile, TemporaryNamesAreRecognisedAndNothingElse) {
    const fs::path p = modSaveFile::TempNameBeside("/data/Pump BOM.xlsx");
    EXPECT_EQ(p.parent_path(), fs::path("/data"));
    const std::string sName = p.filename().string();
    EXPECT_EQ(sName.rfind(".Pump BOM.xlsx.~", 0), 0u) << sName;
    EXPECT_TRUE(modSaveFile::IsTempFileName(sName)) << sName;
    EXPECT_TRUE(modSaveFile::IsTempFileName(".a.~1-2-3.tmp"));
    EXPECT_TRUE(modSaveFile::IsTempFileName("..~a.~10-20-30.tmp"));
    for (const char* s : {"Pump BOM.xlsx", ".Pump BOM.xlsx.tmp", "a.xlsx.~1-2-3.tmp", ".~1-2-3.tmp",
                          ".a.~1-2.tmp", ".a.~1-2-3-4.tmp", ".a.~1--3.tmp", ".a.~-2-3.tmp",
                          ".a.~1-2-3x.tmp", ".a.~1-2-3.tmp.bak", ".a.~1-2-3.TMP", ".a.~.tmp"}) {
        EXPECT_FALSE(modSaveFile::IsTempFileName(s)) << s;
    }
}

TEST(SaveFile, TheSweepRemovesOnlyTemporaryFilesOfOursOlderThanAnHour) {
    TempDir d;
    const fs::path dir = d.Path();
    WriteAged(dir / ".wb.xlsx.~100-200-0.tmp", 2h);     // left by a killed save
    WriteAged(dir / ".wb.xlsx.~100-200-1.tmp", 61min);  // also
    WriteAged(dir / ".wb.xlsx.~300-400-0.tmp", 59min);  // a save may still be writing it
    WriteAged(dir / ".wb.xlsx.~300-400-1.tmp", -5min);  // a clock ahead of ours
    WriteAged(dir / ".wb.xlsx.tmp", 2h);                // not ours
    WriteAged(dir / "notes.tmp", 2h);                   // not ours
    WriteAged(dir / "wb.xlsx", 2h);                     // a workbook
    fs::create_directory(dir / ".dir.~1-2-3.tmp");      // a folder, whatever its name
    fs::last_write_time(dir / ".dir.~1-2-3.tmp", fs::file_time_type::clock::now() - 2h);
    TempDir other;
    WriteAged(other.Path() / "elsewhere", 2h);
    fs::create_symlink(other.Path() / "elsewhere", dir / ".link.~1-2-3.tmp");  // a link: kept

    EXPECT_EQ(modSaveFile::SweepStaleTempFiles(dir), 2);
    EXPECT_EQ(NamesIn(dir),
              ".dir.~1-2-3.tmp,.link.~1-2-3.tmp,.wb.xlsx.tmp,.wb.xlsx.~300-400-0.tmp,"
              ".wb.xlsx.~300-400-1.tmp,notes.tmp,wb.xlsx");
    EXPECT_TRUE(fs::exists(other.Path() / "elsewhere"));
    EXPECT_EQ(modSaveFile::SweepStaleTempFiles(d.Path() / "missing"), 0);
}

TEST(SaveFile, ACompleteFileTakesThePlaceOfTheOldOneAndNoTemporaryFileStays) {
    TempDir d;
    const std::string sFile = d.File("wb.xlsx");
    WriteText(sFile, "old");
    std::string sSeenTemp, sSeenFolder;
    modSaveFile::WriteThroughTempFile(sFile,
                                      [&](const std::string& sTemp, const std::string& sFolder) {
                                          sSeenTemp = sTemp;
                                          sSeenFolder = sFolder;
                                          WriteText(sTemp, "new");
                                      });
    EXPECT_EQ(testutil::ReadFile(sFile), "new");
    EXPECT_EQ(fs::path(sSeenTemp).parent_path(), d.Path());
    EXPECT_TRUE(modSaveFile::IsTempFileName(fs::path(sSeenTemp).filename().string()));
    EXPECT_EQ(sSeenFolder, d.Str());
    EXPECT_EQ(NamesIn(d.Path()), "wb.xlsx");
}

TEST(SaveFile, EverySaveSweepsItsFolder) {
    TempDir d;
    WriteAged(d.Path() / ".old.xlsx.~1-2-3.tmp", 2h);
    WriteAged(d.Path() / ".new.xlsx.~1-2-3.tmp", 1min);
    modSaveFile::WriteThroughTempFile(
        d.File("wb.xlsx"),
        [](const std::string& sTemp, const std::string&) { WriteText(sTemp, "new"); });
    EXPECT_EQ(NamesIn(d.Path()), ".new.xlsx.~1-2-3.tmp,wb.xlsx");
}

TEST(SaveFile, AWriteTheSystemRefusesNamesTheFileAndTheReason) {
    TempDir d;
    const std::string sFile = d.File("wb.xlsx");
    WriteText(sFile, "old");
    const auto e = WriteErrorOf([&] {
        modSaveFile::WriteThroughTempFile(sFile, [](const std::string& sTemp, const std::string&) {
            WriteText(sTemp, "half");
            modSaveFile::RaiseWriteFailure(ENOSPC);
        });
    });
    EXPECT_EQ(e.Number, modConst::errAppDefined);
    EXPECT_EQ(e.Path, sFile);
    EXPECT_EQ(e.Reason, "No space left on device");
    EXPECT_EQ(e.Description, "Cannot write '" + sFile + "': No space left on device");
    EXPECT_EQ(testutil::ReadFile(sFile), "old");
    EXPECT_EQ(NamesIn(d.Path()), "wb.xlsx");
}

TEST(SaveFile, AnyOtherErrorOfTheWriterPassesUnchangedAndLeavesNoTemporaryFile) {
    TempDir d;
    long lNumber = 0;
    try {
        modSaveFile::WriteThroughTempFile(d.File("wb.xlsx"),
                                          [](const std::string& sTemp, const std::string&) {
                                              WriteText(sTemp, "half");
                                              RaiseError(modConst::errUserInterrupt);
                                          });
    } catch (const clsRunError& e) {
        lNumber = e.Number;
        EXPECT_EQ(dynamic_cast<const modSaveFile::clsWriteError*>(&e), nullptr);
    }
    EXPECT_EQ(lNumber, modConst::errUserInterrupt);
    EXPECT_EQ(NamesIn(d.Path()), "");
}

TEST(SaveFile, AFolderThatIsNotThereOrNotAFolderGivesTheSystemsReason) {
    TempDir d;
    bool bCalled = false;
    auto fnWrite = [&](const std::string&, const std::string&) { bCalled = true; };
    auto e =
        WriteErrorOf([&] { modSaveFile::WriteThroughTempFile(d.File("gone/wb.xlsx"), fnWrite); });
    EXPECT_EQ(e.Description,
              "Cannot write '" + d.File("gone/wb.xlsx") + "': No such file or directory");
    WriteText(d.File("plain"), "a file");
    e = WriteErrorOf([&] { modSaveFile::WriteThroughTempFile(d.File("plain/wb.xlsx"), fnWrite); });
    EXPECT_EQ(e.Reason, "Not a directory");
    EXPECT_FALSE(bCalled);
}

TEST(SaveFile, ATargetThatCannotBeReplacedGivesTheSystemsReason) {
    TempDir d;
    fs::create_directories(d.Path() / "wb.xlsx" / "inside");
    const auto e = WriteErrorOf([&] {
        modSaveFile::WriteThroughTempFile(
            d.File("wb.xlsx"),
            [](const std::string& sTemp, const std::string&) { WriteText(sTemp, "new"); });
    });
    EXPECT_EQ(e.Reason, "Is a directory");
    EXPECT_EQ(NamesIn(d.Path()), "wb.xlsx");
}

TEST(SaveFile, TheTestSeamFailsTheLastWriteOfTheChosenSave) {
    TempDir d;
    const std::string sFile = d.File("wb.xlsx");
    WriteText(sFile, "old");
    static std::string s_sAsked;
    ScopedSaveFault oFault([](const std::string& sPath) {
        s_sAsked = sPath;
        return ENOSPC;
    });
    bool bWritten = false;
    const auto e = WriteErrorOf([&] {
        modSaveFile::WriteThroughTempFile(sFile, [&](const std::string& sTemp, const std::string&) {
            WriteText(sTemp, "new");
            bWritten = true;
        });
    });
    EXPECT_TRUE(bWritten);
    EXPECT_EQ(s_sAsked, sFile);
    EXPECT_EQ(e.Reason, "No space left on device");
    EXPECT_EQ(testutil::ReadFile(sFile), "old");
    EXPECT_EQ(NamesIn(d.Path()), "wb.xlsx");
}
