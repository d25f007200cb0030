#include "Ocpp20/Process/JsonText.h"

#include <cmath>
#include <cstdio>

namespace {

void AppendKey(std::string& out, const char* key, bool first) {
    if (!first) out += ',';
    CJsonText::AppendQuoted(out, key);
    out += ':';
}

}  // namespace

void CJsonText::AppendQuoted(std::string& out, const char* text) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
        const unsigned char c = *p;
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
                    out += kHex[c >> 4];
                    out += kHex[c & 0xf];
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
}

void CJsonText::AppendString(std::string& out, const char* key, const char* value, bool first) {
    AppendKey(out, key, first);
    AppendQuoted(out, value);
}

void CJsonText::AppendInt(std::string& out, const char* key, int64_t value, bool first) {
    AppendKey(out, key, first);
    char buf[24];
    snprintf(buf, sizeof buf, "%lld", static_cast<long long>(value));
    out += buf;
}

void CJsonText::AppendFloat(std::string& out, const char* key, float value, bool first) {
    AppendKey(out, key, first);
    char buf[32];
    // JSON has no inf or nan.
    snprintf(buf, sizeof buf, "%.9g", std::isfinite(value) ? static_cast<double>(value) : 0.0);
    out += buf;
}
