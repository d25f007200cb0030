#pragma once
#include <cstdint>
#include <string>

// Writes JSON text with the keys in the order the caller appends them
// (the stores' files keep a fixed key order, which a JSON document type would sort).
class CJsonText {
public:
    static void AppendString(std::string& out, const char* key, const char* value, bool first = false);
    static void AppendInt(std::string& out, const char* key, int64_t value, bool first = false);
    static void AppendFloat(std::string& out, const char* key, float value, bool first = false);
    // Quoted and escaped; UTF-8 bytes pass through unchanged.
    static void AppendQuoted(std::string& out, const char* text);
};
