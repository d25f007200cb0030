#pragma once
#include <cstdint>
#include <string>

namespace Json {
class Value;
}

// Reads members of a profile the CSMS or the host sent; a member of the wrong
// type reads as absent instead of throwing.
class CProfileJson {
public:
    static int Int(const Json::Value& object, const char* key, int absent = 0);
    static unsigned Unsigned(const Json::Value& object, const char* key);
    static bool Bool(const Json::Value& object, const char* key);
    static std::string Text(const Json::Value& object, const char* key);
    // One line, no indentation.
    static std::string Compact(const Json::Value& value);
    // The source a host-installed profile is stored under: its chargingLimitSource, else "Other".
    static std::string HostSource(const Json::Value& profile);
};
