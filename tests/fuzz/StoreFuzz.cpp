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

struct Store {
    const char* file;
    void (*load)(const std::string& path);
};

const Store kStores[] = {
    {"variablecache.json",
     [](const std::string& path) {
         CVariableCache::GetInstance()->SetStoreFile(path);
         CVariableCache::Release();
     }},
    {"VariableCharacteristicscache.json",
     [](const std::string& path) {
         CVariableCharacteristics::GetInstance()->SetStoreFile(path);
         CVariableCharacteristics::Release();
     }},
    {"csmscfg.json",
     [](const std::string& path) {
         CConnectManager::GetInstance()->SetStoreFile(path);
         CConnectManager::Release();
     }},
    {"reservation.json",
     [](const std::string& path) {
         CReservationManager::GetInstance()->SetStoreFile(path);
         CReservationManager::Release();
     }},
    {"transactioncache.bin",
     [](const std::string& path) {
         CTransactionManager::GetInstance()->SetStoreFile(path);
         CTransactionManager::Release();
     }},
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
