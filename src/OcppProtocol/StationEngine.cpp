#include "OcppProtocol/StationEngine.h"

#include <atomic>

#include "OcppProtocol/StationEngine20.h"

namespace {

const int kVersions = 3;  // 1.6, 2.0.1, 2.1

// A version's built-in engine: one line here when a version gets its engine.
CStationEngine* BuiltIn(OCPPPROTOCOL protocol) {
    switch (protocol) {
        case OCPPPROTOCOL_201:
            return CStationEngine20::Instance();
        default:
            return nullptr;
    }
}

std::atomic<CStationEngine*> g_registered[kVersions] = {{nullptr}, {nullptr}, {nullptr}};

bool Known(OCPPPROTOCOL protocol) { return protocol >= OCPPPROTOCOL_16 && protocol <= OCPPPROTOCOL_21; }

}  // namespace

CStationEngine* StationEngineFor(OCPPPROTOCOL protocol) {
    if (!Known(protocol)) return nullptr;
    CStationEngine* engine = g_registered[protocol].load();
    return engine != nullptr ? engine : BuiltIn(protocol);
}

CStationEngine* AnswerEngineFor(OCPPPROTOCOL protocol) {
    CStationEngine* engine = StationEngineFor(protocol);
    if (engine == nullptr && protocol == OCPPPROTOCOL_21) engine = StationEngineFor(OCPPPROTOCOL_201);
    return engine;
}

void RegisterStationEngine(OCPPPROTOCOL protocol, CStationEngine* engine) {
    if (Known(protocol)) g_registered[protocol].store(engine);
}
