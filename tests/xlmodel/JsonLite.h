// A small JSON reader for the saver tests: enough for what dump_xlsx.py prints.
#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace jsonlite {

struct Value {
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } eKind = kNull;
    bool b = false;
    double d = 0;
    std::string s;
    std::vector<Value> arr;
    std::map<std::string, Value> obj;

    bool IsNull() const { return eKind == kNull; }
    bool Has(const std::string& k) const { return eKind == kObject && obj.count(k) != 0; }
    const Value& operator[](const std::string& k) const {
        static const Value kNone;
        if (eKind != kObject) return kNone;
        auto it = obj.find(k);
        return it == obj.end() ? kNone : it->second;
    }
    const Value& operator[](size_t i) const {
        static const Value kNone;
        return (eKind == kArray && i < arr.size()) ? arr[i] : kNone;
    }
    size_t Size() const { return eKind == kArray ? arr.size() : obj.size(); }
    std::string Str() const { return eKind == kString ? s : (eKind == kNull ? "<null>" : "<?>"); }
    double Num() const { return d; }
    bool Bool() const { return b; }
};

class Parser {
public:
    explicit Parser(const std::string& t) : t_(t) {}

    Value Parse() {
        Value v = ParseValue();
        Skip();
        if (i_ != t_.size()) throw std::runtime_error("json: trailing text");
        return v;
    }

private:
    void Skip() {
        while (i_ < t_.size() &&
               (t_[i_] == ' ' || t_[i_] == '\n' || t_[i_] == '\r' || t_[i_] == '\t')) {
            ++i_;
        }
    }
    char Peek() {
        Skip();
        if (i_ >= t_.size()) throw std::runtime_error("json: unexpected end");
        return t_[i_];
    }
    void Expect(char c) {
        if (Peek() != c) throw std::runtime_error(std::string("json: expected ") + c);
        ++i_;
    }
    bool Word(const char* w) {
        const std::string s(w);
        if (t_.compare(i_, s.size(), s) == 0) {
            i_ += s.size();
            return true;
        }
        return false;
    }

    static void Utf8(std::string& out, unsigned cp) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    unsigned Hex4() {
        if (i_ + 4 > t_.size()) throw std::runtime_error("json: bad escape");
        const unsigned v = static_cast<unsigned>(std::stoul(t_.substr(i_, 4), nullptr, 16));
        i_ += 4;
        return v;
    }

    std::string ParseString() {
        Expect('"');
        std::string out;
        while (i_ < t_.size() && t_[i_] != '"') {
            char c = t_[i_++];
            if (c != '\\') {
                out += c;
                continue;
            }
            char e = t_[i_++];
            switch (e) {
                case 'n':
                    out += '\n';
                    break;
                case 't':
                    out += '\t';
                    break;
                case 'r':
                    out += '\r';
                    break;
                case 'b':
                    out += '\b';
                    break;
                case 'f':
                    out += '\f';
                    break;
                case 'u': {
                    unsigned cp = Hex4();
                    if (cp >= 0xD800 && cp < 0xDC00 && t_.compare(i_, 2, "\\u") == 0) {
                        i_ += 2;
                        const unsigned lo = Hex4();
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
                    }
                    Utf8(out, cp);
                    break;
                }
                default:
                    out += e;
                    break;
            }
        }
        Expect('"');
        return out;
    }

    Value ParseValue() {
        Value v;
        const char c = Peek();
        if (c == '{') {
            ++i_;
            v.eKind = Value::kObject;
            if (Peek() == '}') {
                ++i_;
                return v;
            }
            for (;;) {
                std::string k = ParseString();
                Expect(':');
                v.obj[k] = ParseValue();
                if (Peek() == ',') {
                    ++i_;
                    continue;
                }
                Expect('}');
                return v;
            }
        }
        if (c == '[') {
            ++i_;
            v.eKind = Value::kArray;
            if (Peek() == ']') {
                ++i_;
                return v;
            }
            for (;;) {
                v.arr.push_back(ParseValue());
                if (Peek() == ',') {
                    ++i_;
                    continue;
                }
                Expect(']');
                return v;
            }
        }
        if (c == '"') {
            v.eKind = Value::kString;
            v.s = ParseString();
            return v;
        }
        if (Word("true")) {
            v.eKind = Value::kBool;
            v.b = true;
            return v;
        }
        if (Word("false")) {
            v.eKind = Value::kBool;
            return v;
        }
        if (Word("null")) return v;
        char* end = nullptr;
        v.d = std::strtod(t_.c_str() + i_, &end);
        if (end == t_.c_str() + i_) throw std::runtime_error("json: bad value");
        v.eKind = Value::kNumber;
        i_ = static_cast<size_t>(end - t_.c_str());
        return v;
    }

    const std::string& t_;
    size_t i_ = 0;
};

inline Value Parse(const std::string& sText) {
    return Parser(sText).Parse();
}

}  // namespace jsonlite
