#include "settings/clsXMLIniData.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <sstream>
#include <string_view>

#include "settings/clsLookupRecorder.h"
#include "support/modResources.h"

clsXMLIniData::clsXMLIniData() = default;
clsXMLIniData::~clsXMLIniData() = default;

unsigned int clsXMLIniData::ParseOptions() {
    // pugixml's defaults drop whitespace-only text and skip any DTD without expanding entities.
    return pugi::parse_default | pugi::parse_comments | pugi::parse_pi;
}

namespace {

bool StartsWith(std::string_view s, std::string_view sPrefix) {
    return s.size() >= sPrefix.size() && s.substr(0, sPrefix.size()) == sPrefix;
}

// Whether the byte continues a UTF-8 character rather than starting one.
bool IsContinuationByte(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// 1-based line and position of a byte offset in a UTF-8 text. The position counts characters as
// the system's DOM counts them, in UTF-16 code units: "é" is one, like "e", and a character
// beyond the Basic Multilingual Plane two. A line ends with LF, CR LF or a lone CR.
void LineAndColumn(std::string_view s, ptrdiff_t lOffset, long& lLine, long& lPos) {
    const size_t lEnd = std::min(s.size(), static_cast<size_t>(std::max<ptrdiff_t>(0, lOffset)));
    lLine = 1;
    long lCol = 0;
    for (size_t i = 0; i < lEnd; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (c == '\n' || (c == '\r' && (i + 1 >= s.size() || s[i + 1] != '\n'))) {
            ++lLine;
            lCol = 0;
        } else if (c == '\r' || IsContinuationByte(c)) {
            // the CR of a CR LF, and the rest of a character already counted
        } else {
            lCol += (c >= 0xF0 && c <= 0xF7) ? 2 : 1;
        }
    }
    lPos = lCol + 1;
}

// The code units of a text: their width in bytes and their byte order, from the byte-order mark
// or the first character ("<"); one byte for everything else.
void UnitLayout(std::string_view s, size_t& nWidth, bool& bBigEndian) {
    using namespace std::string_view_literals;
    nWidth = 1;
    bBigEndian = false;
    if (StartsWith(s, "\xFF\xFE\0\0"sv) || StartsWith(s, "<\0\0\0"sv)) {
        nWidth = 4;
    } else if (StartsWith(s, "\0\0\xFE\xFF"sv) || StartsWith(s, "\0\0\0<"sv)) {
        nWidth = 4;
        bBigEndian = true;
    } else if (StartsWith(s, "\xFF\xFE"sv) || StartsWith(s, "<\0"sv)) {
        nWidth = 2;
    } else if (StartsWith(s, "\xFE\xFF"sv) || StartsWith(s, "\0<"sv)) {
        nWidth = 2;
        bBigEndian = true;
    }
}

void AppendUtf8(std::string& sOut, uint32_t cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
        sOut.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        sOut.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        sOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        sOut.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        sOut.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        sOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        sOut.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        sOut.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        sOut.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        sOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// A UTF-16 or UTF-32 text (code units of nWidth bytes) as UTF-8, without its byte-order mark.
// An unpaired surrogate, or a value beyond U+10FFFF, becomes U+FFFD; a last incomplete unit is
// dropped.
std::string WideToUtf8(std::string_view s, size_t nWidth, bool bBigEndian) {
    const size_t nUnits = s.size() / nWidth;
    auto Unit = [&](size_t i) {
        uint32_t u = 0;
        for (size_t k = 0; k < nWidth; ++k) {
            const uint32_t b = static_cast<unsigned char>(s[i * nWidth + k]);
            u |= b << (8 * (bBigEndian ? nWidth - 1 - k : k));
        }
        return u;
    };
    std::string sOut;
    sOut.reserve(nUnits + nUnits / 4);
    size_t i = (nUnits > 0 && Unit(0) == 0xFEFF) ? 1 : 0;
    for (; i < nUnits; ++i) {
        uint32_t u = Unit(i);
        if (nWidth == 2 && u >= 0xD800 && u <= 0xDBFF && i + 1 < nUnits) {
            const uint32_t v = Unit(i + 1);
            if (v >= 0xDC00 && v <= 0xDFFF) {
                u = 0x10000 + ((u - 0xD800) << 10) + (v - 0xDC00);
                ++i;
            }
        }
        AppendUtf8(sOut, u);
    }
    return sOut;
}

// An 8-bit text as UTF-8: ISO-8859-1, or Windows-1252, whose five unused positions stand for
// the C1 controls of that number.
std::string SingleByteToUtf8(std::string_view s, bool bCp1252) {
    static const char16_t kHigh[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    std::string sOut;
    sOut.reserve(s.size() + s.size() / 8);
    for (unsigned char ch : s) {
        AppendUtf8(sOut, (bCp1252 && ch >= 0x80 && ch < 0xA0) ? kHigh[ch - 0x80] : ch);
    }
    return sOut;
}

// Finds a character that XML 1.0 does not allow (a control character other than tab, line feed
// and carriage return, NUL included): the parser would take it as text, a conforming reader
// refuses the document. Gives its byte offset in the UTF-8 text and its code.
bool FindIllegalCharacter(std::string_view s, size_t& lOffset, unsigned& nCode) {
    auto Illegal = [](char ch) {
        const unsigned char c = static_cast<unsigned char>(ch);
        return c < 0x20 && c != '\t' && c != '\n' && c != '\r';
    };
    // A data file runs to many megabytes: whole blocks are checked without a branch for each
    // byte (the compiler does a block in a few vector steps), and only a block that holds such a
    // character is searched byte by byte.
    constexpr size_t kBlock = 64;
    size_t i = 0;
    for (; i + kBlock <= s.size(); i += kBlock) {
        unsigned nAny = 0;
        for (size_t k = 0; k < kBlock; ++k)
            nAny |= Illegal(s[i + k]) ? 1u : 0u;
        if (nAny != 0) break;
    }
    for (; i < s.size(); ++i) {
        if (Illegal(s[i])) {
            lOffset = i;
            nCode = static_cast<unsigned char>(s[i]);
            return true;
        }
    }
    return false;
}

// Refuses a text holding a character XML 1.0 does not allow, with its place.
bool RefuseIllegalCharacter(std::string_view sData, std::string& sReason, long& lLine, long& lPos) {
    size_t lOffset = 0;
    unsigned nCode = 0;
    if (!FindIllegalCharacter(sData, lOffset, nCode)) return false;
    sReason = "Invalid character (code " + std::to_string(nCode) + ") in the document";
    LineAndColumn(sData, static_cast<ptrdiff_t>(lOffset), lLine, lPos);
    return true;
}

// The parser takes a sequence of elements; a document has exactly one. The second one, if any.
pugi::xml_node SecondDocumentElement(const pugi::xml_document& oDoc) {
    pugi::xml_node oSecond =
        oDoc.find_child([](pugi::xml_node n) { return n.type() == pugi::node_element; });
    while (oSecond && (oSecond = oSecond.next_sibling()) && oSecond.type() != pugi::node_element) {
    }
    return oSecond;
}

// Parses a UTF-8 text. Every position reported is counted in that text, which is what the
// parser's offsets refer to.
bool LoadBufferInto(pugi::xml_document& oDoc, std::string_view sData, std::string& sReason,
                    long& lLine, long& lPos) {
    if (RefuseIllegalCharacter(sData, sReason, lLine, lPos)) return false;
    pugi::xml_parse_result res = oDoc.load_buffer(
        sData.data(), sData.size(), clsXMLIniData::ParseOptions(), pugi::encoding_utf8);
    if (res) {
        const pugi::xml_node oSecond = SecondDocumentElement(oDoc);
        if (!oSecond) return true;
        sReason = "More than one document element";
        LineAndColumn(sData, oSecond.offset_debug(), lLine, lPos);
        oDoc.reset();
        return false;
    }
    sReason = res.description();
    LineAndColumn(sData, res.offset, lLine, lPos);
    return false;
}

// A buffer from the parser's own allocation function, which a document can take over.
class ParserBuffer {
public:
    ParserBuffer() = default;
    ~ParserBuffer() { Free(); }
    ParserBuffer(const ParserBuffer&) = delete;
    ParserBuffer& operator=(const ParserBuffer&) = delete;

    // Room for lRoom bytes, the lKeep first ones kept; nothing else is written to it.
    void Reserve(size_t lRoom, size_t lKeep) {
        char* q =
            static_cast<char*>(pugi::get_memory_allocation_function()(lRoom == 0 ? 1 : lRoom));
        if (!q) throw std::bad_alloc();
        if (lKeep != 0) std::memcpy(q, p_, lKeep);
        Free();
        p_ = q;
        lRoom_ = lRoom;
    }
    char* Data() { return p_; }
    size_t Room() const { return lRoom_; }
    // The document takes the buffer over.
    char* Release() {
        char* q = p_;
        p_ = nullptr;
        lRoom_ = 0;
        return q;
    }

private:
    void Free() {
        if (p_) pugi::get_memory_deallocation_function()(p_);
        p_ = nullptr;
        lRoom_ = 0;
    }

    char* p_ = nullptr;
    size_t lRoom_ = 0;
};

// Parses the UTF-8 text of a file, held in oBuffer (lSize bytes) from lSkip, in place: the
// document takes the buffer over, so the text is held once while the document is built. A
// position to report is counted in the file's text, read again for it.
bool LoadUtf8InPlace(pugi::xml_document& oDoc, ParserBuffer& oBuffer, size_t lSize, size_t lSkip,
                     const std::string& sPath, std::string& sReason, long& lLine, long& lPos) {
    char* pText = oBuffer.Data();
    if (lSkip != 0) std::memmove(pText, pText + lSkip, lSize - lSkip);
    const size_t n = lSize - lSkip;
    if (RefuseIllegalCharacter(std::string_view(pText, n), sReason, lLine, lPos)) return false;
    const pugi::xml_parse_result res = oDoc.load_buffer_inplace_own(
        oBuffer.Release(), n, clsXMLIniData::ParseOptions(), pugi::encoding_utf8);
    ptrdiff_t lAt = 0;
    if (res) {
        const pugi::xml_node oSecond = SecondDocumentElement(oDoc);
        if (!oSecond) return true;
        sReason = "More than one document element";
        lAt = oSecond.offset_debug();
    } else {
        sReason = res.description();
        lAt = res.offset;
    }
    oDoc.reset();
    std::ifstream in(sPath, std::ios::binary);
    const std::string sAgain((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
    LineAndColumn(std::string_view(sAgain).substr(std::min(lSkip, sAgain.size())), lAt, lLine,
                  lPos);
    return false;
}

enum class FileCoding { Utf8, Latin1, Cp1252, Unknown };

// The encoding an 8-bit file declares: the one named in the XML declaration, UTF-8 when it
// names none. A name this reader cannot decode gives Unknown, with the name and its place: the
// text is never read as something it is not.
FileCoding DeclaredCoding(std::string_view sData, std::string& sName, long& lPos) {
    if (!StartsWith(sData, "<?xml")) return FileCoding::Utf8;
    const size_t lEnd = sData.find("?>");
    if (lEnd == std::string::npos) return FileCoding::Utf8;  // the parser reports it
    const std::string_view sDecl = sData.substr(0, lEnd);
    size_t p = sDecl.find("encoding");
    if (p == std::string::npos) return FileCoding::Utf8;
    p += 8;
    while (p < sDecl.size() && (sDecl[p] == ' ' || sDecl[p] == '\t' || sDecl[p] == '\r' ||
                                sDecl[p] == '\n' || sDecl[p] == '='))
        ++p;
    if (p >= sDecl.size() || (sDecl[p] != '"' && sDecl[p] != '\'')) return FileCoding::Utf8;
    const size_t lClose = sDecl.find(sDecl[p], p + 1);
    if (lClose == std::string::npos) return FileCoding::Utf8;
    sName = std::string(sDecl.substr(p + 1, lClose - p - 1));
    lPos = static_cast<long>(p) + 2;
    std::string sUpper;
    for (char ch : sName) {
        if (ch == '_') ch = '-';
        sUpper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(ch))));
    }
    static const std::string_view kUtf8[] = {"UTF-8", "UTF8", "US-ASCII", "ASCII"};
    static const std::string_view kLatin1[] = {"ISO-8859-1", "ISO8859-1",  "LATIN1", "LATIN-1",
                                               "L1",         "ISO-IR-100", "CP819",  "IBM819"};
    static const std::string_view kCp1252[] = {"WINDOWS-1252", "CP1252"};
    for (std::string_view n : kUtf8)
        if (sUpper == n) return FileCoding::Utf8;
    for (std::string_view n : kLatin1)
        if (sUpper == n) return FileCoding::Latin1;
    for (std::string_view n : kCp1252)
        if (sUpper == n) return FileCoding::Cp1252;
    return FileCoding::Unknown;
}

// Everything a stream holds, read in large pieces into oBuffer; returns how many bytes. The size
// a file reports is a first guess, so one that grows, or a pipe that reports none, is still read
// to its end. The bytes go straight to the buffer the document will take: a large file is
// neither cleared first nor copied again.
size_t ReadWholeStream(std::ifstream& in, ParserBuffer& oBuffer) {
    size_t lRoom = size_t{1} << 16;
    if (in.seekg(0, std::ios::end)) {
        const std::streamoff lSize = in.tellg();
        if (lSize > 0) lRoom = static_cast<size_t>(lSize) + 1;
    }
    in.clear();
    in.seekg(0, std::ios::beg);
    in.clear();
    oBuffer.Reserve(lRoom, 0);
    size_t lUsed = 0;
    // Ends at the end of the stream (fail and eof) or at a read error (bad), which the caller
    // tests.
    while (true) {
        in.read(oBuffer.Data() + lUsed, static_cast<std::streamsize>(oBuffer.Room() - lUsed));
        lUsed += static_cast<size_t>(in.gcount());
        if (!in) break;
        oBuffer.Reserve(oBuffer.Room() + std::max<size_t>(lUsed, size_t{1} << 16), lUsed);
    }
    return lUsed;
}

}  // namespace

bool clsXMLIniData::LoadFileInto(pugi::xml_document& oDoc, const std::string& sPath,
                                 std::string& sReason, long& lLine, long& lPos) {
    std::ifstream in(sPath, std::ios::binary);
    if (!in) {
        sReason = "File could not be opened";
        lLine = lPos = 0;
        return false;
    }
    ParserBuffer oBuffer;
    const size_t lSize = ReadWholeStream(in, oBuffer);
    if (in.bad()) {
        sReason = "File could not be read";
        lLine = lPos = 0;
        return false;
    }
    const std::string_view sData(oBuffer.Data(), lSize);
    // Every file is parsed as UTF-8 text, so that a position is counted in the text the parser
    // reads. A byte-order mark decides (UTF-8, UTF-16 or UTF-32), as do the first bytes of a
    // UTF-16 or UTF-32 text without one; otherwise the declared encoding.
    size_t nWidth = 1;
    bool bBigEndian = false;
    UnitLayout(sData, nWidth, bBigEndian);
    if (nWidth > 1) {
        return LoadBufferInto(oDoc, WideToUtf8(sData, nWidth, bBigEndian), sReason, lLine, lPos);
    }
    const std::string_view sUtf8Bom = "\xEF\xBB\xBF";
    if (StartsWith(sData, sUtf8Bom)) {
        return LoadUtf8InPlace(oDoc, oBuffer, lSize, sUtf8Bom.size(), sPath, sReason, lLine, lPos);
    }
    std::string sName;
    long lNamePos = 0;
    switch (DeclaredCoding(sData, sName, lNamePos)) {
        case FileCoding::Utf8:
            return LoadUtf8InPlace(oDoc, oBuffer, lSize, 0, sPath, sReason, lLine, lPos);
        case FileCoding::Latin1:
            return LoadBufferInto(oDoc, SingleByteToUtf8(sData, false), sReason, lLine, lPos);
        case FileCoding::Cp1252:
            return LoadBufferInto(oDoc, SingleByteToUtf8(sData, true), sReason, lLine, lPos);
        case FileCoding::Unknown:
            break;
    }
    sReason = "The declared encoding \"" + sName + "\" cannot be read";
    lLine = 1;
    lPos = lNamePos;
    return false;
}

bool clsXMLIniData::LoadStringInto(pugi::xml_document& oDoc, const std::string& sText,
                                   std::string& sReason, long& lLine, long& lPos) {
    // A text handed over in memory is UTF-8 already; an encoding its declaration names is moot.
    return LoadBufferInto(oDoc, sText, sReason, lLine, lPos);
}

bool clsXMLIniData::LoadDocument(
    const std::function<bool(pugi::xml_document&, std::string&, long&, long&)>& fnLoad,
    const std::string& sWhat, std::string& sErrMsg) {
    try {
        oDoc_ = std::make_unique<pugi::xml_document>();
        oCurNode_ = pugi::xml_node();
        queries_.clear();
        selected_.clear();
        labelsById_.clear();
        std::string sReason;
        long lLine = 0, lPos = 0;
        if (!fnLoad(*oDoc_, sReason, lLine, lPos)) {
            sErrMsg = modResources::NowGeneralDate() + " " + sWhat +
                      " Load Parse error: " + sReason + " On Line: " + std::to_string(lLine) +
                      " At Position: " + std::to_string(lPos);
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        sErrMsg = sWhat + " Load Run error: " + e.what();
        return false;
    }
}

bool clsXMLIniData::LoadXDoc(const std::string& sXFullPath, std::string& sErrMsg) {
    bool bOk = LoadDocument(
        [&](pugi::xml_document& oDoc, std::string& sReason, long& lLine, long& lPos) {
            return LoadFileInto(oDoc, sXFullPath, sReason, lLine, lPos);
        },
        "IniDoc", sErrMsg);
    // White-space preservation is switched on after the load, so it does not affect it.
    bPreserveWhiteSpace_ = true;
    return bOk;
}

bool clsXMLIniData::LoadXString(const std::string& sXString, std::string& sErrMsg) {
    return LoadDocument(
        [&](pugi::xml_document& oDoc, std::string& sReason, long& lLine, long& lPos) {
            return LoadStringInto(oDoc, sXString, sReason, lLine, lPos);
        },
        "String", sErrMsg);
}

const pugi::xpath_query& clsXMLIniData::Query(const std::string& sXPath) {
    auto it = queries_.find(sXPath);
    if (it != queries_.end()) return *it->second;
    auto q = std::make_unique<pugi::xpath_query>(sXPath.c_str());  // throws on a bad expression
    return *queries_.emplace(sXPath, std::move(q)).first->second;
}

pugi::xpath_node clsXMLIniData::SelectFirst(const pugi::xml_node& oFrom,
                                            const std::string& sXPath) {
    if (!oFrom) return pugi::xpath_node();
    // The same expression on the same node always selects the same node: the document does not
    // change. Keyed by the node (not by the current node), so a section change is no concern.
    std::string sKey(sizeof(void*), '\0');
    const void* pFrom = oFrom.internal_object();
    std::memcpy(sKey.data(), &pFrom, sizeof pFrom);
    sKey += sXPath;
    auto it = selected_.find(sKey);
    if (it != selected_.end()) return it->second;
    pugi::xpath_node oFound = Query(sXPath).evaluate_node(oFrom);
    selected_.emplace(std::move(sKey), oFound);
    return oFound;
}

std::string clsXMLIniData::NodeText(const pugi::xpath_node& oFound) {
    // An attribute's text is its value.
    if (oFound.attribute()) return oFound.attribute().value();
    return NodeText(oFound.node());
}

std::string clsXMLIniData::NodeText(const pugi::xml_node& oNode) {
    if (!oNode) return std::string();
    if (oNode.type() == pugi::node_pcdata || oNode.type() == pugi::node_cdata) return oNode.value();
    if (oNode.type() == pugi::node_comment || oNode.type() == pugi::node_pi) return oNode.value();
    std::string s;
    // Iterative walk over the descendants in document order: no recursion, whatever the depth.
    pugi::xml_node n = oNode.first_child();
    while (n) {
        if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) s += n.value();
        if (n.first_child()) {
            n = n.first_child();
        } else {
            while (n && n != oNode && !n.next_sibling())
                n = n.parent();
            if (!n || n == oNode) break;
            n = n.next_sibling();
        }
    }
    return s;
}

bool clsXMLIniData::SetCurNode(const std::string& sNodePath) {
    try {
        // Only an element can be a section: an attribute has no child nodes, so a path that
        // selects one leaves no current node, as a path that selects nothing does.
        pugi::xpath_node oFound = SelectFirst(DocumentElement(), sNodePath);
        oCurNode_ = oFound.node();
        if (pRecorder_)
            pRecorder_->OnSection(sNodePath, oCurNode_, static_cast<bool>(oCurNode_.first_child()));
        if (!oCurNode_) return false;
        if (!oCurNode_.first_child()) {
            oCurNode_ = pugi::xml_node();
            return false;
        }
        return true;
    } catch (...) {
        oCurNode_ = pugi::xml_node();
        if (pRecorder_) pRecorder_->OnSection(sNodePath, pugi::xml_node(), false);
        return false;
    }
}

long clsXMLIniData::CurNodeChildNumber() const {
    if (!oCurNode_) return 0;
    long n = 0;
    for (pugi::xml_node c = oCurNode_.first_child(); c; c = c.next_sibling())
        ++n;
    return n;
}

namespace {

// The element a lookup found: the attribute's element when the path selected an attribute.
pugi::xml_node MatchedElement(const pugi::xpath_node& oMatch) {
    return oMatch.attribute() ? oMatch.parent() : oMatch.node();
}

// An attribute that a path selected has no attributes of its own: the index becomes empty.
void ReplaceIndex(const pugi::xpath_node& oMatch, std::string* sIndex,
                  const std::string& sIndAttr) {
    if (sIndex && !sIndex->empty() && oMatch) {
        *sIndex = oMatch.node().attribute(sIndAttr.c_str()).value();
    }
}

}  // namespace

std::string clsXMLIniData::GetLabelUseCurNode(const std::string& lblCap, std::string* sIndex,
                                              const std::string& sIndAttr) {
    try {
        if (!oCurNode_) {
            // Without a current node nothing is selected (and the expression is not compiled).
            if (pRecorder_) pRecorder_->OnLabel(lblCap, true, oCurNode_, pugi::xml_node(), "");
            return std::string();
        }
        pugi::xpath_node oMatch = SelectFirst(oCurNode_, lblCap);
        ReplaceIndex(oMatch, sIndex, sIndAttr);
        std::string sText = NodeText(oMatch);
        if (pRecorder_) pRecorder_->OnLabel(lblCap, true, oCurNode_, MatchedElement(oMatch), sText);
        return sText;
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::OrderExpression(long lInd) {
    return "*[@ORDER = " + std::to_string(lInd) + "]";
}

std::string clsXMLIniData::GetLabelUseCurNodeByID(long lInd, std::string* sIndex,
                                                  const std::string& sIndAttr) {
    // The answer is the same every time while the document is loaded; a recorded lookup, or one
    // that also gives an index, goes the whole way.
    if (pRecorder_ || sIndex || !oCurNode_) {
        return GetLabelUseCurNode(OrderExpression(lInd), sIndex, sIndAttr);
    }
    const std::pair<const void*, long> lKey{oCurNode_.internal_object(), lInd};
    auto it = labelsById_.find(lKey);
    if (it != labelsById_.end()) return it->second;
    std::string sText = GetLabelUseCurNode(OrderExpression(lInd), sIndex, sIndAttr);
    labelsById_.emplace(lKey, sText);
    return sText;
}

std::string clsXMLIniData::GetLabelUsePath(const std::string& sLblCapPath, std::string* sIndex,
                                           const std::string& sIndAttr) {
    try {
        pugi::xpath_node oMatch = SelectFirst(DocumentElement(), sLblCapPath);
        ReplaceIndex(oMatch, sIndex, sIndAttr);
        std::string sText = NodeText(oMatch);
        if (pRecorder_)
            pRecorder_->OnLabel(sLblCapPath, false, DocumentElement(), MatchedElement(oMatch),
                                sText);
        return sText;
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetLabelUsePathByID(const std::string& sParentPath, long lInd,
                                               std::string* sIndex) {
    SetCurNode(sParentPath);
    return GetLabelUseCurNodeByID(lInd, sIndex);
}

std::string clsXMLIniData::GetFieldNameUseCurNodeByID(long lInd, const std::string& sAlterName) {
    try {
        const std::string sExpression = OrderExpression(lInd);
        pugi::xml_node oMatch;
        if (oCurNode_) oMatch = SelectFirst(oCurNode_, sExpression).node();
        std::string sField = oMatch ? oMatch.attribute("FIELD").value() : sAlterName;
        if (pRecorder_) pRecorder_->OnField(sExpression, oCurNode_, oMatch, sField);
        return sField;
    } catch (...) {
        return sAlterName;
    }
}

pugi::xml_node clsXMLIniData::MatchByLabel(const std::string& sLabel) {
    // The label is inserted as it is: one holding an apostrophe finds nothing.
    if (!oCurNode_) return pugi::xml_node();
    return SelectFirst(oCurNode_, "*[. = '" + sLabel + "']").node();
}

std::string clsXMLIniData::GetNodeNameUseCurNodeByLabel(const std::string& sLabel,
                                                        bool bWithPosition, std::string* sPos,
                                                        const std::string& sPosAttr) {
    try {
        pugi::xml_node oMatch = MatchByLabel(sLabel);
        if (sPos && !oMatch) sPos->clear();  // no match: the position is emptied
        if (sPos && oMatch && bWithPosition) *sPos = oMatch.attribute(sPosAttr.c_str()).value();
        return oMatch ? std::string(oMatch.name()) : std::string();
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetFieldNameUseCurNodeByLabel(const std::string& sLabel,
                                                         bool bWithPosition, std::string* sPos,
                                                         const std::string& sPosAttr) {
    try {
        pugi::xml_node oMatch = MatchByLabel(sLabel);
        if (sPos && !oMatch) sPos->clear();  // no match: the position is emptied
        if (sPos && oMatch && bWithPosition) *sPos = oMatch.attribute(sPosAttr.c_str()).value();
        return oMatch ? std::string(oMatch.attribute("FIELD").value()) : std::string();
    } catch (...) {
        return std::string();
    }
}

std::string clsXMLIniData::GetNodeNameUsePathByLabel(const std::string& sParentPath,
                                                     const std::string& sLabel) {
    SetCurNode(sParentPath);
    return GetNodeNameUseCurNodeByLabel(sLabel);
}

std::string clsXMLIniData::GetAttrValue(const pugi::xml_node& oElement,
                                        const std::string& attrName) {
    std::string sValue = oElement ? oElement.attribute(attrName.c_str()).value() : "";
    if (pRecorder_) pRecorder_->OnAttribute(oElement, attrName, sValue);
    return sValue;
}

long clsXMLIniData::GetAttrRows(const std::string& sAttrXPath, const std::string& sVisib,
                                int iColPerRow) {
    try {
        if (!oDoc_) return 0;
        pugi::xpath_node_set set =
            Query("//" + sAttrXPath + "/*[@" + sVisib + " = 'True']").evaluate_node_set(*oDoc_);
        long n = static_cast<long>(set.size());
        if (n == 0) return 0;
        long lPairs = iColPerRow / 2;
        if (lPairs == 0) return 0;  // the division by zero of a row of fewer than two columns
        return n / lPairs + ((n % lPairs) >= 1 ? 1 : 0);
    } catch (...) {
        return 0;
    }
}

namespace {

// CLng: round to the nearest whole number, halves to even; error when not numeric.
long ToLong(const char* s) {
    std::string t(s);
    size_t a = t.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) throw std::invalid_argument("empty");
    size_t lUsed = 0;
    double d = std::nearbyint(std::stod(t.substr(a), &lUsed));
    // A Long holds 32 bits: a larger ORDER is an overflow, and the list is refused.
    if (!(d >= INT32_MIN && d <= INT32_MAX)) throw std::overflow_error("ORDER");
    return static_cast<long>(d);
}

}  // namespace

pugi::xpath_node_set clsXMLIniData::GetOrderedAttrList(const std::string& sAttrPath,
                                                       long& lAttrCount, clsOrderArray& arrOrder) {
    pugi::xpath_node_set oList = SelectOrderedList(sAttrPath, lAttrCount, arrOrder);
    if (pRecorder_) pRecorder_->OnList(sAttrPath, oCurNode_, oList);
    return oList;
}

pugi::xpath_node_set clsXMLIniData::SelectOrderedList(const std::string& sAttrPath,
                                                      long& lAttrCount, clsOrderArray& arrOrder) {
    lAttrCount = -1;
    try {
        if (!SetCurNode(sAttrPath)) return pugi::xpath_node_set();
        pugi::xpath_node_set set = Query("*[@ORDER > 0]").evaluate_node_set(oCurNode_);
        set.sort();  // document order
        long c = static_cast<long>(set.size());
        lAttrCount = c - 1;
        if (c == 0) return pugi::xpath_node_set();
        arrOrder.assign(static_cast<size_t>(c), {0, 0});
        for (long i = 0; i < c; ++i) {
            arrOrder[i][0] = i;
            arrOrder[i][1] = ToLong(set[static_cast<size_t>(i)].node().attribute("ORDER").value());
        }
        // Exchange sort by ORDER; not stable: [2, 2', 1] ends as [1, 2', 2].
        for (long i = 0; i < c; ++i) {
            for (long j = i + 1; j < c; ++j) {
                if (arrOrder[j][1] < arrOrder[i][1]) std::swap(arrOrder[i], arrOrder[j]);
            }
        }
        return set;
    } catch (...) {
        lAttrCount = -1;
        arrOrder.clear();
        return pugi::xpath_node_set();
    }
}
