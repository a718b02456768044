// Writing a file so that nobody ever sees half of it, whatever its format: the content goes to a
// hidden temporary file in the target's folder, which is renamed over the target once complete.
// A save that fails removes its temporary file, leaves the target as it was, and raises run-time
// error 1004 whose description names the file and the system's reason. Every saver of a workbook
// format writes through WriteThroughTempFile.
#pragma once

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "support/clsRunError.h"

namespace modSaveFile {

// A file that could not be written: run-time error 1004, described as
// "Cannot write 'PATH': REASON". Reason is the system's text ("No space left on device").
class clsWriteError : public clsRunError {
public:
    clsWriteError(std::string sPath, std::string sReason);
    std::string Path;
    std::string Reason;
};

// Raised by a writer when the system refused one of its writes (nErrno 0: reason unknown) or
// with its own reason; WriteThroughTempFile names the target in the error it passes on.
[[noreturn]] void RaiseWriteFailure(int nErrno);
[[noreturn]] void RaiseWriteFailure(const std::string& sReason);

// The system's text for an error number ("No space left on device").
std::string SystemReason(int nErrno);

// A temporary file of ours that is this old was left by a save that never ended (a killed
// process): a save still running keeps writing to its file, so its time stays recent.
inline constexpr std::chrono::hours kStaleAfter{1};

// ".NAME.~PID-THREAD-N.tmp" beside the target: unique without shared state.
std::filesystem::path TempNameBeside(const std::filesystem::path& target);

// True when sFileName has the form of our temporary files.
bool IsTempFileName(const std::string& sFileName);

// Removes from dir the regular files named like our temporary files whose last change is at
// least kStaleAfter before tNow; never anything else. Failures are ignored. Returns how many
// files went.
long SweepStaleTempFiles(
    const std::filesystem::path& dir,
    std::filesystem::file_time_type tNow = std::filesystem::file_time_type::clock::now());

// A scratch file in dir that no one else sees: created with a name starting with sPrefix,
// removed from the folder at once, so it disappears with its handle whatever happens. Null when
// the folder takes no file (errno says why).
std::FILE* UnlinkedScratchFile(const std::filesystem::path& dir, const std::string& sPrefix);

// Writes the file sPath: checks its folder, sweeps that folder's stale temporary files, has
// fnWrite(sTempFile, sFolder) write the whole file under a temporary name in that folder (the
// folder also takes any scratch files of the writer), and renames it over sPath. A failure
// removes the temporary file and raises: clsWriteError for the file system's refusals, the
// writer's own error otherwise.
void WriteThroughTempFile(
    const std::string& sPath,
    const std::function<void(const std::string& sTempFile, const std::string& sFolder)>& fnWrite);

// The same under a temporary name chosen before (TempNameBeside): a writer that began the file
// earlier, in the same folder, completes it in fnWrite.
void WriteThroughTempFile(
    const std::string& sPath, const std::string& sTempFile,
    const std::function<void(const std::string& sTempFile, const std::string& sFolder)>& fnWrite);

// A test seam, unset in the library and the tool: when set, it is asked with the target's path
// once a temporary file is complete, and an error number it returns fails that save as if the
// writer's last write had failed with it.
using SaveFaultFn = int (*)(const std::string& sPath);
void SetSaveFaultForTests(SaveFaultFn fn);

}  // namespace modSaveFile
