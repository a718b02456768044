// BIFF8 record framing, string forms and the shared string table.
#include "xl/xlBiffWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"

namespace xl::biff {

using namespace modConst;

std::u16string Utf16(std::string_view s) {
    std::u16string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        uint32_t cp;
        size_t n;
        if (c < 0x80) {
            cp = c, n = 1;
        } else if (c >= 0xF0) {
            cp = c & 0x07, n = 4;
        } else if (c >= 0xE0) {
            cp = c & 0x0F, n = 3;
        } else {
            cp = c & 0x1F, n = 2;
        }
        for (size_t k = 1; k < n && i + k < s.size(); ++k) {
            cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        }
        i += n;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
    }
    return out;
}

bool IsCompressible(std::u16string_view s) {
    return std::all_of(s.begin(), s.end(), [](char16_t c) { return c < 0x100; });
}

// ------------------------------------------------------------------------------------------------
// Bytes

void Bytes::F64(double d) {
    uint64_t n;
    std::memcpy(&n, &d, sizeof n);
    U32(static_cast<uint32_t>(n));
    U32(static_cast<uint32_t>(n >> 32));
}

void Bytes::Raw(const void* p, size_t n) {
    const auto* b = static_cast<const uint8_t*>(p);
    v_.insert(v_.end(), b, b + n);
}

void Bytes::Chars(std::u16string_view s, bool bCompressed) {
    for (char16_t c : s) {
        if (bCompressed) {
            U8(c);
        } else {
            U16(c);
        }
    }
}

void Bytes::XLUnicodeString(std::u16string_view s) {
    U16(static_cast<uint32_t>(s.size()));
    XLUnicodeStringNoCch(s);
}

void Bytes::ShortXLUnicodeString(std::u16string_view s) {
    U8(static_cast<uint32_t>(s.size()));
    XLUnicodeStringNoCch(s);
}

void Bytes::XLUnicodeStringNoCch(std::u16string_view s) {
    const bool bCompressed = IsCompressible(s);
    U8(bCompressed ? 0 : 1);  // fHighByte
    Chars(s, bCompressed);
}

void Bytes::HyperlinkString(std::u16string_view s) {
    U32(static_cast<uint32_t>(s.size() + 1));
    Chars(s, false);
    U16(0);
}

// ------------------------------------------------------------------------------------------------
// Sinks

void MemorySink::Write(const void* p, size_t n) {
    s_.append(static_cast<const char*>(p), n);
}

namespace {
constexpr size_t kFileBuffer = size_t{1} << 20;
}

// The buffer is left unfilled, so that a small file touches only the pages it writes.
FileSink::FileSink(std::FILE* p)
    : p_(p), buf_(std::make_unique_for_overwrite<char[]>(kFileBuffer)) {}

FileSink::~FileSink() = default;

void FileSink::Write(const void* p, size_t n) {
    const char* b = static_cast<const char*>(p);
    if (lUsed_ + n > kFileBuffer) {
        Flush();
        if (n > kFileBuffer) {
            if (std::fwrite(b, 1, n, p_) != n) modSaveFile::RaiseWriteFailure(errno);
            return;
        }
    }
    std::memcpy(buf_.get() + lUsed_, b, n);
    lUsed_ += n;
}

void FileSink::Flush() {
    if (lUsed_ && std::fwrite(buf_.get(), 1, lUsed_, p_) != lUsed_) {
        modSaveFile::RaiseWriteFailure(errno);
    }
    lUsed_ = 0;
    if (std::fflush(p_) != 0) modSaveFile::RaiseWriteFailure(errno);
}

// ------------------------------------------------------------------------------------------------
// Records

void RecordWriter::Record(uint16_t nType, const void* p, size_t n) {
    if (n > kMaxRecordData) RaiseError(errAppDefined);
    const uint8_t h[4] = {static_cast<uint8_t>(nType), static_cast<uint8_t>(nType >> 8),
                          static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
    sink_.Write(h, sizeof h);
    if (n) sink_.Write(p, n);
    lPos_ += sizeof h + n;
}

void RecordWriter::Record16(uint16_t nType, uint32_t n) {
    const uint8_t b[2] = {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
    Record(nType, b, sizeof b);
}

void RecordWriter::Raw(const void* p, size_t n) {
    sink_.Write(p, n);
    lPos_ += n;
}

// ------------------------------------------------------------------------------------------------
// The shared string table

uint32_t SstWriter::BucketSize(uint32_t lUnique) {
    // At most 128 buckets, each of at least 8 strings.
    return std::max<uint32_t>(8, (lUnique + 127) / 128);
}

SstWriter::SstWriter(RecordWriter& w, uint32_t lTotal, uint32_t lUnique)
    : w_(w), lBucket_(BucketSize(lUnique)), lRecordStart_(w.Position()) {
    buf_.reserve(kMaxRecordData);
    Bytes b;
    b.U32(lTotal);
    b.U32(lUnique);
    buf_.insert(buf_.end(), b.Data(), b.Data() + b.Size());
    oExt_.U16(lBucket_);
}

void SstWriter::Flush(bool bContinue) {
    w_.Record(nType_, buf_.data(), buf_.size());
    buf_.clear();
    lRecordStart_ = w_.Position();
    if (bContinue) nType_ = kContinue;
}

void SstWriter::Room(size_t n) {
    if (buf_.size() + n > kMaxRecordData) Flush(true);
}

void SstWriter::Add(std::string_view sUtf8) {
    const std::u16string s = Utf16(sUtf8);
    const bool bCompressed = IsCompressible(s);
    const size_t lCharSize = bCompressed ? 1 : 2;
    // The header (count and flags) stays with the first character.
    Room(3 + (s.empty() ? 0 : lCharSize));
    if (lCount_ % lBucket_ == 0) {
        const size_t lOffset = 4 + buf_.size();  // from the start of the record, header included
        oExt_.U32(static_cast<uint32_t>(lRecordStart_ + lOffset));
        oExt_.U16(static_cast<uint32_t>(lOffset));
        oExt_.U16(0);
    }
    ++lCount_;
    const uint8_t nFlags = bCompressed ? 0 : 1;
    buf_.push_back(static_cast<uint8_t>(s.size()));
    buf_.push_back(static_cast<uint8_t>(s.size() >> 8));
    buf_.push_back(nFlags);
    size_t i = 0;
    while (i < s.size()) {
        size_t lFit = (kMaxRecordData - buf_.size()) / lCharSize;
        if (lFit == 0) {
            // The rest goes on in a CONTINUE record that starts with the string's flags.
            Flush(true);
            buf_.push_back(nFlags);
            lFit = (kMaxRecordData - buf_.size()) / lCharSize;
        }
        const size_t n = std::min(lFit, s.size() - i);
        for (size_t k = i; k < i + n; ++k) {
            buf_.push_back(static_cast<uint8_t>(s[k]));
            if (!bCompressed) buf_.push_back(static_cast<uint8_t>(s[k] >> 8));
        }
        i += n;
    }
}

void SstWriter::Finish() {
    Flush(false);
    w_.Record(0x00FF, oExt_);
}

}  // namespace xl::biff
