// The offline journal: one TransactionEvent from the producer's call until it
// is durable in offline.db, and a replay of 1,000 kept events through a link
// seam that answers at once (the library's own share of a replay).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "LinkSeam.h"
#include "Ocpp20/TransactionMsgQueue.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/OfflineCache.h"

namespace {

using benchlink::DropSend;
using benchlink::EchoRequest;
bool Up() { return true; }

// On disk, not tmpfs: the figure must include the fsync.
std::string FreshStore() {
    char folder[] = "/var/tmp/ocpp-offline-bench-XXXXXX";
    if (mkdtemp(folder) == nullptr) return "";
    return std::string(folder) + "/offline.db";
}

void RemoveStore(const std::string& path) {
    for (const char* suffix : {"", "-wal", "-shm"}) unlink((path + suffix).c_str());
    rmdir(path.substr(0, path.rfind('/')).c_str());
}

const std::string kEvent =
    "[2,\"bench-1\",\"TransactionEvent\",\n{\"eventType\":\"Updated\",\"timestamp\":\"2030-01-01T00:00:00.000Z\","
    "\"triggerReason\":\"MeterValuePeriodic\",\"seqNo\":1,\"offline\":true,\"transactionInfo\":{\"transactionId\":"
    "\"0f5e3b2a-1111-2222-3333-444455556666\"},\"meterValue\":[{\"timestamp\":\"2030-01-01T00:00:00.000Z\","
    "\"sampledValue\":[{\"value\":1234.5,\"measurand\":\"Energy.Active.Import.Register\"}]}]}]";

OutboundMessage EventMessage() {
    OutboundMessage message;
    message.kind = OUTBOUNDKIND_TRANSACTIONEVENT;
    message.frame = kEvent.c_str();
    message.len = static_cast<int>(kEvent.size());
    message.subtype = OFFLINEMSGSUBTYPE_UPDATED;
    message.seqNo = 1;
    message.transactionId = "0f5e3b2a-1111-2222-3333-444455556666";
    return message;
}

void BM_OfflineStoreTransactionEvent(benchmark::State& state) {
    const std::string path = FreshStore();
    COfflineCache* cache = COfflineCache::GetInstance();
    if (cache->SetStoreFile(path) != 1) {
        state.SkipWithError("no store");
        return;
    }
    COutboundSender::SetOfflineStore(&COfflineCache::Store);
    g_eOcppProtocol = OCPPPROTOCOL_201;
    g_eSdkStatus = SDKSTATUS_DISCONNECTED;
    const OutboundMessage message = EventMessage();
    for (auto _ : state) benchmark::DoNotOptimize(COutboundSender::Send(message).result);
    COutboundSender::SetOfflineStore(nullptr);
    COfflineCache::Release();
    RemoveStore(path);
    g_eSdkStatus = SDKSTATUS_NONE;
}
BENCHMARK(BM_OfflineStoreTransactionEvent)->Unit(benchmark::kMillisecond)->Iterations(500);

void BM_Replay1000Events(benchmark::State& state) {
    const std::string path = FreshStore();
    COfflineCache* cache = COfflineCache::GetInstance();
    if (cache->SetStoreFile(path) != 1) {
        state.SkipWithError("no store");
        return;
    }
    g_eOcppProtocol = OCPPPROTOCOL_201;
    COcppSendSeam::Set(&DropSend, &EchoRequest);
    COcppSendSeam::SetLinkUp(&Up);
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < 1000; ++i) cache->AddTransactionMessage(OFFLINEMSGSUBTYPE_UPDATED, i, kEvent, "tx");
        g_eSdkStatus = SDKSTATUS_CONNECTED;
        state.ResumeTiming();
        cache->SubmitOfflineMessage();
        cache->JoinReplay();
        if (cache->Count() != 0) state.SkipWithError("rows left");
    }
    COcppSendSeam::Reset();
    COfflineCache::Release();
    RemoveStore(path);
    g_eSdkStatus = SDKSTATUS_NONE;
}
BENCHMARK(BM_Replay1000Events)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
