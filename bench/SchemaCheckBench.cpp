// The schema check a CSMS request gets before its handler: a GetVariables of
// four entries, already parsed, as the dispatcher holds it.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <string>

#include "Ocpp20/Protocol/SchemaCheck.h"

namespace {

const char kGetVariables[] =
    R"({"getVariableData":[)"
    R"({"component":{"name":"OCPPCommCtrlr"},"variable":{"name":"HeartbeatInterval"},"attributeType":"Actual"},)"
    R"({"component":{"name":"EVSE","evse":{"id":1}},"variable":{"name":"AvailabilityState"}},)"
    R"({"component":{"name":"Connector","evse":{"id":1,"connectorId":1}},"variable":{"name":"ConnectorType"}},)"
    R"({"component":{"name":"SecurityCtrlr"},"variable":{"name":"OrganizationName","instance":"Primary"}}]})";

void BM_SchemaCheckGetVariables4(benchmark::State& state) {
    rapidjson::Document d;
    d.Parse(kGetVariables);
    const models::PayloadValidator check = models::FindPayloadValidator("GetVariables", true);
    for (auto _ : state) {
        bool ok = check(d, nullptr);
        benchmark::DoNotOptimize(ok);
    }
}
BENCHMARK(BM_SchemaCheckGetVariables4);

// Lookup by action name included, as ValidatePayload does it.
void BM_SchemaCheckGetVariables4ByAction(benchmark::State& state) {
    rapidjson::Document d;
    d.Parse(kGetVariables);
    std::string why;
    for (auto _ : state) {
        bool ok = models::ValidatePayload("GetVariables", true, d, &why);
        benchmark::DoNotOptimize(ok);
    }
}
BENCHMARK(BM_SchemaCheckGetVariables4ByAction);

// For scale: parsing the same payload text.
void BM_ParseGetVariables4(benchmark::State& state) {
    for (auto _ : state) {
        rapidjson::Document d;
        d.Parse(kGetVariables);
        benchmark::DoNotOptimize(d);
    }
}
BENCHMARK(BM_ParseGetVariables4);

}  // namespace
