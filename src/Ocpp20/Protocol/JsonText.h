#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// Small pieces of JSON text writing shared by the frame header and the
// message models. Host-supplied texts go through here, so whatever they hold
// the frame stays valid JSON and within the schema's length limits.
class CJsonText {
public:
    // Deepest nesting accepted on input; OCPP payloads stay far below it, and
    // the limit keeps the recursive parts of the JSON library off the stack's end.
    static const int kMaxDepth = 64;

    // Longest prefix of `text` of at most `maxBytes` bytes that does not split
    // a UTF-8 sequence (0 = no limit).
    static size_t CutLength(const std::string& text, size_t maxBytes);
    // Appends `text` as a quoted JSON string, cut to `maxBytes` (0 = no limit);
    // control characters are escaped and bytes that are not UTF-8 become '?'.
    static void AppendString(std::string& out, const std::string& text, size_t maxBytes = 0);
    // Shortest text that reads back as the same double; non-finite values become 0.
    static void AppendNumber(std::string& out, double value);
    static void AppendInt(std::string& out, int64_t value);
    // Keyed members for files that keep a fixed key order (a JSON document type
    // would sort them): `,"key":value`, without the comma for the first member.
    static void AppendStringMember(std::string& out, const char* key, const char* value, bool first = false);
    static void AppendIntMember(std::string& out, const char* key, int64_t value, bool first = false);
    static void AppendFloatMember(std::string& out, const char* key, float value, bool first = false);

    // True when brackets in `text` nest no deeper than `maxDepth` (strings are skipped).
    static bool DepthWithin(const char* text, size_t len, int maxDepth = kMaxDepth);
};
