// transactioncache.bin rewritten with 8 open transactions, as after every
// change, and the same write without its fsync to show what the flash costs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <OcppProtocol.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Ocpp20/Process/TransactionFile.h"
#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Process/VariableCache.h"

namespace {

void Quiet(LOGLEVEL, const char*, const char*, int, const char*) {}
int Sent(int, const TransactionEventArgs& args, int32_t* eventParam) {
    *eventParam = args.eventParam;
    return 0;
}

struct Open8 {
    Open8() {
        OcppProtocol_SetLog(&Quiet);
        char tmpl[] = "/tmp/ocppbench-XXXXXX";
        dir = mkdtemp(tmpl);
        path = dir + "/transactioncache.bin";
        CVariableCache::GetInstance()->InitDefault();
        CTransactionManager::SetEventSink(&Sent);
        CTransactionManager* tx = CTransactionManager::GetInstance();
        tx->SetStoreFile(path);
        for (int evse = 1; evse <= 8; ++evse) {
            std::string id;
            tx->TransactionStart(evse, 1, "", 255, TRANSACTIONREASON_CABLEPLUGGEDIN,
                                 TRANSACTIONCHARGINGSTATE_EVCONNECTED, 0, 0, nullptr, CTransactionManager::Meter(),
                                 &id, nullptr);
        }
    }
    ~Open8() {
        CTransactionManager::Release();
        CTransactionManager::SetEventSink(nullptr);
        CVariableCache::Release();
        std::filesystem::remove_all(dir);
        OcppProtocol_SetLog(nullptr);
    }
    std::string dir;
    std::string path;
};

CTransactionFile::Records Records8() {
    CTransactionFile::Records records;
    for (int i = 0; i < 8; ++i) {
        TransactionItem item{};
        item.evseId = i + 1;
        records.emplace_back("00000000-0000-0000-0000-00000000000" + std::to_string(i), item);
    }
    return records;
}

void BM_TransactionsToFileOf8(benchmark::State& state) {
    Open8 open;
    CTransactionManager* tx = CTransactionManager::GetInstance();
    for (auto _ : state) benchmark::DoNotOptimize(tx->TransactionsToFile());
}
BENCHMARK(BM_TransactionsToFileOf8)->Unit(benchmark::kMicrosecond);

void BM_TransactionImageOf8(benchmark::State& state) {
    const CTransactionFile::Records records = Records8();
    for (auto _ : state) benchmark::DoNotOptimize(CTransactionFile::Encode(records));
}
BENCHMARK(BM_TransactionImageOf8)->Unit(benchmark::kMicrosecond);

// The same open, write, close and rename as the store's replace, without fsync.
void BM_TransactionWriteWithoutFsyncOf8(benchmark::State& state) {
    Open8 open;
    const std::string image = CTransactionFile::Encode(Records8());
    const std::string tmp = open.path + "1";
    for (auto _ : state) {
        const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        benchmark::DoNotOptimize(::write(fd, image.data(), image.size()));
        ::close(fd);
        std::rename(tmp.c_str(), open.path.c_str());
    }
}
BENCHMARK(BM_TransactionWriteWithoutFsyncOf8)->Unit(benchmark::kMicrosecond);

}  // namespace
