// Constants shared by the whole library: spreadsheet enumeration values and run-time error numbers.
#pragma once

namespace modConst {

// Spreadsheet object-model enumerations, with the values the application uses.
constexpr long xlLeft = -4131;
constexpr long xlCenter = -4108;
constexpr long xlRight = -4152;
constexpr long xlTop = -4160;
constexpr long xlBottom = -4107;
constexpr long xlGeneral = 1;
constexpr long xlLandscape = 2;
constexpr long xlPortrait = 1;
constexpr long xlNoChange = 1;
constexpr long xlContinuous = 1;
constexpr long xlLineStyleNone = -4142;
constexpr long xlEdgeLeft = 7;
constexpr long xlEdgeTop = 8;
constexpr long xlEdgeBottom = 9;
constexpr long xlEdgeRight = 10;
constexpr long xlColorIndexNone = -4142;
constexpr long xlUnderlineStyleNone = -4142;
constexpr long xlUnderlineStyleSingle = 2;
constexpr long xlColorIndexAutomatic = -4105;
constexpr long xlOpenXMLWorkbook = 51;  // FileFormat of an .xlsx workbook
constexpr long xlExcel8 = 56;           // FileFormat of an Excel 97-2003 (.xls) workbook
constexpr long xlSummaryAbove = 0;      // an outline's summary row stands above its detail rows
constexpr long xlSummaryBelow = 1;      // ... below them (the application's default)

// Limits of one worksheet.
constexpr long xlMaxRows = 1048576;
constexpr long xlMaxColumns = 16384;
constexpr long xlMaxCellText = 32767;
constexpr long xlMaxHyperlinks = 65530;
// Names local to one sheet: LibreOffice fails when it closes a workbook with a sheet of more than
// 65,535 of them, so a sheet that continues keeps as many as it keeps hyperlinks.
constexpr long xlMaxLocalNames = 65530;
constexpr long xlMaxNameLength = 255;
// The limits of an Excel 97-2003 (.xls) workbook where they are smaller.
constexpr long xlMaxRowsXls = 65536;
constexpr long xlMaxColumnsXls = 256;
constexpr long xlMaxFormatsXls = 4000;  // distinct cell formats of the workbook

// Run-time error numbers, as the log lines show them.
constexpr long errInvalidCall = 5;         // "Invalid procedure call or argument"
constexpr long errOverflow = 6;            // "Overflow"
constexpr long errOutOfMemory = 7;         // "Out of memory"
constexpr long errSubscript = 9;           // "Subscript out of range"
constexpr long errTypeMismatch = 13;       // "Type mismatch"
constexpr long errUserInterrupt = 18;      // "User interrupt occurred"
constexpr long errFileNotFound = 53;       // "File not found"
constexpr long errPermissionDenied = 70;   // "Permission denied"
constexpr long errPathNotFound = 76;       // "Path not found"
constexpr long errObjectNotSet = 91;       // "Object variable or With block variable not set"
constexpr long errCantCreateObject = 429;  // "ActiveX component can't create object"
constexpr long errAppDefined = 1004;       // "Application-defined or object-defined error"

// The file name of the log, in the export directory.
inline constexpr const char* LOG_FILE_NAME = "ExportExcel.log";

}  // namespace modConst
