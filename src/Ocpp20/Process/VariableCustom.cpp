#include "Ocpp20/Process/VariableCustom.h"

#include <cstring>
#include <memory>
#include <mutex>

#include <OcppProtocol.h>
#include <json/json.h>

#include <cstdint>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

namespace {

const char* const kTokenTypes[] = {"Central", "eMAID", "ISO14443", "ISO15693",
                                   "KeyCode", "Local", "MacAddress", "NoAuthorization"};
const char* const kTokenStatuses[] = {"Accepted", "Blocked",    "ConcurrentTx",       "Expired",
                                      "Invalid",  "NoCredit",   "NotAllowedTypeEVSE", "NotAtThisLocation",
                                      "NotAtThisTime", "Unknown"};

// The value is the host's token list as a JSON array.
std::string ReadTokenWhiteList() {
    const int count = OcppProtocol_GetTokenWhiteItems(nullptr, 0);
    std::vector<TokenWhiteItem> items(count > 0 ? static_cast<size_t>(count) : 0);
    const int read = count > 0 ? OcppProtocol_GetTokenWhiteItems(items.data(), count) : 0;
    Json::Value list(Json::arrayValue);
    for (int i = 0; i < read && i < count; ++i) {
        const TokenWhiteItem& item = items[static_cast<size_t>(i)];
        Json::Value element(Json::objectValue);
        element["idToken"] = std::string(item.token, strnlen(item.token, sizeof item.token));
        element["type"] = CVariableCustom::GetTokenTypeInString(item.tokenType);
        element["status"] = CVariableCustom::GetTokenStatusInString(item.status);
        const std::string group(item.groupToken, strnlen(item.groupToken, sizeof item.groupToken));
        if (!group.empty()) element["groupIdToken"] = group;
        if (item.expiryTime != 0) element["ExpiryDateTime"] = CTools::GetLocalTime(item.expiryTime);
        list.append(element);
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, list);
}

// Elements whose type or status is not in its list cannot be stored and are left out.
void ReplaceTokenWhiteList(const std::vector<CustomTokenItem>& items) {
    std::vector<TokenWhiteItem> list;
    list.reserve(items.size());
    for (const CustomTokenItem& in : items) {
        if (in.type < 0 || in.status < 0) continue;
        TokenWhiteItem out;
        std::memset(&out, 0, sizeof out);
        CTools::CopyField(out.token, in.idToken);
        out.tokenType = in.type;
        out.status = in.status;
        out.expiryTime = in.expiryDateTime > 0 && in.expiryDateTime <= INT32_MAX ? static_cast<int32_t>(in.expiryDateTime) : 0;
        CTools::CopyField(out.groupToken, in.groupIdToken);
        list.push_back(out);
    }
    OcppProtocol_SetTokenWhiteItems(list.data(), static_cast<int>(list.size()));
}

bool IsListContent(const VariableDataItem20& v) {
    return strcmp(v.componentName, "LocalAuthListCtrlr") == 0 && strcmp(v.variableName, "ListContent") == 0;
}

std::string TextOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    return v.isString() ? v.asString() : std::string();
}

}  // namespace

CVariableCustom::CVariableCustom() {
    pthread_mutex_init(&m_mutex, nullptr);
    Init();
}

CVariableCustom::~CVariableCustom() { pthread_mutex_destroy(&m_mutex); }

void CVariableCustom::Init() {
    OCPP_SECTION(&m_mutex);
    m_custom.clear();
    m_custom.push_back(VariableDataItem20::Make("LocalAuthListCtrlr", "ListContent"));
}

bool CVariableCustom::IsCustomVariable(const VariableDataItem20& variable) {
    OCPP_SECTION(&m_mutex);
    for (const VariableDataItem20& c : m_custom)
        if (c.IsSameVariable(variable, 1)) return true;
    return false;
}

std::string CVariableCustom::GetCustomVariable(const VariableDataItem20& variable) {
    if (IsListContent(variable)) return ReadTokenWhiteList();
    return std::string();
}

int CVariableCustom::SetCustomVariable(const VariableDataItem20& variable) {
    if (!IsCustomVariable(variable) || !IsListContent(variable)) return 0;
    std::vector<CustomTokenItem> items;
    if (!ParseTokenList(variable.attributeValue, items)) return 0;
    ReplaceTokenWhiteList(items);
    return 1;
}

bool CVariableCustom::ParseTokenList(const std::string& text, std::vector<CustomTokenItem>& items) {
    items.clear();
    Json::Value root;
    if (!CTools::ParseJson(text, root) || !root.isArray()) return false;
    for (const Json::Value& element : root) {
        if (!element.isObject()) continue;
        CustomTokenItem item{};
        CTools::CopyField(item.idToken, TextOf(element, "idToken"));
        item.type = GetTokenTypeInInt(TextOf(element, "type"));
        item.status = GetTokenStatusInInt(TextOf(element, "status"));
        CTools::CopyField(item.groupIdToken, TextOf(element, "groupIdToken"));
        const std::string expiry = TextOf(element, "ExpiryDateTime");
        item.expiryDateTime = expiry.empty() ? -1 : CTools::GetTimeByString(expiry);
        items.push_back(item);
    }
    return true;
}

int CVariableCustom::GetTokenTypeInInt(const std::string& name) {
    for (size_t i = 0; i < sizeof kTokenTypes / sizeof kTokenTypes[0]; ++i)
        if (name == kTokenTypes[i]) return static_cast<int>(i);
    return -1;
}

std::string CVariableCustom::GetTokenTypeInString(int type) {
    if (type < 0 || type >= static_cast<int>(sizeof kTokenTypes / sizeof kTokenTypes[0])) return std::string();
    return kTokenTypes[type];
}

int CVariableCustom::GetTokenStatusInInt(const std::string& name) {
    for (size_t i = 0; i < sizeof kTokenStatuses / sizeof kTokenStatuses[0]; ++i)
        if (name == kTokenStatuses[i]) return static_cast<int>(i);
    return -1;
}

std::string CVariableCustom::GetTokenStatusInString(int status) {
    if (status < 0 || status >= static_cast<int>(sizeof kTokenStatuses / sizeof kTokenStatuses[0]))
        return std::string();
    return kTokenStatuses[status];
}
