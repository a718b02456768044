#include "TestUtil.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "support/clsRunError.h"

namespace fs = std::filesystem;

namespace testutil {

long RunErrorOf(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const clsRunError& e) {
        return e.Number;
    }
    return 0;
}

const char* const kDateTimeRegex = R"(\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM))";

TempDir::TempDir() {
    std::random_device rd;
    for (int i = 0; i < 100; ++i) {
        fs::path p = fs::temp_directory_path() / ("orv-test-" + std::to_string(rd()));
        if (fs::create_directory(p)) {
            path_ = p;
            return;
        }
    }
    throw std::runtime_error("no temporary folder");
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

std::string ReadFile(const std::string& sPath) {
    std::ifstream in(sPath, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFile(const std::string& sPath, const std::string& sText) {
    std::ofstream out(sPath, std::ios::binary);
    out << sText;
}

std::vector<std::string> ReadLogLines(const std::string& sPath) {
    std::string s = ReadFile(sPath);
    std::vector<std::string> arr;
    size_t p = 0;
    while (p < s.size()) {
        size_t e = s.find("\r\n", p);
        if (e == std::string::npos) {
            arr.push_back(s.substr(p));
            break;
        }
        arr.push_back(s.substr(p, e - p));
        p = e + 2;
    }
    return arr;
}

std::string ReadLogMasked(const std::string& sPath) {
    return std::regex_replace(ReadFile(sPath), std::regex(kDateTimeRegex), "{now}");
}

ScopedEnv::ScopedEnv(const char* sName, const std::string& sValue) : sName_(sName) {
    const char* s = std::getenv(sName);
    if (s) {
        bHad_ = true;
        sOld_ = s;
    }
    setenv(sName, sValue.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (bHad_)
        setenv(sName_.c_str(), sOld_.c_str(), 1);
    else
        unsetenv(sName_.c_str());
}

bool RunOnSmallDisk(const fs::path& dir, long lBytes, const std::function<std::string()>& fn,
                    std::string& sReport) {
    sReport.clear();
    int fds[2];
    if (::pipe(fds) != 0) {
        sReport = "no pipe";
        return false;
    }
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        sReport = "no child process";
        return false;
    }
    if (pid == 0) {
        ::close(fds[0]);
        auto fnSend = [&](const std::string& s) {
            size_t n = 0;
            while (n < s.size()) {
                const ssize_t w = ::write(fds[1], s.data() + n, s.size() - n);
                if (w <= 0) break;
                n += static_cast<size_t>(w);
            }
        };
        const std::string sSize = "size=" + std::to_string(lBytes) + ",mode=0755";
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", dir.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, sSize.c_str()) != 0) {
            fnSend(std::string("cannot mount a tmpfs here: ") + std::strerror(errno));
            ::_exit(3);
        }
        std::string s;
        try {
            s = fn();
        } catch (const std::exception& e) {
            s = std::string("exception: ") + e.what();
        } catch (...) {
            s = "exception";
        }
        fnSend(s);
        ::_exit(0);
    }
    ::close(fds[1]);
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof buf)) > 0)
        sReport.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 3) return false;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        sReport += "\n(the child did not end normally)";
    return true;
}

std::string NamesIn(const fs::path& dir) {
    std::vector<std::string> arr;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec))
        arr.push_back(e.path().filename().string());
    std::sort(arr.begin(), arr.end());
    std::string s;
    for (const auto& x : arr)
        s += (s.empty() ? "" : ",") + x;
    return s;
}

std::string OpenFilesIn(const fs::path& dir) {
    const std::string sPrefix = dir.string() + "/";
    std::string s;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator("/proc/self/fd", ec)) {
        std::error_code ecLink;
        const std::string sTarget = fs::read_symlink(e.path(), ecLink).string();
        if (!ecLink && sTarget.rfind(sPrefix, 0) == 0) s += (s.empty() ? "" : ",") + sTarget;
    }
    return s;
}

std::string SourceDir() {
    return ORV_SOURCE_DIR;
}
std::string ExamplesDir() {
    return std::string(ORV_SOURCE_DIR) + "/examples";
}

std::string CommandOutput(const std::string& sCmd, int* pStatus) {
    std::string s;
    FILE* p = popen(sCmd.c_str(), "r");
    if (!p) {
        if (pStatus) *pStatus = -1;
        return s;
    }
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        s.append(buf, n);
    const int rc = pclose(p);
    if (pStatus) *pStatus = rc;
    return s;
}

}  // namespace testutil
