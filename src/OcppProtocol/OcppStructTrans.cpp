#include "OcppProtocol/OcppStructTrans.h"

#include <cmath>
#include <cstring>
#include <string>

#include "OcppProtocol/OcppEnumTrans.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

const char kEndRegister[] = "Energy.Active.Import.Register";

template <size_t N>
std::string Field(const char (&text)[N]) {
    return std::string(text, strnlen(text, N));
}

// The register reading of one meterValue; -1 when it has none.
double RegisterOf(const Json::Value& meterValue) {
    double found = -1.0;
    if (!meterValue.isObject() || !meterValue["sampledValue"].isArray()) return found;
    const Json::Value& sampled = meterValue["sampledValue"];
    for (const Json::Value& value : sampled) {
        if (!value.isObject() || !value["value"].isNumeric()) continue;
        const Json::Value& measurand = value["measurand"];
        if (!measurand.isNull() && (!measurand.isString() || measurand.asString() != kEndRegister)) continue;
        const Json::Value& unit = value["unitOfMeasure"];
        const int multiplier = unit.isObject() && unit["multiplier"].isInt() ? unit["multiplier"].asInt() : 0;
        found = value["value"].asDouble() * std::pow(10.0, multiplier);
    }
    return found;
}

}  // namespace

VariableDataItem20 OcppStructTrans_VariableDataItem20(const VariableDataItem& item) {
    return VariableDataItem20::FromPublic(item);
}

VariableDataItem OcppStructTrans_VariableDataItem(const VariableDataItem20& item) {
    VariableDataItem out;
    std::memset(&out, 0, sizeof out);
    item.ToPublic(out);
    return out;
}

namespace {
// The host's token record and the store's share their fields by name.
template <class To, class From>
To CopyTokenItem(const From& item) {
    To out;
    std::memset(&out, 0, sizeof out);
    CTools::CopyField(out.token, Field(item.token));
    out.tokenType = item.tokenType;
    out.status = item.status;
    out.expiryTime = item.expiryTime;
    CTools::CopyField(out.groupToken, Field(item.groupToken));
    return out;
}
}  // namespace

TokenWhiteItem OcppStructTrans_TokenItem(const AuthorizeItem& item) { return CopyTokenItem<TokenWhiteItem>(item); }

AuthorizeItem OcppStructTrans_TokenItem20(const TokenWhiteItem& item) { return CopyTokenItem<AuthorizeItem>(item); }

Json::Value OcppStructTrans_TokenItem21(const TokenWhiteItem& item) {
    Json::Value out(Json::objectValue);
    out["idToken"] = Field(item.token);
    const std::string type = models::GetIdTokenInString(item.tokenType);
    if (!type.empty()) out["type"] = type;
    return out;
}

double OcppStructTrans_GetEndMeter(const char* meter) {
    Json::Value root;
    if (meter == nullptr || !CTools::ParseJson(meter, std::strlen(meter), root)) return -1.0;
    if (root.isObject()) return RegisterOf(root);
    double found = -1.0;
    if (!root.isArray()) return found;
    for (const Json::Value& meterValue : root) {
        const double reading = RegisterOf(meterValue);
        if (reading >= 0) found = reading;
    }
    return found;
}

int32_t OcppStructTrans_TransactionEventParam21(const TransactionInfoItem* items, int count, int32_t param) {
    return OcppStructTrans_TransactionEventParam20(items, count, param);
}
