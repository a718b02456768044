#include "support/modProgress.h"

#include "support/modConst.h"

namespace modProgress {

void ReportProgress(clsRunContext& ctx, clsProgress::Stage eStage, long lDone, long lTotal) {
    // Every long loop passes here, so this is where a host's request to stop takes effect.
    if (ctx.CancelRequested()) RaiseError(modConst::errUserInterrupt);
    if (!ctx.Options.OnProgress) return;
    clsProgress oProgress;
    oProgress.eStage = eStage;
    oProgress.lDone = lDone;
    oProgress.lTotal = lTotal;
    try {
        ctx.Options.OnProgress(oProgress);
    } catch (...) {
        // Progress is a courtesy: an observer that fails does not fail the export.
    }
}

}  // namespace modProgress
