// One fuzz input run through a whole export. Shared by the libFuzzer target and the test that
// replays the inputs kept under tests/data/fuzz-regressions/.
//
// An input is the data document, optionally followed by the setup string and then the settings
// document, each part starting after a line "@@ORV@@". Missing parts are the example setup of an
// item structure and the example settings. The export runs with the data file in
// <work>/data/export.xml and its log in <work>/appdata; afterwards the data folder must hold no
// temporary file and nothing may have appeared beside it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvfuzz {

inline constexpr const char* kSeparator = "\n@@ORV@@\n";

struct Outcome {
    bool bResult = false;    // what ParseMain returned
    std::string sViolation;  // empty when the call left everything as it should
};

// Runs one input in the work folder sWork (created when missing; emptied of the previous run's
// files). sExamples is the folder with settings.xml and setup/item-structure.xml.
Outcome RunInput(const uint8_t* pData, size_t nSize, const std::string& sWork,
                 const std::string& sExamples);

}  // namespace orvfuzz
