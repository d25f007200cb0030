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

const int kNoEngineTransaction = 255;
const int kNoEngineAnswer = 1;
const int kNoEngineRequest = 0;

bool Known(OCPPPROTOCOL protocol) { return protocol >= OCPPPROTOCOL_16 && protocol <= OCPPPROTOCOL_21; }

}  // namespace

int CStationEngine::TransactionStart(int, int, const char*, int, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, int, int,
                                     const char*, const void*, int, char*, int*) {
    return kNoEngineTransaction;
}
int CStationEngine::TransactionUpate(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, const void*, int, int) {
    return kNoEngineTransaction;
}
int CStationEngine::TransactionEnd(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, TRANSACTIONSTOPREASON,
                                   const void*, int) {
    return kNoEngineTransaction;
}
int CStationEngine::TransactionEndWithToken(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE,
                                            TRANSACTIONSTOPREASON, const char*, int, const void*, int) {
    return kNoEngineTransaction;
}
int CStationEngine::UpdateTransactionInfo(const char*, const TransactionInfoItem*, int) { return kNoEngineTransaction; }
int CStationEngine::TransactionIDFromEvseID(int, char*) { return kNoEngineTransaction; }
int CStationEngine::GetTransactionItemsDetail(const char*, TransactionDetail*, int*) { return kNoEngineTransaction; }
int CStationEngine::AddTransactionRemoteID(const char*, int) { return kNoEngineTransaction; }
int CStationEngine::GetTransactionErrorCode(const char*) { return kNoEngineTransaction; }
int CStationEngine::GetTransactionCount() { return kNoEngineTransaction; }
int CStationEngine::Answer(STATIONANSWER, const char*, int) { return kNoEngineAnswer; }
int CStationEngine::RequestStartTransaction(const char*, int, const char*) { return kNoEngineAnswer; }
int CStationEngine::GetLog(const char*, int, const char*) { return kNoEngineAnswer; }
int CStationEngine::DataTransfer(const char*, int, const char*, int) { return kNoEngineAnswer; }
int CStationEngine::GetInstalledCertificateIds(const char*, int, const CertificateHashDataChainItem*, int) {
    return kNoEngineAnswer;
}
int CStationEngine::ReservationStatusUpdate(int, int) { return kNoEngineAnswer; }
int CStationEngine::AuthorizeWithCertificate(int, const char*, const char*) { return kNoEngineAnswer; }
int CStationEngine::SetMeterValues(int, const void*, int) { return kNoEngineAnswer; }
int CStationEngine::FirmwareStatusNotification(int, int) { return kNoEngineAnswer; }
int CStationEngine::LogStatusNotification(int, int) { return kNoEngineAnswer; }
int CStationEngine::PublishFirmwareStatusNotification(int, int, const char*) { return kNoEngineAnswer; }
int CStationEngine::SignCertificate(const char*, int) { return kNoEngineRequest; }
int CStationEngine::DataTransferRequest(const char*, const char*, const char*, int, int*, char*, int) {
    return kNoEngineRequest;
}
int CStationEngine::NotifyEvent(const EventDataItem*, int) { return kNoEngineAnswer; }
int CStationEngine::Get15118EVCertificate(const char*, int, const char*, int*, char*, int) { return kNoEngineRequest; }
int CStationEngine::GetCertificateStatus(const OcspRequestDataItem*, int*, char*, int) { return kNoEngineRequest; }
int CStationEngine::NotifyEVChargingSchedule(int, unsigned, const char*, int) { return kNoEngineAnswer; }

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
