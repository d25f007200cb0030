// A TransactionEvent Updated with ten meter items, from the sender's call to
// the frame handed to the link and its answer read back. The link answers at
// once, so the figure is the library's own share.
#include <benchmark/benchmark.h>

#include <OcppTransaction.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "LinkSeam.h"
#include "Ocpp20/Ocpp20Transaction.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"

namespace {

using benchlink::DropSend;
using benchlink::EchoRequest;

void BM_TransactionUpdateTenMeterItems(benchmark::State& state) {
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    const SDKSTATUS status = g_eSdkStatus.load();
    g_eOcppProtocol = OCPPPROTOCOL_201;
    g_eSdkStatus = SDKSTATUS_OK;
    COcppSendSeam::Set(&DropSend, &EchoRequest);

    std::vector<MeterItem> items(10);
    for (size_t i = 0; i < items.size(); ++i) {
        items[i] = MeterItem{};
        items[i].timestamp = 1700000000u + static_cast<uint32_t>(i % 2);
        items[i].value = 1000.0 + static_cast<double>(i);
        items[i].measurand = static_cast<uint8_t>(i);
        items[i].phase = static_cast<uint8_t>(i % 3 + 1);
    }
    TransactionEventArgs args;
    args.evseId = 1;
    args.connectorId = 1;
    args.seqNo = 1;
    args.idToken = "CARD";
    args.tokenType = 2;
    args.reason = TRANSACTIONREASON_METERVALUEPERIODIC;
    args.chargingState = TRANSACTIONCHARGINGSTATE_CHARGING;
    args.transactionId = "5e0b9d1c-3f7a-4a55-9c1e-2b4f6d8e0a11";
    args.meter = items.data();
    args.meterCount = static_cast<int>(items.size());

    std::vector<double> micros;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        int32_t param = 0;
        benchmark::DoNotOptimize(Ocpp20ProtocolPrivate_TransactionUpate(args, &param));
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(micros.begin(), micros.end());
    if (!micros.empty()) {
        state.counters["median_us"] = micros[micros.size() / 2];
        state.counters["p99_us"] = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
    }
    COcppSendSeam::Reset();
    g_eSdkStatus = status;
    g_eOcppProtocol = protocol;
}
BENCHMARK(BM_TransactionUpdateTenMeterItems)->Unit(benchmark::kMicrosecond);

}  // namespace
