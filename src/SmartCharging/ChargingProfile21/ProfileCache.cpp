#include "SmartCharging/ChargingProfile21/ProfileCache.h"

#include "SmartCharging/ChargingProfile21/ProfileManager.h"

int CProfileCache21::StoreSelected(unsigned evseId, const char* json, const char* scheduleIds) {
    return CProfileManager21::GetInstance()->AddChargingProfile(static_cast<int>(evseId), json, scheduleIds, "CSO");
}
