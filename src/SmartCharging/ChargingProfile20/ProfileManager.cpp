#include "SmartCharging/ChargingProfile20/ProfileManager.h"

namespace {
CProfileStore::StoreShape Shape20() {
    CProfileStore::StoreShape shape;
    shape.storeName = "ChargingProfile20";
    shape.entriesPrefix = "20";
    shape.bindTransactionLog = "==========Update remoteProfile===========";
    shape.validFromColumn = "starttimesec";
    shape.endColumn = "endtimesec";
    shape.startColumn = "starttimesec";
    shape.stationPurposes = "purpose='ChargingStationMaxProfile' or purpose='TxDefaultProfile'";
    shape.tables = {{"chargingprofile",
                     {{"content", "text"},
                      {"endtimesec", "integer DEFAULT 0"},
                      {"evseid", "integer DEFAULT 0"},
                      {"profileid", "integer"},
                      {"purpose", "text"},
                      {"scheduleids", "text"},
                      {"source", "text"},
                      {"stacklevel", "integer"},
                      {"starttimesec", "integer DEFAULT 0"},
                      {"transactionid", "text"}}}};
    return shape;
}
}  // namespace

CProfileManager20::CProfileManager20() : CProfileStore(Shape20()) {}
