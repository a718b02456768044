// Run-time errors: what a procedure raises, and the one helper that traps and logs them.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

struct clsRunContext;

// A run-time error with its number and description ("Subscript out of range", 9).
class clsRunError : public std::runtime_error {
public:
    clsRunError(long lNumber, std::string sDescription);
    long Number;
    std::string Description;
};

// The standard description of an error number ("Overflow" for 6).
std::string ErrDescription(long lNumber);

// Raises run-time error lNumber; without a description the standard one is used.
[[noreturn]] void RaiseError(long lNumber, const std::string& sDescription = "");

// The current error of a call, like the Err object: set by the trap before the log line is written.
struct clsErrObject {
    long Number = 0;
    std::string Description;
    void Clear() {
        Number = 0;
        Description.clear();
    }
};

// Fills oErr from the exception being handled (must be called inside a catch block).
void CaptureCurrentError(clsErrObject& oErr) noexcept;

// "orvExportExcel:" + module + "[" + procedure + "]".
std::string SourceTag(std::string_view sModule, std::string_view sProc);

// Writes the error line for the exception being handled: sMsg + description + " " + number + " " +
// date-time + " in " + tag. Must be called inside a catch block.
void ReportRunError(clsRunContext& ctx, std::string_view sModule, std::string_view sProc) noexcept;
void ReportRunErrorWith(clsRunContext& ctx, const std::string& sMsg, std::string_view sModule,
                        std::string_view sProc) noexcept;

// Runs body; a run-time error in it is logged with the procedure's source tag and failValue is
// returned instead. This is how every procedure traps its own errors.
template <class T, class Body>
T TrapRun(clsRunContext& ctx, std::string_view sModule, std::string_view sProc, T failValue,
          Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        ReportRunError(ctx, sModule, sProc);
        return failValue;
    }
}

// The same for procedures without a result.
template <class Body>
void TrapRunVoid(clsRunContext& ctx, std::string_view sModule, std::string_view sProc,
                 Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
        ReportRunError(ctx, sModule, sProc);
    }
}

// Checked arithmetic for row and column numbers (32-bit signed, like the application's Long).
long CheckedAdd(long a, long b);

// Bounds-checked element access for the 0-based arrays of the model: error 9 when out of range.
template <class V>
auto& At(V& v, long i) {
    if (i < 0 || static_cast<unsigned long>(i) >= v.size()) RaiseError(9);
    return v[static_cast<size_t>(i)];
}
