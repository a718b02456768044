// The BIFF8 record writer: record framing, string forms and the shared string table, read back
// with a small independent decoder of the bytes.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "support/clsRunError.h"
#include "xl/xlBiffWriter.h"

using namespace xl::biff;

namespace {

uint32_t U16At(const std::string& s, size_t i) {
    return static_cast<uint8_t>(s[i]) | (static_cast<uint8_t>(s[i + 1]) << 8);
}
uint32_t U32At(const std::string& s, size_t i) {
    return U16At(s, i) | (U16At(s, i + 2) << 16);
}

struct Rec {
    size_t lPos;
    uint32_t nType;
    std::string sData;
};

std::vector<Rec> Records(const std::string& s) {
    std::vector<Rec> out;
    for (size_t i = 0; i + 4 <= s.size();) {
        const uint32_t n = U16At(s, i + 2);
        out.push_back({i, U16At(s, i), s.substr(i + 4, n)});
        i += 4 + n;
    }
    return out;
}

// The strings of an SST record and its CONTINUE records, decoded the way a reader does, with the
// stream position of each string's header.
struct Sst {
    uint32_t lTotal = 0, lUnique = 0;
    std::vector<std::u16string> arr;
    std::vector<size_t> arrPos;
    std::vector<size_t> arrOffset;  // from the start of the record holding the header
};

Sst ReadSst(const std::vector<Rec>& recs) {
    Sst out;
    size_t r = 0;
    EXPECT_EQ(recs[0].nType, 0x00FCu);
    out.lTotal = U32At(recs[0].sData, 0);
    out.lUnique = U32At(recs[0].sData, 4);
    size_t at = 8;
    for (uint32_t k = 0; k < out.lUnique; ++k) {
        if (at >= recs[r].sData.size()) {
            ++r;
            at = 0;
        }
        const std::string* d = &recs[r].sData;
        EXPECT_LE(at + 3, d->size()) << "a string header split from its record";
        out.arrPos.push_back(recs[r].lPos + 4 + at);
        out.arrOffset.push_back(at + 4);
        const uint32_t n = U16At(*d, at);
        bool bHigh = ((*d)[at + 2] & 1) != 0;
        at += 3;
        std::u16string s;
        while (s.size() < n) {
            if (at >= d->size()) {
                ++r;
                EXPECT_EQ(recs[r].nType, 0x003Cu);
                d = &recs[r].sData;
                bHigh = ((*d)[0] & 1) != 0;  // a continued string starts with its flags
                at = 1;
            }
            if (bHigh) {
                s.push_back(static_cast<char16_t>(U16At(*d, at)));
                at += 2;
            } else {
                s.push_back(static_cast<uint8_t>((*d)[at]));
                at += 1;
            }
        }
        out.arr.push_back(s);
    }
    return out;
}

}  // namespace

TEST(BiffWriter, RecordsAreTypeLengthAndData) {
    MemorySink sink;
    RecordWriter w(sink, 100);
    Bytes b;
    b.U16(0x0600);
    b.U32(0x01020304);
    w.Record(0x0809, b);
    w.Empty(0x000A);
    w.Record16(0x0042, 1200);
    EXPECT_EQ(sink.Str(), std::string("\x09\x08\x06\x00\x00\x06\x04\x03\x02\x01"
                                      "\x0A\x00\x00\x00"
                                      "\x42\x00\x02\x00\xB0\x04",
                                      20));
    EXPECT_EQ(w.Position(), 120u);
}

TEST(BiffWriter, DataBeyondTheRecordLimitIsRefused) {
    CountingSink sink;
    RecordWriter w(sink);
    std::string s(kMaxRecordData, 'x');
    w.Record(0x00FC, s.data(), s.size());
    EXPECT_EQ(w.Position(), 4 + kMaxRecordData);
    s.push_back('x');
    EXPECT_EQ(testutil::RunErrorOf([&] { w.Record(0x00FC, s.data(), s.size()); }), 1004);
}

TEST(BiffWriter, TextBecomesUtf16) {
    EXPECT_EQ(Utf16("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), u"A\u00E9\u20AC\U0001F600");
    EXPECT_TRUE(IsCompressible(u"A\u00E9\u00FF"));
    EXPECT_FALSE(IsCompressible(u"A\u20AC"));
}

TEST(BiffWriter, StringFormsChooseOneOrTwoBytesACharacter) {
    Bytes b;
    b.XLUnicodeString(u"ab");
    b.ShortXLUnicodeString(u"\u00E9");
    b.XLUnicodeStringNoCch(u"\u20AC");
    b.HyperlinkString(u"x");
    const std::string s(reinterpret_cast<const char*>(b.Data()), b.Size());
    EXPECT_EQ(s, std::string("\x02\x00\x00"
                             "ab"
                             "\x01\x00\xE9"
                             "\x01\xAC\x20"
                             "\x02\x00\x00\x00x\x00\x00\x00",
                             19));
}

TEST(BiffWriter, SharedStringsContinueAcrossRecordsAndTheIndexPointsAtThem) {
    // Long and short strings, one and two bytes a character, so that headers and characters
    // meet every record boundary.
    std::vector<std::string> arr;
    for (int i = 0; i < 400; ++i) {
        std::string s = "s" + std::to_string(i) + std::string(static_cast<size_t>(i % 97), 'a');
        if (i % 3 == 0) s += "\xD0\x96";  // a Cyrillic letter: two bytes a character
        arr.push_back(s);
    }
    arr.push_back(std::string(20000, 'L'));
    arr.push_back(std::string(12000, 'x') + "\xE2\x82\xAC");
    arr.push_back("");
    MemorySink sink;
    RecordWriter w(sink, 1000);
    SstWriter sst(w, 900, static_cast<uint32_t>(arr.size()));
    for (const std::string& s : arr)
        sst.Add(s);
    sst.Finish();
    std::string out(1000, '\0');
    out += sink.Str();  // positions count from the stream's start
    std::vector<Rec> recs = Records(out.substr(1000));
    for (Rec& r : recs)
        r.lPos += 1000;
    ASSERT_GT(recs.size(), 3u);
    for (const Rec& r : recs)
        EXPECT_LE(r.sData.size(), kMaxRecordData);

    const Sst s = ReadSst(recs);
    EXPECT_EQ(s.lTotal, 900u);
    ASSERT_EQ(s.arr.size(), arr.size());
    for (size_t i = 0; i < arr.size(); ++i)
        EXPECT_EQ(s.arr[i], Utf16(arr[i])) << i;

    const Rec& ext = recs.back();
    ASSERT_EQ(ext.nType, 0x00FFu);
    const uint32_t dsst = U16At(ext.sData, 0);
    EXPECT_EQ(dsst, SstWriter::BucketSize(static_cast<uint32_t>(arr.size())));
    const size_t n = (ext.sData.size() - 2) / 8;
    EXPECT_EQ(n, (arr.size() + dsst - 1) / dsst);
    for (size_t k = 0; k < n; ++k) {
        EXPECT_EQ(U32At(ext.sData, 2 + 8 * k), s.arrPos[k * dsst]) << k;
        EXPECT_EQ(U16At(ext.sData, 6 + 8 * k), s.arrOffset[k * dsst]) << k;
    }
}

TEST(BiffWriter, TheIndexHasAtMost128Buckets) {
    EXPECT_EQ(SstWriter::BucketSize(0), 8u);
    EXPECT_EQ(SstWriter::BucketSize(1024), 8u);
    EXPECT_EQ(SstWriter::BucketSize(1025), 9u);
    EXPECT_EQ(SstWriter::BucketSize(100000), 782u);
}
