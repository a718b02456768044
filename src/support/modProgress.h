// Progress of a long export, handed to the host's observer. Every long loop of the export
// (the parse walk, the workbook rows, the saver) reports through here, and only through here.
#pragma once

#include "support/clsExportContext.h"

namespace modProgress {

// Hands the progress to ctx.Options.OnProgress, if set; an observer that fails is ignored.
void ReportProgress(clsExportContext& ctx, clsProgress::Stage eStage, long lDone, long lTotal);

}  // namespace modProgress
