// Rewrites one store again and again until it is killed, or loads it and says
// which of its two contents it found: `store_writer DIR STORE write|read`.
// read prints 1 or 2 for the two contents and 0 when the store fell back to its defaults.
#include <OcppProtocol.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Ocpp20/Process/TransactionFile.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Process/ConnectManager.h"
#include "Process/ReservationManager.h"
#include "Util/Tools.h"

namespace {

void Quiet(LOGLEVEL, const char*, const char*, int, const char*) {}

const int kHeartbeat[] = {0, 1111, 2222};
const char* const kUrls[] = {"", "ws://old.example/ocpp", "ws://new.example/ocpp"};

void WriteVariables(int version) { CVariableCache::GetInstance()->SetHeartbeatInterval(kHeartbeat[version]); }
int ReadVariables() {
    const int beat = CVariableCache::GetInstance()->OCPPCommCtrlrHeartbeatInterval();
    return beat == kHeartbeat[1] ? 1 : beat == kHeartbeat[2] ? 2 : 0;
}

void WriteCharacteristics(int version) {
    VariableDataItem v;
    memset(&v, 0, sizeof v);
    CTools::CopyField(v.componentName, "FaultCtrlr");
    CTools::CopyField(v.variableName, "Marker");
    v.dataType = Ocpp20::VARIABLECHARACTERDATATYPE_INTEGER;
    v.maxLimit = static_cast<float>(version * 1000);
    v.limitFlag = 2;
    v.supportsMonitoring = 1;
    CVariableCharacteristics::GetInstance()->AddVariableCharacteristics(v);
}
int ReadCharacteristics() {
    float max = 0;
    if (CVariableCharacteristics::GetInstance()->GetVariableMaxLimit(max, "FaultCtrlr", "Marker", "", "", 0, 0) != 1)
        return 0;
    return max == 1000.0f ? 1 : max == 2000.0f ? 2 : 0;
}

void WriteProfiles(int version) {
    ConnectionItem item;
    memset(&item, 0, sizeof item);
    item.id = 1;
    item.protocol = OCPPPROTOCOL_201;
    item.messageTimeout = 5;
    CTools::CopyField(item.url, kUrls[version]);
    CConnectManager::GetInstance()->AddConnItem(item);
}
int ReadProfiles() {
    for (const ConnectionItem& item : CConnectManager::GetInstance()->GetConnItems()) {
        if (item.id != 1) continue;
        if (strcmp(item.url, kUrls[1]) == 0) return 1;
        if (strcmp(item.url, kUrls[2]) == 0) return 2;
    }
    return 0;
}

void WriteReservations(int version) {
    // Each step is one write: the new reservation joins, then the old one goes.
    CReservationManager* r = CReservationManager::GetInstance();
    r->StoreReservation(static_cast<uint32_t>(version), "TOKEN", 0, "", 0, 4000000000u);
    r->RemoveReservation(static_cast<uint32_t>(3 - version));
}
int ReadReservations() {
    ReservationItem item;
    CReservationManager* r = CReservationManager::GetInstance();
    if (r->GetReservationItem(1, &item) == 1) return 1;
    if (r->GetReservationItem(2, &item) == 1) return 2;
    return 0;
}

// The transaction file is written whole by its own layer: one open transaction, old or new.
std::string g_transactionFile;
const char* const kTxIds[] = {"", "TX-OLD", "TX-NEW"};
int OpenTransactions(const std::string& path) {
    g_transactionFile = path;
    return 1;
}
void WriteTransactions(int version) {
    TransactionItem item;
    memset(&item, 0, sizeof item);
    item.evseId = 1;
    item.connectorId = 1;
    item.seqNo = version;
    CTools::CopyField(item.idToken, "TOKEN");
    CTransactionFile::Write(g_transactionFile, CTransactionFile::Encode({{kTxIds[version], item}}));
}
int ReadTransactions() {
    CTransactionFile::Records records;
    if (!CTransactionFile::Read(g_transactionFile, &records) || records.size() != 1) return 0;
    for (int version = 1; version <= 2; ++version)
        if (records[0].first == kTxIds[version] && records[0].second.seqNo == version) return version;
    return 0;
}

struct Store {
    const char* file;
    int (*open)(const std::string& path);
    void (*write)(int version);
    int (*read)();
};

template <typename Manager>
int Open(const std::string& path) {
    return Manager::GetInstance()->SetStoreFile(path);
}

const Store kStores[] = {
    {"variablecache.json", &Open<CVariableCache>, &WriteVariables, &ReadVariables},
    {"VariableCharacteristicscache.json", &Open<CVariableCharacteristics>, &WriteCharacteristics, &ReadCharacteristics},
    {"csmscfg.json", &Open<CConnectManager>, &WriteProfiles, &ReadProfiles},
    {"reservation.json", &Open<CReservationManager>, &WriteReservations, &ReadReservations},
    {"transactioncache.bin", &OpenTransactions, &WriteTransactions, &ReadTransactions},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s DIR STORE write|read\n", argv[0]);
        return 2;
    }
    OcppProtocol_SetLog(&Quiet);
    const std::string dir = argv[1];
    const std::string name = argv[2];
    const std::string mode = argv[3];
    for (const Store& store : kStores) {
        if (name != store.file) continue;
        store.open(dir + "/" + store.file);
        if (mode == "read") {
            printf("%d\n", store.read());
            return 0;
        }
        // The first content is on disk before the first kill can come.
        store.write(1);
        printf("ready\n");
        fflush(stdout);
        for (int version = 2;; version = 3 - version) store.write(version);
    }
    fprintf(stderr, "unknown store %s\n", name.c_str());
    return 2;
}
