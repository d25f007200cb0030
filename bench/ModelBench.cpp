// Reading a TransactionEvent request frame into its record and writing it back:
// the work done for every transaction message the station sends or replays.
#include <benchmark/benchmark.h>

#include <string>

#include "models/Models.h"

namespace {

std::string SampledValue(const char* measurand, const char* phase, double value, const char* unit) {
    return std::string("{\"value\":") + std::to_string(value) + ",\"context\":\"Sample.Periodic\",\"measurand\":\"" +
           measurand + "\",\"phase\":\"" + phase + "\",\"location\":\"Outlet\",\"unitOfMeasure\":{\"unit\":\"" + unit +
           "\",\"multiplier\":0}}";
}

// About 2 KB, shaped like a periodic Updated event of a three-phase charge.
std::string TransactionEventFrame() {
    std::string samples;
    const char* phases[] = {"L1", "L2", "L3"};
    for (int i = 0; i < 3; ++i) {
        if (!samples.empty()) samples += ",";
        samples += SampledValue("Current.Import", phases[i], 15.25 + i, "A") + "," +
                   SampledValue("Voltage", phases[i], 229.7 + i, "V") + "," +
                   SampledValue("Power.Active.Import", phases[i], 3660.0 + i, "W");
    }
    samples += "," + SampledValue("Energy.Active.Import.Register", "L1", 123456.5, "Wh");
    return "[2,\"7d5c2a8e-8f6b-4d1e-9f0a-3b2c1d4e5f60\",\"TransactionEvent\",{\"eventType\":\"Updated\","
           "\"timestamp\":\"2024-05-01T12:34:56.789Z\",\"triggerReason\":\"MeterValuePeriodic\",\"seqNo\":42,"
           "\"offline\":false,\"numberOfPhasesUsed\":3,\"cableMaxCurrent\":32,"
           "\"transactionInfo\":{\"transactionId\":\"c0ffee00-1234-5678-9abc-def012345678\","
           "\"chargingState\":\"Charging\",\"timeSpentCharging\":3600},"
           "\"idToken\":{\"idToken\":\"04A1B2C3D4E5F6\",\"type\":\"ISO14443\"},"
           "\"evse\":{\"id\":1,\"connectorId\":1},"
           "\"meterValue\":[{\"timestamp\":\"2024-05-01T12:34:56.000Z\",\"sampledValue\":[" +
           samples + "]}]}]";
}

void BM_TransactionEventReadAndWrite(benchmark::State& state) {
    const std::string frame = TransactionEventFrame();
    size_t written = 0;
    for (auto _ : state) {
        models::transactionEventRequest_t rec =
            models::TransactionEventRequestFromJsonData(frame.data(), static_cast<unsigned int>(frame.size()));
        std::string out = models::to_string(rec, "", "");
        written = out.size();
        benchmark::DoNotOptimize(out);
    }
    state.counters["frame_bytes"] = static_cast<double>(frame.size());
    state.counters["written_bytes"] = static_cast<double>(written);
}
BENCHMARK(BM_TransactionEventReadAndWrite);

void BM_TransactionEventRead(benchmark::State& state) {
    const std::string frame = TransactionEventFrame();
    for (auto _ : state) {
        models::transactionEventRequest_t rec =
            models::TransactionEventRequestFromJsonData(frame.data(), static_cast<unsigned int>(frame.size()));
        benchmark::DoNotOptimize(rec);
    }
}
BENCHMARK(BM_TransactionEventRead);

}  // namespace

BENCHMARK_MAIN();
