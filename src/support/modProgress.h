// Progress of a long export, handed to the host's observer. Every long loop of the export
// (the parse walk, the workbook rows, the saver) reports through here, and only through here.
#pragma once

#include "support/clsRunContext.h"

namespace modProgress {

// Raises run-time error 18 when the host asked the call to stop (ctx.Options.CancelFlag);
// otherwise hands the progress to ctx.Options.OnProgress, if set. An observer that fails is
// ignored.
void ReportProgress(clsRunContext& ctx, clsProgress::Stage eStage, long lDone, long lTotal);

}  // namespace modProgress
