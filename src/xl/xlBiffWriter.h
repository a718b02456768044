// Writing BIFF8 records, the unit of an Excel 97-2003 workbook stream: a record is a 2-byte type,
// a 2-byte length and at most 8,224 bytes of data; longer data goes on in CONTINUE records. Strings
// are Unicode: stored as one byte per character when every character is below U+0100, else as
// UTF-16. Record layouts follow [MS-XLS]; the writer knows only the framing and the string forms
// that records share, the records themselves are made by the saver.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace xl::biff {

constexpr size_t kMaxRecordData = 8224;
constexpr uint16_t kContinue = 0x003C;

// UTF-16 code units of a UTF-8 text (the model holds well-formed UTF-8 only).
std::u16string Utf16(std::string_view s);
// True when every code unit fits one byte, so the string can be stored compressed.
bool IsCompressible(std::u16string_view s);

// The data of one record, little-endian.
class Bytes {
public:
    void U8(uint32_t n) { v_.push_back(static_cast<uint8_t>(n)); }
    void U16(uint32_t n) {
        U8(n);
        U8(n >> 8);
    }
    void U32(uint32_t n) {
        U16(n);
        U16(n >> 16);
    }
    void F64(double d);
    void Raw(const void* p, size_t n);
    void Zeros(size_t n) { v_.insert(v_.end(), n, 0); }
    // A string's characters: one byte each when bCompressed, else two.
    void Chars(std::u16string_view s, bool bCompressed);
    // XLUnicodeString: 2-byte count, flags, characters.
    void XLUnicodeString(std::u16string_view s);
    // ShortXLUnicodeString: 1-byte count, flags, characters (at most 255).
    void ShortXLUnicodeString(std::u16string_view s);
    // XLUnicodeStringNoCch: flags, characters (the count is elsewhere in the record).
    void XLUnicodeStringNoCch(std::u16string_view s);
    // A null-terminated UTF-16 string behind its length in characters, the null included (the
    // string form of hyperlinks).
    void HyperlinkString(std::u16string_view s);

    void Set16(size_t lAt, uint32_t n) {
        v_[lAt] = static_cast<uint8_t>(n);
        v_[lAt + 1] = static_cast<uint8_t>(n >> 8);
    }
    size_t Size() const { return v_.size(); }
    const uint8_t* Data() const { return v_.data(); }
    void Clear() { v_.clear(); }

private:
    std::vector<uint8_t> v_;
};

// Where the bytes of a stream go.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void Write(const void* p, size_t n) = 0;
};

// Counts the bytes only: the size of a part of the stream before it is written.
class CountingSink : public Sink {
public:
    void Write(const void*, size_t) override {}
};

// Collects the bytes in memory (tests, small parts).
class MemorySink : public Sink {
public:
    void Write(const void* p, size_t n) override;
    const std::string& Str() const { return s_; }

private:
    std::string s_;
};

// Buffers the bytes and writes them to a file in large pieces; a failed write raises 1004.
class FileSink : public Sink {
public:
    explicit FileSink(std::FILE* p);
    ~FileSink() override;
    void Write(const void* p, size_t n) override;
    void Flush();

private:
    std::FILE* p_;
    std::unique_ptr<char[]> buf_;
    size_t lUsed_ = 0;
};

// Frames records onto a sink and keeps the stream position.
class RecordWriter {
public:
    explicit RecordWriter(Sink& sink, uint64_t lStart = 0) : sink_(sink), lPos_(lStart) {}

    // One record; data beyond 8,224 bytes raises 1004 (no record the saver makes is that long,
    // except the string table, which continues itself).
    void Record(uint16_t nType, const Bytes& b) { Record(nType, b.Data(), b.Size()); }
    void Record(uint16_t nType, const void* p, size_t n);
    void Empty(uint16_t nType) { Record(nType, nullptr, 0); }
    void Record16(uint16_t nType, uint32_t n);

    // Copies bytes that already are records (a spooled part of the stream).
    void Raw(const void* p, size_t n);

    uint64_t Position() const { return lPos_; }
    Sink& Out() { return sink_; }

private:
    Sink& sink_;
    uint64_t lPos_;
};

// The shared string table (SST) and its index (EXTSST). Strings go into the SST record and as
// many CONTINUE records as they need; a string's header is never split from its first
// character, and a string continued in the next record starts it with its flags byte. Every
// dsst-th string's stream position is kept for the EXTSST record.
class SstWriter {
public:
    // Strings per EXTSST bucket for a table of lUnique strings (at least 8, at most 128 buckets).
    static uint32_t BucketSize(uint32_t lUnique);

    SstWriter(RecordWriter& w, uint32_t lTotal, uint32_t lUnique);
    void Add(std::string_view sUtf8);
    // Ends the SST and writes the EXTSST record.
    void Finish();

private:
    void Flush(bool bContinue);
    void Room(size_t n);

    RecordWriter& w_;
    uint32_t lBucket_;
    uint32_t lCount_ = 0;
    std::vector<uint8_t> buf_;  // the data of the record being filled
    uint16_t nType_ = 0x00FC;
    uint64_t lRecordStart_;  // stream position of the record being filled
    Bytes oExt_;
};

}  // namespace xl::biff
