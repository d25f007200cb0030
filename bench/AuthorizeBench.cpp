// The local authorization decision against a full store, and a Full local
// list of 1,000 entries applied.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <OcppProtocol.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "Util/Tools.h"

namespace {

void Quiet(LOGLEVEL, const char*, const char*, int, const char*) {}

std::string Token(const char* prefix, int i) { return prefix + std::to_string(i); }

// Writes `rows` tokens into both tables in one transaction, as a station that
// has collected them over time would have them; the store opens the file after.
void Fill(const std::string& path, int rows) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    const char* const tables[] = {"authorizecache", "locallist"};
    sqlite3_exec(db, "begin", nullptr, nullptr, nullptr);
    for (const char* table : tables) {
        sqlite3_exec(db, (std::string("create table if not exists ") + table +
                          "(expirytime integer,grouptoken text,status integer,token text,tokentype integer)")
                             .c_str(),
                     nullptr, nullptr, nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db,
                           (std::string("insert into ") + table +
                            "(token, tokentype, status, grouptoken, expirytime)values(?,2,0,'',0)")
                               .c_str(),
                           -1, &insert, nullptr);
        for (int i = 0; i < rows; ++i) {
            const std::string token = Token(table[0] == 'a' ? "CACHE-" : "LIST-", i);
            sqlite3_bind_text(insert, 1, token.c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
    }
    sqlite3_exec(db, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(db);
}

struct Store {
    explicit Store(int rows) {
        OcppProtocol_SetLog(&Quiet);
        char tmpl[] = "/tmp/ocppbench-XXXXXX";
        dir = mkdtemp(tmpl);
        CVariableCache::GetInstance()->InitDefault();
        const std::string path = dir + "/authorizecache.db";
        if (rows > 0) Fill(path, rows);
        CAuthorizeCache::GetInstance()->SetStoreFile(path);
    }
    ~Store() {
        CAuthorizeCache::Release();
        CVariableCache::Release();
        std::filesystem::remove_all(dir);
        OcppProtocol_SetLog(nullptr);
    }
    std::string dir;
};

// One decision per iteration over tokens spread through the table `prefix` names.
void DecideFrom(benchmark::State& state, const char* prefix) {
    const int rows = static_cast<int>(state.range(0));
    Store store(rows);
    CAuthorizeCache* cache = CAuthorizeCache::GetInstance();
    int i = 0;
    for (auto _ : state) {
        int status = 0, fromList = 0;
        const std::string token = Token(prefix, (i++ * 7919) % rows);
        benchmark::DoNotOptimize(cache->IsTokenAccept(token.c_str(), 2, &status, &fromList));
    }
}

// A token found only in the cache: the list is searched first, then the cache.
void BM_IsTokenAcceptFromCache(benchmark::State& state) { DecideFrom(state, "CACHE-"); }
BENCHMARK(BM_IsTokenAcceptFromCache)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_IsTokenAcceptFromLocalList(benchmark::State& state) { DecideFrom(state, "LIST-"); }
BENCHMARK(BM_IsTokenAcceptFromLocalList)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// SendLocalList Full of 1,000 entries as applied after the Accepted answer:
// every statement is its own transaction, each synced to the file.
void BM_SendLocalListFull1000Applied(benchmark::State& state) {
    Store store(0);
    std::vector<AuthorizeItem> items(1000);
    for (int i = 0; i < 1000; ++i) {
        AuthorizeItem& item = items[static_cast<size_t>(i)];
        item = AuthorizeItem{};
        const std::string token = Token("FULL-", i);
        CTools::CopyField(item.token, token);
        item.tokenType = 2;
    }
    int version = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CAuthorizeCache::GetInstance()->UpdateLocalList(++version, items, 1));
    }
}
BENCHMARK(BM_SendLocalListFull1000Applied)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
