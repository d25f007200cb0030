#include "SmartCharging/ChargingProfile20/ProfileCache.h"

#include "SmartCharging/ChargingProfile20/ProfileManager.h"

int CProfileCache20::StoreSelected(unsigned evseId, const char* json, const char* scheduleIds) {
    return CProfileManager20::GetInstance()->AddChargingProfile(static_cast<int>(evseId), json, scheduleIds, "CSO");
}
