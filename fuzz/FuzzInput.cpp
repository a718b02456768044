#include "FuzzInput.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "iclsExportExcel.h"

namespace orvfuzz {

namespace fs = std::filesystem;

namespace {

std::string ReadAll(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteAll(const fs::path& p, const std::string& s) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << s;
}

}  // namespace

Outcome RunInput(const uint8_t* pData, size_t nSize, const std::string& sWork,
                 const std::string& sExamples) {
    const std::string sInput(reinterpret_cast<const char*>(pData), nSize);
    std::string arrParts[3];
    size_t nParts = 0, p = 0;
    while (nParts < 3) {
        const size_t e = nParts < 2 ? sInput.find(kSeparator, p) : std::string::npos;
        arrParts[nParts++] = sInput.substr(p, e == std::string::npos ? std::string::npos : e - p);
        if (e == std::string::npos) break;
        p = e + std::char_traits<char>::length(kSeparator);
    }

    const fs::path work(sWork), dataDir = work / "data", appData = work / "appdata";
    std::error_code ec;
    fs::remove_all(dataDir, ec);
    fs::create_directories(dataDir);
    fs::create_directories(appData / "Korvane" / "Addin Modules" / "Zenfold" / "Export");
    fs::remove(appData / "Korvane" / "Addin Modules" / "Zenfold" / "Export" / "ExportExcel.log",
               ec);
    setenv("APPDATA", appData.c_str(), 1);

    const fs::path data = dataDir / "export.xml";
    WriteAll(data, arrParts[0]);
    const std::string sSetup =
        nParts >= 2 ? arrParts[1] : ReadAll(fs::path(sExamples) / "setup" / "item-structure.xml");
    fs::path settings = fs::path(sExamples) / "settings.xml";
    if (nParts >= 3) {
        settings = work / "settings.xml";
        WriteAll(settings, arrParts[2]);
    }

    Outcome o;
    auto oExport = CreateExportExcel();
    o.bResult = oExport->ParseMain(data.string(), settings.string(), sSetup, ".xlsx");

    for (const auto& e : fs::directory_iterator(work)) {
        const std::string s = e.path().filename().string();
        if (s != "data" && s != "appdata" && s != "settings.xml") {
            o.sViolation = "a file beside the data folder: " + s;
        }
    }
    for (const auto& e : fs::directory_iterator(dataDir)) {
        const std::string s = e.path().filename().string();
        if (s.size() > 4 && s.compare(s.size() - 4, 4, ".tmp") == 0) {
            o.sViolation = "a temporary file left behind: " + s;
        }
    }
    // A filled workbook whose final save failed returns true too, and says so in its state.
    if (o.bResult && oExport->LastWorkbookState().bWritten && oExport->LastWorkbookPath().empty()) {
        o.sViolation = "true without a workbook";
    }
    return o;
}

}  // namespace orvfuzz
