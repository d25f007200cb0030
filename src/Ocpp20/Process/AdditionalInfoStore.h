#pragma once
#include <OcppProtocol.h>
#include <pthread.h>

#include <map>
#include <string>
#include <vector>

#include "Util/Singleton.h"

// The additional identifiers the host gives per token; kept in memory for
// the current connection.
class CAdditionalInfoStore : public CSingleton<CAdditionalInfoStore> {
public:
    int SetItems(const std::string& token, const std::vector<TokenAdditionalInfoItem>& items);
    std::vector<TokenAdditionalInfoItem> GetItems(const std::string& token);

private:
    friend class CSingleton<CAdditionalInfoStore>;
    CAdditionalInfoStore();
    ~CAdditionalInfoStore();
    CAdditionalInfoStore(const CAdditionalInfoStore&) = delete;
    CAdditionalInfoStore& operator=(const CAdditionalInfoStore&) = delete;
    void ResetInPlace();

    pthread_mutex_t m_mutex;
    std::map<std::string, std::vector<TokenAdditionalInfoItem>> m_items;
};
