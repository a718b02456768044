#include "parse/clsXMLPars.h"

clsXMLPars::clsXMLPars(clsExportContext& ctx) : ctx_(ctx) {}
