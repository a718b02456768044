#include "support/modProgress.h"

namespace modProgress {

void ReportProgress(clsExportContext& ctx, clsProgress::Stage eStage, long lDone, long lTotal) {
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
