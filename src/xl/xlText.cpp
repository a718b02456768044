#include "xl/xlText.h"

#include <cstdint>

namespace xl {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

bool IsContinuation(unsigned char ch) {
    return (ch & 0xC0) == 0x80;
}

bool IsDroppedControl(unsigned char ch) {
    return ch < 0x20 && ch != '\t' && ch != '\n' && ch != '\r';
}

// The length of the well-formed UTF-8 sequence at s[i] (1 to 4), or 0 when the bytes there do
// not form one; then nBad is the length of the maximal ill-formed subpart to replace (at least 1).
size_t SequenceAt(std::string_view s, size_t i, size_t& nBad) {
    const unsigned char c0 = static_cast<unsigned char>(s[i]);
    nBad = 1;
    if (c0 < 0x80) return 1;
    size_t n;
    unsigned char lo = 0x80, hi = 0xBF;  // the range of the second byte
    if (c0 >= 0xC2 && c0 <= 0xDF) {
        n = 2;
    } else if (c0 >= 0xE0 && c0 <= 0xEF) {
        n = 3;
        if (c0 == 0xE0) lo = 0xA0;
        if (c0 == 0xED) hi = 0x9F;  // no surrogates
    } else if (c0 >= 0xF0 && c0 <= 0xF4) {
        n = 4;
        if (c0 == 0xF0) lo = 0x90;
        if (c0 == 0xF4) hi = 0x8F;  // nothing beyond U+10FFFF
    } else {
        return 0;
    }
    for (size_t k = 1; k < n; ++k) {
        if (i + k >= s.size()) {
            nBad = k;
            return 0;
        }
        const unsigned char ch = static_cast<unsigned char>(s[i + k]);
        const bool bOk = k == 1 ? (ch >= lo && ch <= hi) : IsContinuation(ch);
        if (!bOk) {
            nBad = k;
            return 0;
        }
    }
    return n;
}

// U+FFFE and U+FFFF: EF BF BE, EF BF BF.
bool IsNonCharacter(std::string_view s, size_t i, size_t n) {
    return n == 3 && static_cast<unsigned char>(s[i]) == 0xEF &&
           static_cast<unsigned char>(s[i + 1]) == 0xBF &&
           static_cast<unsigned char>(s[i + 2]) >= 0xBE;
}

}  // namespace

bool IsWorkbookText(std::string_view s) noexcept {
    size_t i = 0;
    while (i < s.size()) {
        const unsigned char ch = static_cast<unsigned char>(s[i]);
        if (ch >= 0x20 && ch < 0x80) {
            ++i;
            continue;
        }
        if (ch < 0x20) {
            if (IsDroppedControl(ch)) return false;
            ++i;
            continue;
        }
        size_t nBad;
        const size_t n = SequenceAt(s, i, nBad);
        if (n == 0 || IsNonCharacter(s, i, n)) return false;
        i += n;
    }
    return true;
}

std::string WorkbookText(std::string_view s) {
    if (IsWorkbookText(s)) return std::string(s);
    std::string sOut;
    sOut.reserve(s.size() + 8);
    size_t i = 0;
    while (i < s.size()) {
        const unsigned char ch = static_cast<unsigned char>(s[i]);
        if (ch < 0x80) {
            if (!IsDroppedControl(ch)) sOut.push_back(static_cast<char>(ch));
            ++i;
            continue;
        }
        size_t nBad;
        const size_t n = SequenceAt(s, i, nBad);
        if (n == 0) {
            sOut += kReplacement;
            i += nBad;
        } else if (IsNonCharacter(s, i, n)) {
            sOut += kReplacement;
            i += n;
        } else {
            sOut.append(s.substr(i, n));
            i += n;
        }
    }
    return sOut;
}

}  // namespace xl
