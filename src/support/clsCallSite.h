// Where a call was made: the file and line of the caller, taken as a default argument
// (`clsCallSite oSite = clsCallSite()`). The compilers' __builtin_FILE and __builtin_LINE give
// this on every compiler the project builds with, clsCallSite not yet on all of them.
#pragma once

class clsCallSite {
public:
    constexpr clsCallSite(const char* sFile = __builtin_FILE(), unsigned lLine = __builtin_LINE())
        : sFile_(sFile), lLine_(lLine) {}
    constexpr const char* file_name() const { return sFile_; }
    constexpr unsigned line() const { return lLine_; }

private:
    const char* sFile_;
    unsigned lLine_;
};
