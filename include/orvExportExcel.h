/* orvExportExcel: the C entry points, for hosts in any language.
 * orvExportExcel_ParseMain takes the same four UTF-8 strings as ParseMain (data XML path,
 * settings XML path, setup XML text, workbook extension) and returns -1 (True) when the workbook
 * was written, 0 (False) otherwise. Failures are written to the log file "ExportExcel.log".
 * orvExportExcel_ParseMainWithViews also names the workbook's views, orvExportExcel_ParseMainInto
 * the workbook's folder, orvExportExcel_ParseMainWithOptions both.
 * orvExportExcel_CheckSettings runs the settings check (orvSettingsCheck.h). */
#ifndef ORV_EXPORT_EXCEL_H
#define ORV_EXPORT_EXCEL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

int orvExportExcel_ParseMain(const char* sXFullPath, const char* sXIniFullPath,
                             const char* sSetupXString, const char* sExtension);

/* The same export with the workbook's views given by sViews, in place of what the settings say:
 * a comma-separated list of "level", "flat", "where-used" and "outline", or "none" (the
 * command-line tool's --views). NULL lets the settings decide, as orvExportExcel_ParseMain does.
 * A list that cannot be read returns 0 (False) without starting the export. */
int orvExportExcel_ParseMainWithViews(const char* sXFullPath, const char* sXIniFullPath,
                                      const char* sSetupXString, const char* sExtension,
                                      const char* sViews);
/* The same export with the workbook in the folder sOutputDir instead of the data file's folder
 * (same name); NULL or "" is the data file's folder. */
int orvExportExcel_ParseMainInto(const char* sXFullPath, const char* sXIniFullPath,
                                 const char* sSetupXString, const char* sExtension,
                                 const char* sOutputDir);
/* Both: the views as orvExportExcel_ParseMainWithViews takes them, the folder as
 * orvExportExcel_ParseMainInto takes it; NULL for either leaves it as those entries do. */
int orvExportExcel_ParseMainWithOptions(const char* sXFullPath, const char* sXIniFullPath,
                                        const char* sSetupXString, const char* sExtension,
                                        const char* sViews, const char* sOutputDir);

/* Checks a settings file (a setup XML text, or NULL or "" for every export kind and mode) and
 * returns 0 (nothing falls back or is unused), 1 (findings) or 2 (the settings or the setup
 * cannot be read). The report, as text (bJson 0) or JSON (bJson not 0), is copied into sReport
 * (lSize bytes, always ended with a NUL, cut short when it does not fit); *lNeeded, when not
 * NULL, receives the size the whole report needs, its NUL included. Writes no file. */
int orvExportExcel_CheckSettings(const char* sXIniFullPath, const char* sSetupXString, int bJson,
                                 char* sReport, size_t lSize, size_t* lNeeded);

#ifdef __cplusplus
}
#endif

#endif
