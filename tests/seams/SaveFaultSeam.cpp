// Linked only into the test build of the command-line tool (orv-export-excel-savefault): makes a
// save fail at its last write, as a full disk would, without a full disk.
// ORV_SAVE_FAULT="N:ERRNO" fails the N-th save of the process (1: the first, empty workbook; 2: the
// final save of an export) with the error number ERRNO.
#include <cstdlib>
#include <string>

#include "support/modSaveFile.h"

namespace {

long g_nFailAt = 0;
int g_nErrno = 0;
long g_nSaves = 0;

int FailTheChosenSave(const std::string&) {
    return ++g_nSaves == g_nFailAt ? g_nErrno : 0;
}

// Installed before main runs, from the environment.
const bool g_bInstalled = [] {
    const char* s = std::getenv("ORV_SAVE_FAULT");
    if (!s) return false;
    char* pEnd = nullptr;
    g_nFailAt = std::strtol(s, &pEnd, 10);
    if (!pEnd || *pEnd != ':') return false;
    g_nErrno = static_cast<int>(std::strtol(pEnd + 1, nullptr, 10));
    modSaveFile::SetSaveFaultForTests(FailTheChosenSave);
    return true;
}();

}  // namespace
