#pragma once
#include "SmartCharging/PendingProfileCache.h"
#include "Util/Singleton.h"

typedef ProfileCacheItem ProfileCacheItem21;

// Pending TxProfiles of the OCPP 2.1 store.
class CProfileCache21 : public CPendingProfileCache, public CSingleton<CProfileCache21> {
private:
    friend class CSingleton<CProfileCache21>;
    CProfileCache21() = default;
    ~CProfileCache21() override = default;
    void ResetInPlace() { ResetCache(); }
    int StoreSelected(unsigned evseId, const char* json, const char* scheduleIds) override;
};
