#include "support/clsRunError.h"

#include <fmt/format.h>
#include <climits>
#include <filesystem>
#include <new>

#include "support/clsRunContext.h"
#include "support/modConst.h"
#include "support/modResources.h"

clsRunError::clsRunError(long lNumber, std::string sDescription)
    : std::runtime_error(sDescription), Number(lNumber), Description(std::move(sDescription)) {}

std::string ErrDescription(long lNumber) {
    switch (lNumber) {
        case modConst::errInvalidCall:
            return "Invalid procedure call or argument";
        case modConst::errOverflow:
            return "Overflow";
        case modConst::errOutOfMemory:
            return "Out of memory";
        case modConst::errSubscript:
            return "Subscript out of range";
        case modConst::errTypeMismatch:
            return "Type mismatch";
        case modConst::errUserInterrupt:
            return "User interrupt occurred";
        case modConst::errFileNotFound:
            return "File not found";
        case modConst::errPermissionDenied:
            return "Permission denied";
        case modConst::errPathNotFound:
            return "Path not found";
        case modConst::errObjectNotSet:
            return "Object variable or With block variable not set";
        case modConst::errCantCreateObject:
            return "ActiveX component can't create object";
        case modConst::errAppDefined:
            return "Application-defined or object-defined error";
        default:
            return "Application-defined or object-defined error";
    }
}

void RaiseError(long lNumber, const std::string& sDescription) {
    throw clsRunError(lNumber, sDescription.empty() ? ErrDescription(lNumber) : sDescription);
}

void CaptureCurrentError(clsErrObject& oErr) noexcept {
    try {
        throw;
    } catch (const clsRunError& e) {
        oErr.Number = e.Number;
        oErr.Description = e.Description;
    } catch (const std::bad_alloc&) {
        oErr.Number = modConst::errOutOfMemory;
        oErr.Description = ErrDescription(oErr.Number);
    } catch (const std::length_error&) {
        oErr.Number = modConst::errOutOfMemory;
        oErr.Description = ErrDescription(oErr.Number);
    } catch (const std::out_of_range&) {
        oErr.Number = modConst::errSubscript;
        oErr.Description = ErrDescription(oErr.Number);
    } catch (const std::overflow_error&) {
        oErr.Number = modConst::errOverflow;
        oErr.Description = ErrDescription(oErr.Number);
    } catch (const std::filesystem::filesystem_error& e) {
        oErr.Number = (e.code() == std::errc::permission_denied) ? modConst::errPermissionDenied
                                                                 : modConst::errPathNotFound;
        oErr.Description = ErrDescription(oErr.Number);
    } catch (...) {
        oErr.Number = modConst::errInvalidCall;
        oErr.Description = ErrDescription(oErr.Number);
    }
}

std::string SourceTag(std::string_view sModule, std::string_view sProc) {
    return fmt::format("orvExportExcel:{}[{}]", sModule, sProc);
}

void ReportRunErrorWith(clsRunContext& ctx, const std::string& sMsg, std::string_view sModule,
                        std::string_view sProc) noexcept {
    try {
        CaptureCurrentError(ctx.Err);
        // An interruption unwinds through many traps; only the first one writes its line.
        if (ctx.Err.Number == modConst::errUserInterrupt) {
            if (ctx.bInterruptReported) return;
            ctx.bInterruptReported = true;
        }
        modResources::WriteLog(ctx, sMsg, SourceTag(sModule, sProc), -1, true);
    } catch (...) {
        // Reporting must never raise: a line that cannot be formatted is lost.
    }
}

void ReportRunError(clsRunContext& ctx, std::string_view sModule, std::string_view sProc) noexcept {
    ReportRunErrorWith(ctx, ctx.Res.MsgRunError, sModule, sProc);
}

long CheckedAdd(long a, long b) {
    long long r = static_cast<long long>(a) + static_cast<long long>(b);
    if (r > INT32_MAX || r < INT32_MIN) RaiseError(modConst::errOverflow);
    return static_cast<long>(r);
}
