/* orvExportExcel: the C entry point, for hosts in any language.
 * Takes the same four UTF-8 strings as ParseMain (data XML path, settings XML path, setup XML
 * text, workbook extension) and returns -1 (True) when the workbook was written, 0 (False)
 * otherwise. Failures are written to the log file "ExportExcel.log". */
#ifndef ORV_EXPORT_EXCEL_H
#define ORV_EXPORT_EXCEL_H

#ifdef __cplusplus
extern "C" {
#endif

int orvExportExcel_ParseMain(const char* sXFullPath, const char* sXIniFullPath,
                             const char* sSetupXString, const char* sExtension);

#ifdef __cplusplus
}
#endif

#endif
