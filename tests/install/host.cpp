// A C++ host of the installed library: exports DATA with SETTINGS and the setup text of the
// file SETUP into the folder OUT, and prints the workbook's path.
#include <fstream>
#include <iostream>
#include <sstream>

#include "iclsExportExcel.h"

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: host DATA SETTINGS SETUP EXTENSION OUT\n";
        return 2;
    }
    std::ifstream in(argv[3], std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    auto oExport = CreateExportExcel();
    oExport->SetLogObserver([](const std::string& sLine) { std::cerr << sLine << "\n"; });
    oExport->SetOutputDir(argv[5]);
    if (!oExport->ParseMain(argv[1], argv[2], ss.str(), argv[4])) return 1;
    std::cout << oExport->LastWorkbookPath() << "\n";
    std::cout << "library " << orvExportExcelVersion() << "\n";
    return 0;
}
