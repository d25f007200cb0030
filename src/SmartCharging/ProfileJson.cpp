#include "SmartCharging/ProfileJson.h"

#include <json/json.h>

int CProfileJson::Int(const Json::Value& object, const char* key, int absent) {
    if (!object.isObject()) return absent;
    const Json::Value& v = object[key];
    return v.isInt() ? v.asInt() : absent;
}

unsigned CProfileJson::Unsigned(const Json::Value& object, const char* key) {
    if (!object.isObject()) return 0;
    const Json::Value& v = object[key];
    return v.isUInt() ? v.asUInt() : 0;
}

bool CProfileJson::Bool(const Json::Value& object, const char* key) {
    if (!object.isObject()) return false;
    const Json::Value& v = object[key];
    return v.isBool() && v.asBool();
}

std::string CProfileJson::Text(const Json::Value& object, const char* key) {
    if (!object.isObject()) return std::string();
    const Json::Value& v = object[key];
    return v.isString() ? v.asString() : std::string();
}

std::string CProfileJson::Compact(const Json::Value& value) {
    // Built once: building the settings costs more than writing a short profile.
    static const Json::StreamWriterBuilder* settings = [] {
        Json::StreamWriterBuilder* builder = new Json::StreamWriterBuilder();
        (*builder)["indentation"] = "";
        return builder;
    }();
    return Json::writeString(*settings, value);
}

std::string CProfileJson::HostSource(const Json::Value& profile) {
    const std::string source = Text(profile, "chargingLimitSource");
    return source.empty() ? "Other" : source;
}
