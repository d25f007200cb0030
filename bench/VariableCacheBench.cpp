// Device-model cost on a full store: a GetVariables request of 4 entries and
// one SetVariables change with its file rewrite, against 3000 host records.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Ocpp20/Process/VariableCache.h"
#include "Util/Tools.h"

namespace {

struct Store {
    Store() {
        char tmpl[] = "/tmp/ocppbench-XXXXXX";
        dir = mkdtemp(tmpl);
        path = dir + "/variablecache.json";
        CVariableCache* cache = CVariableCache::GetInstance();
        cache->InitDefault();
        cache->SetStoreFile(path);
        std::vector<VariableDataItem20> host;
        for (int i = 0; i < 3000 - 63; ++i) {
            VariableDataItem20 v = VariableDataItem20::Make("HostCtrlr", ("V" + std::to_string(i)).c_str());
            CTools::CopyField(v.attributeValue, std::to_string(i));
            host.push_back(v);
        }
        cache->SetVariables(host);
    }
    ~Store() {
        CVariableCache::Release();
        unlink(path.c_str());
        rmdir(dir.c_str());
    }
    std::string dir;
    std::string path;
};

Store& TheStore() {
    static Store store;
    return store;
}

void BM_GetVariablesFourEntries(benchmark::State& state) {
    TheStore();
    CVariableCache* cache = CVariableCache::GetInstance();
    const std::vector<VariableDataItem20> queries = {
        VariableDataItem20::Make("OCPPCommCtrlr", "OfflineThreshold"),
        VariableDataItem20::Make("HostCtrlr", "V2900"),
        VariableDataItem20::Make("ClockCtrlr", "DateTime"),
        VariableDataItem20::Make("DeviceDataCtrlr", "ItemsPerMessage", "GetVariables"),
    };
    for (auto _ : state) benchmark::DoNotOptimize(cache->AnswerGetVariables(queries));
}
BENCHMARK(BM_GetVariablesFourEntries);

void BM_SetVariableWithRewrite(benchmark::State& state) {
    TheStore();
    CVariableCache* cache = CVariableCache::GetInstance();
    int n = 0;
    for (auto _ : state) {
        VariableDataItem20 v = VariableDataItem20::Make("OCPPCommCtrlr", "OfflineThreshold");
        CTools::CopyField(v.attributeValue, std::to_string(10 + (n++ % 50)));
        benchmark::DoNotOptimize(cache->SetVariables({v}));
    }
}
BENCHMARK(BM_SetVariableWithRewrite)->Unit(benchmark::kMillisecond);

}  // namespace

