#pragma once
#include "SmartCharging/ProfileStore.h"
#include "Util/Singleton.h"

typedef ProfileItem ProfileItem20;

// The OCPP 2.0.1 charging profile store ("chargingprofile20.db"). The composite
// schedule of this generation reads its candidates here.
class CProfileManager20 : public CProfileStore, public CSingleton<CProfileManager20> {
private:
    friend class CSingleton<CProfileManager20>;
    CProfileManager20();
    ~CProfileManager20() override = default;
    void ResetInPlace() { ResetStore(); }
    void CompleteRow(ProfileRow&, const Json::Value&) override {}
};
