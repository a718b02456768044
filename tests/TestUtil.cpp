#include "TestUtil.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testutil {

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

std::string SourceDir() {
    return ORV_SOURCE_DIR;
}
std::string ExamplesDir() {
    return std::string(ORV_SOURCE_DIR) + "/examples";
}

}  // namespace testutil
