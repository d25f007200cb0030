// What one calculation pays to read its candidates: 200 stored profiles on a
// real database, one EVSE with a running transaction.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <OcppProtocol.h>

#include "SmartCharging/ChargingProfile20/ProfileManager.h"

namespace {

std::string TransactionOnEvse1(int evseId) { return evseId == 1 ? "TX-BENCH" : std::string(); }
int OneTransaction() { return 1; }
// The statement trace is the host's to keep; here it would measure the terminal.
void QuietLog(LOGLEVEL, const char*, const char*, int, const char*) {}

std::string Profile(int id, const char* purpose, const char* transactionId) {
    std::string json = "{\"id\":" + std::to_string(id) + ",\"stackLevel\":" + std::to_string(id % 10) +
                       ",\"chargingProfilePurpose\":\"" + purpose + "\",\"chargingProfileKind\":\"Absolute\"";
    if (transactionId[0] != '\0') json += std::string(",\"transactionId\":\"") + transactionId + "\"";
    return json +
           ",\"chargingSchedule\":[{\"id\":1,\"startSchedule\":\"2026-01-01T00:00:00Z\",\"chargingRateUnit\":\"W\","
           "\"chargingSchedulePeriod\":[{\"startPeriod\":0,\"limit\":11000},{\"startPeriod\":3600,\"limit\":7400},"
           "{\"startPeriod\":7200,\"limit\":3700}]}]}";
}

void BM_ProfileItemListOf200(benchmark::State& state) {
    char dir[] = "/tmp/ocppbench-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        state.SkipWithError("no temporary folder");
        return;
    }
    const std::string file = std::string(dir) + "/chargingprofile20.db";
    OcppProtocol_SetLog(&QuietLog);
    CProfileManager20* store = CProfileManager20::GetInstance();
    store->SetTransactionLookup(&TransactionOnEvse1, &OneTransaction);
    store->SetStoreFile(file);
    // 4 EVSEs and the station; every tenth profile belongs to the running transaction.
    for (int id = 1; id <= 200; ++id) {
        const int evse = id % 5;
        const bool tx = evse == 1 && id % 10 == 1;
        const char* purpose = tx ? "TxProfile" : evse == 0 ? "ChargingStationMaxProfile" : "TxDefaultProfile";
        store->AddChargingProfile(evse, Profile(id, purpose, tx ? "TX-BENCH" : "").c_str());
    }
    size_t items = 0;
    for (auto _ : state) {
        items = store->GetProfileItemList(1).size();
        benchmark::DoNotOptimize(items);
    }
    state.counters["profiles"] = store->GetLocalChargingProfileCount();
    state.counters["candidates"] = static_cast<double>(items);
    store->WaitEntriesWriters(5000);
    CProfileManager20::Release();
    unlink(file.c_str());
    rmdir(dir);
    OcppProtocol_SetLog(nullptr);
}
BENCHMARK(BM_ProfileItemListOf200)->Unit(benchmark::kMicrosecond);

}  // namespace
