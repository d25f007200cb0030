// The CSMS's requests on the authorization cache and the local list: the
// library answers them from its own store.
#include <vector>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "OcppProtocol/OutboundSender.h"
#include "Util/Tools.h"

namespace {

// SendLocalListStatusEnumType
enum { SENDLOCALLIST_ACCEPTED = 0, SENDLOCALLIST_FAILED = 1, SENDLOCALLIST_VERSIONMISMATCH = 2 };
// UpdateEnumType
enum { UPDATE_DIFFERENTIAL = 0, UPDATE_FULL = 1 };

void Answer(const std::string& frame) {
    if (!frame.empty()) COutboundSender::Send(OUTBOUNDKIND_ANSWER, frame);
}

// Failed, VersionMismatch, or Accepted with the items to apply.
int CheckLocalList(const models::sendLocalListRequest_t& request, std::vector<AuthorizeItem>& items, bool& full) {
    CVariableCache* variables = CVariableCache::GetInstance();
    if (!variables->LocalAuthListCtrlrEnabled()) {
        LOG_INFO("LocalAuthList not enabled");
        return SENDLOCALLIST_FAILED;
    }
    if (!variables->LocalAuthListCtrlrAvailable()) {
        LOG_INFO("LocalAuthList not available");
        return SENDLOCALLIST_FAILED;
    }
    full = models::GetUpdateInInt(request.updateType) == UPDATE_FULL;
    const int itemsPerMessage = variables->LocalAuthListCtrlrItemsPerMessage();
    const int count = static_cast<int>(request.localAuthorizationList.size());
    if (itemsPerMessage > 0 && count > itemsPerMessage) {
        LOG_INFO("Count of localAuthorizationList over LocalAuthListCtrlrItemsPerMessage(%d)", itemsPerMessage);
        return SENDLOCALLIST_FAILED;
    }
    CAuthorizeCache* store = CAuthorizeCache::GetInstance();
    // A Full update replaces the list whatever its version.
    const int current = store->GetLocalListVersion();
    if (!full && current >= request.versionNumber) {
        LOG_INFO("Current LocalListVersion:%d", current);
        return SENDLOCALLIST_VERSIONMISMATCH;
    }
    int removals = 0;
    items.reserve(request.localAuthorizationList.size());
    for (const models::authorizationData_t& entry : request.localAuthorizationList) {
        AuthorizeItem item{};
        CTools::CopyField(item.token, entry.idToken.idToken);
        item.tokenType = models::GetIdTokenInInt(entry.idToken.type);
        if (entry.idTokenInfo_present) {
            const models::idTokenInfo_t& info = entry.idTokenInfo;
            item.status = models::GetAuthorizationStatusInInt(info.status);
            if (info.groupIdToken_present) CTools::CopyField(item.groupToken, info.groupIdToken.idToken);
            const int64_t expiry = info.cacheExpiryDateTime.empty() ? 0 : CTools::GetTimeByString(info.cacheExpiryDateTime);
            item.expiryTime = static_cast<int32_t>(expiry > 0 ? expiry : 0);
        } else {
            item.status = AUTHORIZESTATUS_NONE;
            ++removals;
        }
        items.push_back(item);
    }
    float limit = 0;
    if (CVariableCharacteristics::GetInstance()->GetVariableMaxLimit(limit, "LocalAuthListCtrlr", "Entries", "", "",
                                                                     0, 0) == 1) {
        // The count includes the version row.
        const int entries = store->GetCurLocalListEntries();
        const int stored = (entries > 1 ? entries : 1) - 1;
        const int required = (count - removals) + (full ? 0 : stored);
        if (static_cast<int>(limit) < required) {
            LOG_INFO("LocalAuthListEntries(%d) enter maxlimit(%d)", required, static_cast<int>(limit));
            return SENDLOCALLIST_FAILED;
        }
    }
    return SENDLOCALLIST_ACCEPTED;
}

}  // namespace

void Ocpp20Protocol_OnSendLocalListRequest(const char* messageId, const models::sendLocalListRequest_t& request) {
    std::vector<AuthorizeItem> items;
    bool full = false;
    const int status = CheckLocalList(request, items, full);
    // The CSMS hears Accepted before the list is written; a storage failure is only logged.
    Answer(COcppProtocol20::SendLocalList(messageId, status));
    if (status != SENDLOCALLIST_ACCEPTED) return;
    if (CAuthorizeCache::GetInstance()->UpdateLocalList(request.versionNumber, items, full ? 1 : 0) != 1) {
        LOG_ERROR("SendLocalList version %d not stored", request.versionNumber);
    }
}

void Ocpp20Protocol_OnGetLocalListVersionRequest(const char* messageId, const models::getLocalListVersionRequest_t&) {
    const int version =
        CVariableCache::GetInstance()->LocalAuthListCtrlrEnabled() ? CAuthorizeCache::GetInstance()->GetLocalListVersion() : 0;
    Answer(COcppProtocol20::GetLocalListVersion(messageId, version));
}

void Ocpp20Protocol_OnClearCacheRequest(const char* messageId, const models::clearCacheRequest_t&) {
    // Emptied first, even when the cache is disabled and the answer is Rejected.
    const int cleared = CAuthorizeCache::GetInstance()->ClearAuthorizeCache();
    const int status = cleared == 1 && CVariableCache::GetInstance()->AuthCacheCtrlrEnabled() ? 0 : 1;
    Answer(COcppProtocol20::ClearCache(messageId, status));
}
