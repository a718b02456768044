/* A C host of the installed library: exports DATA with SETTINGS and the setup text of the file
 * SETUP into the folder OUT, through the C entry point. Exit status 0 when the workbook was
 * written. */
#include <orvExportExcel.h>
#include <stdio.h>
#include <stdlib.h>

static char* ReadAll(const char* sPath) {
    FILE* f = fopen(sPath, "rb");
    if (!f) return NULL;
    fseek(f, 0, SEEK_END);
    long lSize = ftell(f);
    fseek(f, 0, SEEK_SET);
    char* s = malloc((size_t)lSize + 1);
    if (s && fread(s, 1, (size_t)lSize, f) != (size_t)lSize) lSize = 0;
    if (s) s[lSize] = '\0';
    fclose(f);
    return s;
}

int main(int argc, char** argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: host DATA SETTINGS SETUP EXTENSION OUT\n");
        return 2;
    }
    char* sSetup = ReadAll(argv[3]);
    if (!sSetup) return 2;
    int iResult = orvExportExcel_ParseMainInto(argv[1], argv[2], sSetup, argv[4], argv[5]);
    free(sSetup);
    printf("%d\n", iResult);
    return iResult == -1 ? 0 : 1;
}
