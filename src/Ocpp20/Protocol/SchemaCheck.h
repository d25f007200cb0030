#pragma once
// Validation of a parsed OCPP 2.0.1 payload against its message schema. The
// rule tables and the per-message functions are generated (ModelSchemas.cpp);
// this file holds the one walker they share. The walker reads the document in
// place and allocates nothing unless it has a reason to write.
#include <rapidjson/fwd.h>

#include <cstdint>
#include <string>

namespace models {

// Checks one payload object; on failure `why`, when given, gets the member path
// and the rule broken, e.g. "requestedMessage: not in enumeration".
typedef bool (*PayloadValidator)(const rapidjson::Value& payload, std::string* why);

// The validator of an action's request or response payload; nullptr when the
// action is not an OCPP 2.0.1 action (exact, case-sensitive).
PayloadValidator FindPayloadValidator(const char* action, bool request);
// Whether `action` names an OCPP 2.0.1 action at all.
bool IsOcppAction(const char* action);
// FindPayloadValidator and the call in one; an unknown action fails.
bool ValidatePayload(const char* action, bool request, const rapidjson::Value& payload, std::string* why);

namespace schema {

enum Kind : uint8_t { kAny, kString, kEnum, kInteger, kNumber, kBoolean, kObject, kArray };
enum Flag : uint8_t { kDateTime = 1, kHasMinimum = 2, kHasMaximum = 4 };

struct Shape;

struct Rule {
    uint8_t kind;
    uint8_t flags;
    uint16_t count;               // enumeration values
    uint32_t minSize;             // string code points or array items
    uint32_t maxSize;             // 0: no bound
    const Shape* shape;           // object
    const char* const* values;    // enumeration
    const Rule* items;            // array
    const double* bounds;         // {minimum, maximum}, as the flags say
};

struct Member {
    const char* name;
    bool required;
    Rule rule;
};

struct Shape {
    const Member* members;
    uint16_t count;
    bool closed;                  // members not listed are refused
};

constexpr Rule Any() { return Rule{kAny, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}; }
constexpr Rule Boolean() { return Rule{kBoolean, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}; }
constexpr Rule String(uint32_t minLength, uint32_t maxLength, uint8_t flags) {
    return Rule{kString, flags, 0, minLength, maxLength, nullptr, nullptr, nullptr, nullptr};
}
constexpr Rule Enum(const char* const* values, uint16_t count) {
    return Rule{kEnum, 0, count, 0, 0, nullptr, values, nullptr, nullptr};
}
constexpr Rule Integer() { return Rule{kInteger, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}; }
constexpr Rule Number() { return Rule{kNumber, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}; }
constexpr uint8_t BoundFlags(bool min, bool max) {
    return static_cast<uint8_t>((min ? kHasMinimum : 0) | (max ? kHasMaximum : 0));
}
constexpr Rule Integer(const double* bounds, bool min, bool max) {
    return Rule{kInteger, BoundFlags(min, max), 0, 0, 0, nullptr, nullptr, nullptr, bounds};
}
constexpr Rule Number(const double* bounds, bool min, bool max) {
    return Rule{kNumber, BoundFlags(min, max), 0, 0, 0, nullptr, nullptr, nullptr, bounds};
}
constexpr Rule Object(const Shape& shape) { return Rule{kObject, 0, 0, 0, 0, &shape, nullptr, nullptr, nullptr}; }
constexpr Rule Array(const Rule& items, uint32_t minItems, uint32_t maxItems) {
    return Rule{kArray, 0, 0, minItems, maxItems, nullptr, nullptr, &items, nullptr};
}

// The whole payload against a message's shape.
bool CheckPayload(const Shape& shape, const rapidjson::Value& payload, std::string* why);

// Unicode code points in UTF-8 text, the way the schemas count string length.
uint32_t CodePoints(const char* text, uint32_t bytes);
// The date-time format as the common schema validators read it: a calendar
// date, "T", "t" or white space, then hh:mm:ss with optional fraction and zone.
bool IsDateTime(const char* text, uint32_t bytes);

}  // namespace schema
}  // namespace models
