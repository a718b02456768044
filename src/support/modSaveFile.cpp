#include "support/modSaveFile.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <thread>

#include "support/modConst.h"

namespace fs = std::filesystem;

namespace modSaveFile {

namespace {

std::atomic<SaveFaultFn> g_pSaveFault{nullptr};

void RemoveQuietly(const fs::path& p) {
    std::error_code ec;
    fs::remove(p, ec);
}

}  // namespace

clsWriteError::clsWriteError(std::string sPath, std::string sReason)
    : clsRunError(modConst::errAppDefined, "Cannot write '" + sPath + "': " + sReason),
      Path(std::move(sPath)),
      Reason(std::move(sReason)) {}

std::string SystemReason(int nErrno) {
    if (nErrno == 0) return "unknown reason";
    return std::system_category().message(nErrno);
}

void RaiseWriteFailure(int nErrno) {
    throw clsWriteError("", SystemReason(nErrno));
}

void RaiseWriteFailure(const std::string& sReason) {
    throw clsWriteError("", sReason);
}

std::FILE* UnlinkedScratchFile(const fs::path& dir, const std::string& sPrefix) {
    std::string s = (dir / (sPrefix + "XXXXXX")).string();
    const int fd = ::mkstemp(s.data());
    if (fd < 0) return nullptr;
    ::unlink(s.c_str());
    std::FILE* p = ::fdopen(fd, "w+b");
    if (!p) {
        const int nErrno = errno;
        ::close(fd);
        errno = nErrno;
    }
    return p;
}

fs::path TempNameBeside(const fs::path& target) {
    // Process, thread and a per-thread counter make the name unique without shared state.
    thread_local unsigned lCounter = 0;
    const std::string sThread =
        std::to_string(std::hash<std::thread::id>{}(std::this_thread::get_id()));
    const fs::path dir = target.parent_path();
    std::error_code ec;
    for (;;) {
        std::string sName(".");
        sName += target.filename().string();
        sName += ".~";
        sName += std::to_string(static_cast<long>(::getpid()));
        sName += '-';
        sName += sThread;
        sName += '-';
        sName += std::to_string(lCounter++);
        sName += ".tmp";
        fs::path p = dir / sName;
        if (!fs::exists(p, ec)) return p;
    }
}

bool IsTempFileName(const std::string& sFileName) {
    // "." NAME ".~" digits "-" digits "-" digits ".tmp", NAME not empty.
    const std::string_view s(sFileName);
    constexpr std::string_view kEnd = ".tmp";
    if (s.size() < 2 || s[0] != '.' || !s.ends_with(kEnd)) return false;
    const size_t lMark = s.rfind(".~");
    if (lMark == std::string_view::npos || lMark < 2) return false;
    const size_t lFrom = lMark + 2;
    if (lFrom > s.size() - kEnd.size()) return false;
    const std::string_view sNumbers = s.substr(lFrom, s.size() - kEnd.size() - lFrom);
    int nSeparators = 0;
    bool bDigits = false;
    for (char c : sNumbers) {
        if (c >= '0' && c <= '9') {
            bDigits = true;
        } else if (c == '-' && bDigits) {
            ++nSeparators;
            bDigits = false;
        } else {
            return false;
        }
    }
    return bDigits && nSeparators == 2;
}

long SweepStaleTempFiles(const fs::path& dir, fs::file_time_type tNow) {
    long n = 0;
    std::error_code ec;
    fs::directory_iterator it(dir, fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const fs::path& p = it->path();
        if (!IsTempFileName(p.filename().string())) continue;
        std::error_code ecFile;
        if (!fs::is_regular_file(fs::symlink_status(p, ecFile))) continue;
        const fs::file_time_type t = fs::last_write_time(p, ecFile);
        if (ecFile || tNow - t < kStaleAfter) continue;
        if (fs::remove(p, ecFile)) ++n;
    }
    return n;
}

void WriteThroughTempFile(
    const std::string& sPath,
    const std::function<void(const std::string& sTempFile, const std::string& sFolder)>& fnWrite) {
    WriteThroughTempFile(sPath, std::string(), fnWrite);
}

void WriteThroughTempFile(
    const std::string& sPath, const std::string& sTempFile,
    const std::function<void(const std::string& sTempFile, const std::string& sFolder)>& fnWrite) {
    std::error_code ec;
    const fs::path target = fs::absolute(fs::path(sPath), ec);
    if (ec || sPath.empty() || target.filename().empty()) RaiseError(modConst::errAppDefined);
    const fs::path dir = target.parent_path();
    const fs::file_status st = fs::status(dir, ec);
    if (!ec && !fs::is_directory(st)) ec = std::make_error_code(std::errc::not_a_directory);
    if (ec) throw clsWriteError(target.string(), ec.message());

    SweepStaleTempFiles(dir);
    const fs::path tmp = sTempFile.empty() ? TempNameBeside(target) : fs::path(sTempFile);
    try {
        fnWrite(tmp.string(), dir.string());
        if (SaveFaultFn fn = g_pSaveFault.load()) {
            if (int nErrno = fn(target.string())) RaiseWriteFailure(nErrno);
        }
        fs::rename(tmp, target, ec);
        if (ec) RaiseWriteFailure(ec.message());
    } catch (const clsWriteError& e) {
        RemoveQuietly(tmp);
        throw clsWriteError(target.string(), e.Reason);
    } catch (...) {
        RemoveQuietly(tmp);
        throw;
    }
}

void SetSaveFaultForTests(SaveFaultFn fn) {
    g_pSaveFault.store(fn);
}

}  // namespace modSaveFile
