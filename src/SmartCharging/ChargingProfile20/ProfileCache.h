#pragma once
#include "SmartCharging/PendingProfileCache.h"
#include "Util/Singleton.h"

typedef ProfileCacheItem ProfileCacheItem20;

// Pending TxProfiles of the OCPP 2.0.1 store.
class CProfileCache20 : public CPendingProfileCache, public CSingleton<CProfileCache20> {
private:
    friend class CSingleton<CProfileCache20>;
    CProfileCache20() = default;
    ~CProfileCache20() override = default;
    void ResetInPlace() { ResetCache(); }
    int StoreSelected(unsigned evseId, const char* json, const char* scheduleIds) override;
};
