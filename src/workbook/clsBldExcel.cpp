#include "workbook/clsBldExcel.h"

clsBldExcel::clsBldExcel(clsExportContext& ctx) : ctx_(ctx) {}
clsBldExcel::~clsBldExcel() = default;
