#include "Ocpp20/Process/AdditionalInfoStore.h"

#include <cstdio>
#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"

CAdditionalInfoStore::CAdditionalInfoStore() { pthread_mutex_init(&m_mutex, nullptr); }

CAdditionalInfoStore::~CAdditionalInfoStore() { pthread_mutex_destroy(&m_mutex); }

void CAdditionalInfoStore::ResetInPlace() {
    OCPP_SECTION(&m_mutex);
    m_items.clear();
}

int CAdditionalInfoStore::SetItems(const std::string& token, const std::vector<TokenAdditionalInfoItem>& items) {
    std::vector<TokenAdditionalInfoItem> stored;
    stored.reserve(items.size());
    for (const TokenAdditionalInfoItem& item : items) {
        TokenAdditionalInfoItem copy{};
        CTools::CopyField(copy.additionalIdToken, sizeof copy.additionalIdToken, item.additionalIdToken);
        CTools::CopyField(copy.type, sizeof copy.type, item.type);
        stored.push_back(copy);
    }
    {
        OCPP_SECTION(&m_mutex);
        if (stored.empty()) {
            m_items.erase(token);
        } else {
            m_items[token] = stored;
        }
    }
    // Tokens are shown by their hash only, here as in the log.
    printf("Items for token %s:\n", CTools::Hash12(token).c_str());
    for (const TokenAdditionalInfoItem& item : stored)
        printf("  %s %s\n", CTools::Hash12(item.additionalIdToken).c_str(), item.type);
    return 1;
}

std::vector<TokenAdditionalInfoItem> CAdditionalInfoStore::GetItems(const std::string& token) {
    OCPP_SECTION(&m_mutex);
    const auto it = m_items.find(token);
    return it == m_items.end() ? std::vector<TokenAdditionalInfoItem>() : it->second;
}
