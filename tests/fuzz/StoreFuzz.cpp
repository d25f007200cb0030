// Every store's loader on whatever a power cut or a worn flash leaves in its
// file: the first byte picks the store, the rest is the file's content.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Process/ConnectManager.h"
#include "Process/ReservationManager.h"

namespace {

// Each store is loaded as the station loads it at start-up, then released.
template <typename Store>
void Load(const std::string& path) {
    Store::GetInstance()->SetStoreFile(path);
    Store::Release();
}

struct Store {
    const char* file;
    void (*load)(const std::string& path);
};

const Store kStores[] = {
    {"variablecache.json", &Load<CVariableCache>},
    {"VariableCharacteristicscache.json", &Load<CVariableCharacteristics>},
    {"csmscfg.json", &Load<CConnectManager>},
    {"reservation.json", &Load<CReservationManager>},
    {"transactioncache.bin", &Load<CTransactionManager>},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const Store& store = kStores[data[0] % (sizeof kStores / sizeof kStores[0])];
    const std::string path = fuzzsupport::CacheDir() + "/" + store.file;
    fuzzsupport::WriteFile(path, data + 1, size - 1);
    store.load(path);
    return 0;
}
