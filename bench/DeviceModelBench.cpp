// CSMS device-model requests end to end: frame in, answer frame out, against a
// store of 3000 records; the link is a seam that drops every frame.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Util/Tools.h"

namespace {

int DropSend(const char*, int) { return 1; }
int DropRequest(const char*, const char*, int, char*, int, int*) { return 0; }

// A store of 3000 records in a folder of its own, removed afterwards.
class FullStore {
public:
    FullStore() {
        char tmpl[] = "/tmp/ocppdmbench-XXXXXX";
        m_dir = mkdtemp(tmpl);
        CVariableCache* cache = CVariableCache::GetInstance();
        cache->InitDefault();
        cache->SetStoreFile(m_dir + "/variablecache.json");
        CVariableCharacteristics::GetInstance()->SetStoreFile(m_dir + "/VariableCharacteristicscache.json");
        std::vector<VariableDataItem20> host;
        for (int i = 0; i < CVariableCache::kMaxRecords - static_cast<int>(cache->RegisterSize()); ++i) {
            VariableDataItem20 v = VariableDataItem20::Make("HostCtrlr", ("V" + std::to_string(i)).c_str());
            CTools::CopyField(v.attributeValue, std::to_string(i));
            host.push_back(v);
        }
        cache->SetVariables(host);
        COcppSendSeam::Set(&DropSend, &DropRequest);
    }
    ~FullStore() {
        COcppSendSeam::Reset();
        Ocpp20Protocol_ClearPendingSetVariables();
        CVariableCache::Release();
        CVariableCharacteristics::Release();
        unlink((m_dir + "/variablecache.json").c_str());
        unlink((m_dir + "/VariableCharacteristicscache.json").c_str());
        rmdir(m_dir.c_str());
    }

private:
    std::string m_dir;
};

void Deliver(const std::string& frame) { COcppProtocol20::OnMessage(frame.data(), static_cast<int>(frame.size())); }

void BM_GetVariablesFrameToAnswer(benchmark::State& state) {
    FullStore store;
    const std::string frame =
        R"([2,"b1","GetVariables",{"getVariableData":[)"
        R"({"component":{"name":"OCPPCommCtrlr"},"variable":{"name":"OfflineThreshold"}},)"
        R"({"component":{"name":"HostCtrlr"},"variable":{"name":"V2900"}},)"
        R"({"component":{"name":"ClockCtrlr"},"variable":{"name":"DateTime"}},)"
        R"({"component":{"name":"DeviceDataCtrlr"},"variable":{"name":"ItemsPerMessage","instance":"GetVariables"}}]}])";
    for (auto _ : state) Deliver(frame);
}
BENCHMARK(BM_GetVariablesFrameToAnswer)->Unit(benchmark::kMicrosecond);

// One host-owned value changed: the request, the host's answer, the CALLRESULT and the store rewrite.
void BM_SetVariablesOneChangeWithRewrite(benchmark::State& state) {
    FullStore store;
    int n = 0;
    for (auto _ : state) {
        const std::string value = std::to_string(++n);
        Deliver(R"([2,"b2","SetVariables",{"setVariableData":[{"component":{"name":"HostCtrlr"},)"
                R"("variable":{"name":"V17"},"attributeValue":")" +
                value + R"("}]}])");
        VariableDataItem answer;
        memset(&answer, 0, sizeof answer);
        CTools::CopyField(answer.componentName, "HostCtrlr");
        CTools::CopyField(answer.variableName, "V17");
        CTools::CopyField(answer.attributeValue, value);
        OcppProtocol_SetVariables("b2", 1, &answer);
    }
}
BENCHMARK(BM_SetVariablesOneChangeWithRewrite)->Unit(benchmark::kMicrosecond);

}  // namespace
