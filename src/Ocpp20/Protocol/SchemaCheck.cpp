#include "Ocpp20/Protocol/SchemaCheck.h"

#include <rapidjson/document.h>

#include <cmath>
#include <cstring>

namespace models {

bool ValidatePayload(const char* action, bool request, const rapidjson::Value& payload, std::string* why) {
    const PayloadValidator check = FindPayloadValidator(action, request);
    if (check != nullptr) return check(payload, why);
    if (why != nullptr) *why = "not an OCPP 2.0.1 action";
    return false;
}

namespace schema {
namespace {

// A member name in a reason text: the log is no place for a name the size of a frame.
const size_t kNameInReason = 64;

// Reasons are built from the innermost failure outwards, as ": rule", then
// ".member" and "[index]" in front; nothing is built while `why` is null.
bool Fail(std::string* why, const char* rule) {
    if (why != nullptr) {
        *why = ": ";
        *why += rule;
    }
    return false;
}

bool FailCount(std::string* why, const char* rule, uint32_t n, const char* unit) {
    if (why != nullptr) {
        *why = ": ";
        *why += rule;
        *why += std::to_string(n);
        *why += unit;
    }
    return false;
}

std::string NameText(const char* name, size_t len) {
    std::string s(".");
    s.append(name, len < kNameInReason ? len : kNameInReason);
    return s;
}

bool FailMember(std::string* why, const char* name, size_t len, const char* rule) {
    if (why != nullptr) {
        *why = NameText(name, len);
        *why += ": ";
        *why += rule;
    }
    return false;
}

bool CheckValue(const Rule& rule, const rapidjson::Value& v, std::string* why);

bool CheckObject(const Shape& shape, const rapidjson::Value& v, std::string* why) {
    if (!v.IsObject()) return Fail(why, "not an object");
    uint64_t seen = 0;
    for (auto it = v.MemberBegin(); it != v.MemberEnd(); ++it) {
        const char* name = it->name.GetString();
        const size_t len = it->name.GetStringLength();
        uint16_t i = 0;
        while (i < shape.count &&
               !(std::strlen(shape.members[i].name) == len && std::memcmp(shape.members[i].name, name, len) == 0))
            ++i;
        if (i == shape.count) {
            if (shape.closed) return FailMember(why, name, len, "unknown member");
            continue;
        }
        seen |= uint64_t(1) << i;
        if (!CheckValue(shape.members[i].rule, it->value, why)) {
            if (why != nullptr) why->insert(0, NameText(name, len));
            return false;
        }
    }
    for (uint16_t i = 0; i < shape.count; ++i) {
        const Member& m = shape.members[i];
        if (m.required && (seen & (uint64_t(1) << i)) == 0)
            return FailMember(why, m.name, std::strlen(m.name), "required member missing");
    }
    return true;
}

bool CheckBounds(const Rule& rule, double d, std::string* why) {
    if ((rule.flags & kHasMinimum) && d < rule.bounds[0]) return Fail(why, "below its minimum");
    if ((rule.flags & kHasMaximum) && d > rule.bounds[1]) return Fail(why, "above its maximum");
    return true;
}

bool CheckString(const Rule& rule, const char* s, uint32_t bytes, std::string* why) {
    // A code point takes at least one byte, so the byte count settles most strings.
    if (rule.maxSize != 0 && bytes > rule.maxSize && CodePoints(s, bytes) > rule.maxSize)
        return FailCount(why, "longer than ", rule.maxSize, " characters");
    if (rule.minSize != 0 && (bytes < rule.minSize || CodePoints(s, bytes) < rule.minSize))
        return FailCount(why, "shorter than ", rule.minSize, " characters");
    if ((rule.flags & kDateTime) && !IsDateTime(s, bytes)) return Fail(why, "not a date-time");
    return true;
}

bool CheckValue(const Rule& rule, const rapidjson::Value& v, std::string* why) {
    switch (rule.kind) {
    case kAny:
        return true;
    case kString:
        if (!v.IsString()) return Fail(why, "not a string");
        return CheckString(rule, v.GetString(), v.GetStringLength(), why);
    case kEnum: {
        if (!v.IsString()) return Fail(why, "not a string");
        const char* s = v.GetString();
        const size_t len = v.GetStringLength();
        for (uint16_t i = 0; i < rule.count; ++i) {
            if (std::strlen(rule.values[i]) == len && std::memcmp(rule.values[i], s, len) == 0) return true;
        }
        return Fail(why, "not in enumeration");
    }
    case kInteger:
        // Any whole number counts, 3.0 included, as the schema validators take it.
        if (!v.IsNumber() || (v.IsDouble() && (!std::isfinite(v.GetDouble()) ||
                                               std::floor(v.GetDouble()) != v.GetDouble())))
            return Fail(why, "not an integer");
        return CheckBounds(rule, v.GetDouble(), why);
    case kNumber:
        if (!v.IsNumber() || (v.IsDouble() && !std::isfinite(v.GetDouble()))) return Fail(why, "not a number");
        return CheckBounds(rule, v.GetDouble(), why);
    case kBoolean:
        return v.IsBool() || Fail(why, "not a boolean");
    case kObject:
        return CheckObject(*rule.shape, v, why);
    case kArray: {
        if (!v.IsArray()) return Fail(why, "not an array");
        const uint32_t n = v.Size();
        if (n < rule.minSize) return FailCount(why, "needs at least ", rule.minSize, " item(s)");
        if (rule.maxSize != 0 && n > rule.maxSize) return FailCount(why, "more than ", rule.maxSize, " item(s)");
        for (uint32_t i = 0; i < n; ++i) {
            if (!CheckValue(*rule.items, v[i], why)) {
                if (why != nullptr) why->insert(0, "[" + std::to_string(i) + "]");
                return false;
            }
        }
        return true;
    }
    }
    return Fail(why, "unknown rule");
}

bool Digits(const char* s, int n, int& out) {
    out = 0;
    for (int i = 0; i < n; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        out = out * 10 + (s[i] - '0');
    }
    return true;
}

// The white space a date and a time may be split by, besides T and t: the
// ASCII ones and those Unicode spaces the validators' \s takes.
uint32_t SeparatorBytes(const unsigned char* p, uint32_t left) {
    if (left == 0) return 0;
    const unsigned char c = p[0];
    if (c == 'T' || c == 't' || c == ' ' || (c >= '\t' && c <= '\r')) return 1;
    uint32_t cp;
    uint32_t n;
    if ((c & 0xE0) == 0xC0) {
        n = 2;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        n = 3;
        cp = c & 0x0F;
    } else {
        return 0;
    }
    if (left < n) return 0;
    for (uint32_t i = 1; i < n; ++i) {
        if ((p[i] & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    const bool space = cp == 0xA0 || cp == 0x1680 || (cp >= 0x2000 && cp <= 0x200A) || cp == 0x2028 ||
                       cp == 0x2029 || cp == 0x202F || cp == 0x205F || cp == 0x3000 || cp == 0xFEFF;
    return space ? n : 0;
}

bool IsLeapYear(int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

}  // namespace

uint32_t CodePoints(const char* text, uint32_t bytes) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < bytes; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++n;
    }
    return n;
}

bool IsDateTime(const char* text, uint32_t bytes) {
    static const int kDays[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int year, month, day, hour, minute, second;
    if (bytes < 10 || !Digits(text, 4, year) || text[4] != '-' || !Digits(text + 5, 2, month) || text[7] != '-' ||
        !Digits(text + 8, 2, day))
        return false;
    if (month < 1 || month > 12 || day < 1 || day > (month == 2 && IsLeapYear(year) ? 29 : kDays[month]))
        return false;
    const uint32_t sep = SeparatorBytes(reinterpret_cast<const unsigned char*>(text) + 10, bytes - 10);
    if (sep == 0) return false;
    const char* p = text + 10 + sep;
    const char* end = text + bytes;
    if (end - p < 8 || !Digits(p, 2, hour) || p[2] != ':' || !Digits(p + 3, 2, minute) || p[5] != ':' ||
        !Digits(p + 6, 2, second))
        return false;
    if (!((hour <= 23 && minute <= 59 && second <= 59) || (hour == 23 && minute == 59 && second == 60)))
        return false;
    p += 8;
    int zone;
    if (p < end && *p == '.') {
        const char* digits = ++p;
        while (p < end && *p >= '0' && *p <= '9') ++p;
        if (p == digits) return false;
    }
    if (p == end) return true;  // the zone is optional to the validators
    if (*p == 'Z' || *p == 'z') return p + 1 == end;
    if (*p != '+' && *p != '-') return false;
    ++p;
    if (end - p < 2 || !Digits(p, 2, zone)) return false;
    p += 2;
    if (p < end && *p == ':') ++p;
    if (p == end) return p[-1] != ':';
    return end - p == 2 && Digits(p, 2, zone);
}

bool CheckPayload(const Shape& shape, const rapidjson::Value& payload, std::string* why) {
    if (CheckObject(shape, payload, why)) return true;
    if (why != nullptr && !why->empty()) {
        if ((*why)[0] == '.')
            why->erase(0, 1);
        else if ((*why)[0] == ':')
            why->insert(0, "payload");
    }
    return false;
}

}  // namespace schema
}  // namespace models
