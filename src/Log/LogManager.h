#pragma once
#include <pthread.h>

#include <OcppLog.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "Log/RotatingLogFile.h"
#include "Util/DbDriver.h"

// Log database path given by the host.
extern std::string g_strLogFile;  // read it through OcppProtocol_GetLogFile()
std::string OcppProtocol_GetLogFile();

// One export request, copied so the host's buffers may go away.
struct LogExportJob {
    std::string dir;  // with trailing '/'
    int64_t startMs = 0;
    int64_t endMs = 0;
    bool hasType = false;
    int type = 0;
    std::string text;
    OcppLogFilterProgress progress = nullptr;
    OcppLogFilterSuccess success = nullptr;
    OcppLogFilterFailure failure = nullptr;
};

// The host's operational log: rotating text files plus the log database,
// from which a time window can be exported.
class CLogManager {
public:
    static CLogManager* GetInstance();
    static void Release();

    int SetStoreFile(const std::string& path);
    void Add(int type, int level, const char* text);
    // Starts an export thread; 1 when started.
    int FilterLog(const char* dir, const OcppLogFilter& filter, OcppLogFilterProgress progress,
                  OcppLogFilterSuccess success, OcppLogFilterFailure failure);

    // Periodic procedures of the writer, callable directly.
    int StoreOnePending();  // 1 when a record was taken
    int ClearOldLog();      // 1 when a purge ran
    // The export body, run on the export thread. 1 on success.
    int RunExport(const LogExportJob& job);

    std::string GetStoreFile();
    size_t PendingCount();
    // Blocks until every pending record is stored (or the timeout passes).
    bool Flush(int timeoutMs);

    // Exactly the configuration text the rotating file follows; empty when it does not fit.
    static std::string BuildZlogConf(const std::string& dir);

    static constexpr int64_t kKeepMs = 2592000000LL;  // 30 days
    static constexpr int64_t kPurgeEverySec = 86401;
    static constexpr int kPurgeHour = 23;
    static constexpr int kWriterIdleMs = 300;
    static constexpr int kExportPage = 100;
    static constexpr uint64_t kRotateBytes = 10ULL * 1024 * 1024;

private:
    CLogManager();
    ~CLogManager();
    static void* TimerProc(void* self);
    static void* ExportProc(void* arg);
    void WriterLoop();
    void StopThreads();
    void Reset();

    struct PendingRecord {
        int type;
        int level;
        std::string text;
    };

    static CLogManager* s_instance;

    pthread_mutex_t m_pendingMutex;
    std::condition_variable_any m_pendingCv;
    std::list<PendingRecord> m_pending;
    bool m_bStoring = false;  // a popped record is being inserted

    pthread_mutex_t m_dbMutex;
    std::string m_strDbPath;
    CDbDriver m_db;

    pthread_t m_writer{};
    bool m_bWriterRunning = false;  // guarded by m_pendingMutex
    std::atomic<bool> m_bStop{false};
    int64_t m_lastPurgeSec = 0;  // guarded by m_dbMutex

    struct ExportThread {
        pthread_t handle{};
        std::atomic<bool> done{false};
    };
    struct ExportArg {
        CLogManager* self;
        ExportThread* thread;
        LogExportJob job;
    };
    void ReapExports(bool all);
    pthread_mutex_t m_exportMutex;
    std::list<std::unique_ptr<ExportThread>> m_exports;

    CRotatingLogFile m_file;
};
