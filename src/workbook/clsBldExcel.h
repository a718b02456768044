// Writes the export model into a workbook through the spreadsheet object model.
#pragma once

#include <memory>
#include <string>

#include "support/clsExportContext.h"

class clsBldExcel {
public:
    explicit clsBldExcel(clsExportContext& ctx);
    ~clsBldExcel();

    bool InitExl(const std::string& sFileName);
    bool FillExlFile();
    void ExitExl();

private:
    clsExportContext& ctx_;
};
