// libFuzzer target: each input is a data document, a setup string and a settings document (see
// FuzzInput.h), run through the whole export into a workbook in a temporary folder. A crash, a
// sanitizer report, a hang or a broken promise (a file outside the data folder, a temporary file
// left behind) is a finding.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "FuzzInput.h"

namespace {

std::string g_sWork;
std::string g_sExamples;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* sExamples = std::getenv("ORV_FUZZ_EXAMPLES");
    g_sExamples = sExamples ? sExamples : ORV_SOURCE_DIR "/examples";
    g_sWork = (std::filesystem::temp_directory_path() /
               ("orv-fuzz-" + std::to_string(static_cast<long>(getpid()))))
                  .string();
    std::filesystem::create_directories(g_sWork);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const orvfuzz::Outcome o = orvfuzz::RunInput(pData, nSize, g_sWork, g_sExamples);
    if (!o.sViolation.empty()) {
        std::fprintf(stderr, "orv fuzz: %s\n", o.sViolation.c_str());
        std::abort();
    }
    return 0;
}
