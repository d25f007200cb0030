// The host's direct entries to the authorization lists.
#include <OcppProtocol.h>

#include <string>
#include <vector>

#include "Ocpp20/Process/AdditionalInfoStore.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppStructTrans.h"
#include "Process/PlugInManager.h"
#include "Util/Tools.h"

namespace {
const char kV2gPlugIn[] = "PlugInV2gCustom";
const int32_t kV2gWhiteListKind = 5;
const int kV2gWhiteListMax = 1000;

// The 1.6 engine keeps its own lists; these entries serve 2.0.1.
bool Has20Store() { return OcppProtocol_GetOcppProtocol() != OCPPPROTOCOL_16; }
}  // namespace

int OcppProtocol_GetTokenWhiteItems(TokenWhiteItem* items, int capacity) {
    if (!Has20Store()) return -1;
    try {
        const std::vector<AuthorizeItem> stored = CAuthorizeCache::GetInstance()->GetTokenWhiteItems();
        for (size_t i = 0; items != nullptr && i < stored.size() && static_cast<int>(i) < capacity; ++i)
            items[i] = OcppStructTrans_TokenItem(stored[i]);
        return static_cast<int>(stored.size());
    } catch (const std::exception& e) {
        LOG_ERROR("GetTokenWhiteItems failed: %s", e.what());
        return -1;
    }
}

int OcppProtocol_SetTokenWhiteItems(const TokenWhiteItem* items, int count) {
    if (!Has20Store() || count < 0 || (count > 0 && items == nullptr)) return 0;
    try {
        std::vector<AuthorizeItem> list;
        list.reserve(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) list.push_back(OcppStructTrans_TokenItem20(items[i]));
        return CAuthorizeCache::GetInstance()->SetTokenWhiteItems(list);
    } catch (const std::exception& e) {
        LOG_ERROR("SetTokenWhiteItems failed: %s", e.what());
        return 0;
    }
}

int OcppProtocol_SetTokenAdditionalInfoItems(const char* token, const TokenAdditionalInfoItem* items, int count) {
    const OCPPPROTOCOL protocol = OcppProtocol_GetOcppProtocol();
    if (protocol != OCPPPROTOCOL_201 && protocol != OCPPPROTOCOL_21) return 0;
    if (token == nullptr || count < 0 || (count > 0 && items == nullptr)) return 0;
    try {
        return CAdditionalInfoStore::GetInstance()->SetItems(
            token, std::vector<TokenAdditionalInfoItem>(items, items + count));
    } catch (const std::exception& e) {
        LOG_ERROR("SetTokenAdditionalInfoItems failed: %s", e.what());
        return 0;
    }
}

int OcppProtocol_SetV2GCustomWhiteList(const char* list, int length) {
    if (OcppProtocol_GetOcppProtocol() != OCPPPROTOCOL_21 || list == nullptr || length < 0) return 0;
    try {
        CPlugInManager* plugins = CPlugInManager::GetInstance();
        if (plugins->IsSupportPlugIn(kV2gPlugIn) != 1 || plugins->UsePlugIn(kV2gPlugIn) != 1) return 0;
        const int used = static_cast<int>(strnlen(list, static_cast<size_t>(length < kV2gWhiteListMax ? length : kV2gWhiteListMax)));
        // Kind, length, then the text.
        std::vector<char> message(8 + static_cast<size_t>(used) + 1, 0);
        const int32_t head[2] = {kV2gWhiteListKind, used};
        std::memcpy(message.data(), head, sizeof head);
        std::memcpy(message.data() + sizeof head, list, static_cast<size_t>(used));
        char answer[64] = {};
        int answerLen = sizeof answer;
        return plugins->SendMsgToPlugIn(kV2gPlugIn, message.data(), static_cast<int>(message.size()), answer,
                                        &answerLen);
    } catch (const std::exception& e) {
        LOG_ERROR("SetV2GCustomWhiteList failed: %s", e.what());
        return 0;
    }
}
