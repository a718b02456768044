#include "ReliabilityFixture.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "driver/clsExportExcel.h"
#include "support/modEnvironment.h"

namespace reliability {

std::string SetupXml(const std::string& sName, const std::string& sType,
                     const std::string& sSpace) {
    return "<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME>" + sName +
           "</WORKBOOK_NAME><EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>" + sType +
           "</OBJECT_TYPE><SPACE_TYPE>" + sSpace + "</SPACE_TYPE></SETUP>";
}

std::string ItemXml(const std::string& sId, const std::string& sDescription,
                    const std::string& sInner) {
    return "<Item id=\"" + sId + "\" revision=\"A\" description=\"" + sDescription +
           "\" status=\"Released\">" + sInner + "</Item>";
}

std::string ItemCollection(long n) {
    std::string s = "<Root_Element>";
    s.reserve(static_cast<size_t>(n) * 70 + 40);
    for (long i = 0; i < n; ++i) {
        s += "<Item id=\"I";
        s += std::to_string(i);
        s += "\" revision=\"A\" description=\"d\" status=\"s\"/>";
    }
    s += "</Root_Element>";
    return s;
}

std::string Joined(const std::vector<std::string>& arr) {
    std::string s;
    for (const auto& l : arr)
        s += l + "\n";
    return s;
}

void ReliabilityTest::SetUp() {
    modEnvironment::ResetAppDataRootCache();
    sExportDir = tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export/";
    fs::create_directories(sExportDir);
    sSettings = testutil::ExamplesDir() + "/settings.xml";
    dataDir = tmp.Path() / "data";
    fs::create_directories(dataDir);
    sData = (dataDir / "export.xml").string();
}

void ReliabilityTest::TearDown() {
    modEnvironment::ResetAppDataRootCache();
}

bool ReliabilityTest::Run(const std::string& sD, const std::string& sS, const std::string& sSetup,
                          const std::string& sExt) {
    clsExportExcel o;
    if (pCancel) o.SetCancelFlag(pCancel);
    if (fnProgress) o.SetProgressObserver(fnProgress);
    return o.ParseMain(sD, sS, sSetup, sExt);
}

bool ReliabilityTest::RunData(const std::string& sDataText, const std::string& sSetup,
                              const std::string& sExt) {
    testutil::WriteFile(sData, sDataText);
    return Run(sData, sSettings, sSetup.empty() ? SetupXml("") : sSetup, sExt);
}

std::vector<std::string> ReliabilityTest::Log() const {
    return testutil::ReadLogLines(sExportDir + "ExportExcel.log");
}

bool ReliabilityTest::LogHas(const std::string& sPart) const {
    for (const auto& l : Log())
        if (l.find(sPart) != std::string::npos) return true;
    return false;
}

std::vector<std::string> ReliabilityTest::FilesIn(const fs::path& dir) {
    std::vector<std::string> arr;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(dir, ec))
        arr.push_back(e.path().filename());
    std::sort(arr.begin(), arr.end());
    return arr;
}

bool ReliabilityTest::HasTempFile(const fs::path& dir) {
    for (const auto& s : FilesIn(dir))
        if (s.size() > 4 && s.compare(s.size() - 4, 4, ".tmp") == 0) return true;
    return false;
}

bool RunAsNobody(const std::function<bool()>& fn, bool& bSkipped) {
    bSkipped = false;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        ADD_FAILURE() << "cannot start a child process: " << std::strerror(errno);
        return false;
    }
    if (pid == 0) {
        // Status 3: the privileges could not be dropped (only then does the test skip).
        if (getuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 ||
                              setuid(65534) != 0 || getuid() != 65534)) {
            _exit(3);
        }
        _exit(fn() ? 1 : 0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            ADD_FAILURE() << "cannot wait for the child process: " << std::strerror(errno);
            return false;
        }
    }
    if (WIFSIGNALED(status)) {
        ADD_FAILURE() << "the export's child process was killed by signal " << WTERMSIG(status)
                      << " (" << strsignal(WTERMSIG(status)) << ")";
        return false;
    }
    const int nExit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (nExit == 3) {
        bSkipped = true;
        return false;
    }
    if (nExit != 0 && nExit != 1) {
        ADD_FAILURE() << "the export's child process ended with the unexpected status " << nExit;
        return false;
    }
    return nExit == 1;
}

std::string ReadBack(const std::string& sWorkbook, bool bParts) {
    const std::string sCmd = "PYTHONIOENCODING=utf-8 /usr/bin/python3 '" + testutil::SourceDir() +
                             "/tests/reliability/read_back.py' " + (bParts ? "--parts '" : "'") +
                             sWorkbook + "' 2>&1";
    FILE* p = popen(sCmd.c_str(), "r");
    if (!p) return "popen failed";
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        s.append(buf, n);
    pclose(p);
    return s;
}

}  // namespace reliability
