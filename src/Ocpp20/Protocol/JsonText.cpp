#include "Ocpp20/Protocol/JsonText.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

// Length of the UTF-8 sequence starting at text[i], or 0 when it is malformed
// (overlong forms, surrogates and code points above U+10FFFF included).
size_t SequenceLength(const unsigned char* s, size_t i, size_t n) {
    const unsigned char c = s[i];
    if (c < 0x80) return 1;
    size_t len;
    uint32_t cp;
    if ((c & 0xE0) == 0xC0) {
        len = 2;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        len = 3;
        cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        len = 4;
        cp = c & 0x07;
    } else {
        return 0;
    }
    if (i + len > n) return 0;
    for (size_t k = 1; k < len; ++k) {
        if ((s[i + k] & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    static const uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return len;
}

}  // namespace

size_t CJsonText::CutLength(const std::string& text, size_t maxBytes) {
    if (maxBytes == 0 || text.size() <= maxBytes) return text.size();
    const unsigned char* s = reinterpret_cast<const unsigned char*>(text.data());
    size_t i = 0;
    while (i < maxBytes) {
        size_t len = SequenceLength(s, i, text.size());
        if (len == 0) len = 1;  // a stray byte is written as one '?'
        if (i + len > maxBytes) break;
        i += len;
    }
    return i;
}

void CJsonText::AppendString(std::string& out, const std::string& text, size_t maxBytes) {
    static const char kHex[] = "0123456789abcdef";
    const size_t n = CutLength(text, maxBytes);
    const unsigned char* s = reinterpret_cast<const unsigned char*>(text.data());
    out.push_back('"');
    size_t i = 0;
    while (i < n) {
        const unsigned char c = s[i];
        if (c >= 0x80) {
            const size_t len = SequenceLength(s, i, n);
            if (len == 0) {
                out.push_back('?');
                ++i;
            } else {
                out.append(text, i, len);
                i += len;
            }
            continue;
        }
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            default:
                if (c < 0x20) {
                    out += "\\u00";
                    out.push_back(kHex[c >> 4]);
                    out.push_back(kHex[c & 0xF]);
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
        ++i;
    }
    out.push_back('"');
}

void CJsonText::AppendNumber(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out.push_back('0');
        return;
    }
    char buf[32];
    const auto res = std::to_chars(buf, buf + sizeof(buf), value);
    out.append(buf, res.ptr);
}

void CJsonText::AppendInt(std::string& out, int64_t value) {
    char buf[24];
    const auto res = std::to_chars(buf, buf + sizeof(buf), value);
    out.append(buf, res.ptr);
}

bool CJsonText::DepthWithin(const char* text, size_t len, int maxDepth) {
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < len; ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

namespace {
void AppendKey(std::string& out, const char* key, bool first) {
    if (!first) out += ',';
    CJsonText::AppendString(out, std::string(key));
    out += ':';
}
}  // namespace

void CJsonText::AppendStringMember(std::string& out, const char* key, const char* value, bool first) {
    AppendKey(out, key, first);
    AppendString(out, std::string(value ? value : ""));
}

void CJsonText::AppendIntMember(std::string& out, const char* key, int64_t value, bool first) {
    AppendKey(out, key, first);
    AppendInt(out, value);
}

void CJsonText::AppendFloatMember(std::string& out, const char* key, float value, bool first) {
    AppendKey(out, key, first);
    char buf[32];
    // JSON has no inf or nan.
    snprintf(buf, sizeof buf, "%.9g", std::isfinite(value) ? static_cast<double>(value) : 0.0);
    out += buf;
}
