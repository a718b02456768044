// Reading a dump written by orv-model-dump (xl::DumpWorkbook): one call of the file writer per
// line, a letter for the call, then its fields, each after a tab; texts have backslash, tab, CR
// and LF escaped. The replays of bench/ read the whole dump into memory first, so that what they
// time is the writing alone.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace dump {

// One line of the dump, split at its tabs, texts unescaped in place.
struct DumpOp {
    char cKind;
    std::vector<char*> arrField;
};

inline void Unescape(char* s) {
    char* w = s;
    for (char* r = s; *r; ++r) {
        if (*r == '\\' && r[1]) {
            ++r;
            *w++ = *r == 't' ? '\t' : *r == 'n' ? '\n' : *r == 'r' ? '\r' : *r;
        } else {
            *w++ = *r;
        }
    }
    *w = '\0';
}

// The whole file, with a NUL after its last byte; false when it cannot be read.
inline bool ReadDumpFile(const char* sPath, std::vector<char>& buf) {
    std::FILE* in = std::fopen(sPath, "rb");
    if (!in) return false;
    std::fseek(in, 0, SEEK_END);
    const long n = std::ftell(in);
    std::fseek(in, 0, SEEK_SET);
    buf.assign(static_cast<size_t>(n < 0 ? 0 : n) + 1, '\0');
    const bool bRead =
        n >= 0 && std::fread(buf.data(), 1, static_cast<size_t>(n), in) == static_cast<size_t>(n);
    std::fclose(in);
    return bRead;
}

// The lines of a dump read by ReadDumpFile; the fields point into buf.
inline std::vector<DumpOp> ParseDump(std::vector<char>& buf) {
    std::vector<DumpOp> arr;
    char* p = buf.data();
    char* end = p + buf.size() - 1;  // the buffer ends with a NUL
    while (p < end) {
        char* eol = static_cast<char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
        if (!eol) eol = end;
        *eol = '\0';
        DumpOp op{p[0], {}};
        char* f = p + 1;
        while (*f == '\t') {
            *f++ = '\0';
            op.arrField.push_back(f);
            char* t = std::strchr(f, '\t');
            if (!t) break;
            f = t;
        }
        for (char* s : op.arrField)
            Unescape(s);
        arr.push_back(std::move(op));
        p = eol + 1;
    }
    return arr;
}

inline unsigned U(const char* s) {
    return static_cast<unsigned>(std::strtoul(s, nullptr, 10));
}
inline double D(const char* s) {
    return std::strtod(s, nullptr);
}

}  // namespace dump
