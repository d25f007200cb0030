#include "Log/LogManager.h"

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <cstring>

#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Thread.h"
#include "Util/Tools.h"
#include "Util/ZipUtil.h"

std::string g_strLogFile;
namespace {
// The host sets the path on its thread; the connect thread reads it when stores open.
pthread_mutex_t g_logFileMutex = PTHREAD_MUTEX_INITIALIZER;
}

std::string OcppProtocol_GetLogFile() {
    OCPP_SECTION(&g_logFileMutex);
    return g_strLogFile;
}

CLogManager* CLogManager::s_instance = nullptr;

namespace {
pthread_mutex_t g_instanceMutex = PTHREAD_MUTEX_INITIALIZER;

bool ThreadStarted(pthread_t handle) { return handle != pthread_t{}; }

// Host-given seconds; out-of-range values are clamped rather than overflowing.
int64_t SecToMs(int64_t sec) {
    const int64_t limit = INT64_MAX / 1000;
    if (sec > limit) return limit * 1000;
    if (sec < -limit) return -limit * 1000;
    return sec * 1000;
}
}  // namespace

// The object is never freed: other threads may still hold the pointer they got
// a moment ago. Release puts it back to its freshly constructed state instead.
CLogManager* CLogManager::GetInstance() {
    OCPP_SECTION(&g_instanceMutex);
    if (s_instance == nullptr) s_instance = new CLogManager();
    return s_instance;
}

void CLogManager::Release() {
    CLogManager* instance = nullptr;
    {
        OCPP_SECTION(&g_instanceMutex);
        instance = s_instance;
    }
    if (instance != nullptr) instance->Reset();
}

void CLogManager::Reset() {
    StopThreads();  // the writer stores what is pending first
    {
        OCPP_SECTION(&m_dbMutex);
        m_db.CloseDB();
        m_strDbPath.clear();
        m_lastPurgeSec = 0;
    }
    m_file.Close();
    OCPP_SECTION(&m_pendingMutex);
    m_pending.clear();
    m_bStoring = false;
    m_bWriterRunning = false;
    m_writer = pthread_t{};
    m_bStop = false;
}

CLogManager::CLogManager() : m_file(kRotateBytes, 2) {
    pthread_mutex_init(&m_pendingMutex, nullptr);
    pthread_mutex_init(&m_dbMutex, nullptr);
    pthread_mutex_init(&m_exportMutex, nullptr);
    // Storing log records must not itself log SQL.
    m_db.EnableLog(0);
}

CLogManager::~CLogManager() {
    StopThreads();
    {
        OCPP_SECTION(&m_dbMutex);
        m_db.CloseDB();
    }
    m_file.Close();
    pthread_mutex_destroy(&m_exportMutex);
    pthread_mutex_destroy(&m_dbMutex);
    pthread_mutex_destroy(&m_pendingMutex);
}

void CLogManager::StopThreads() {
    pthread_t writer{};
    bool running = false;
    {
        OCPP_SECTION(&m_pendingMutex);
        m_bStop = true;
        running = m_bWriterRunning;
        writer = m_writer;
    }
    m_pendingCv.notify_all();
    // The writer drains what is pending before it ends.
    if (running) pthread_join(writer, nullptr);
    ReapExports(true);
}

std::string CLogManager::BuildZlogConf(const std::string& dir) {
    char buf[511];
    const int n = snprintf(buf, sizeof buf,
                           "[formats]\nsimple = \"%%m%%n\"\nnormal = \"[%%V] %%m%%n\"\n\n[rules]\n*.*    "
                           "\"%s/%s.log\",10M*2~\"%s/%s.log.#r\";\n*.*  >stdout;\n",
                           dir.c_str(), "ocpp", dir.c_str(), "ocpp");
    if (n < 0 || n >= static_cast<int>(sizeof buf)) return std::string();
    return std::string(buf, static_cast<size_t>(n));
}

int CLogManager::SetStoreFile(const std::string& path) {
    if (path.empty()) return 0;
    {
        OCPP_SECTION(&m_dbMutex);
        if (path == m_strDbPath) return 1;
    }
    const std::string dir = CFileUtil::DirName(path);
    const std::string conf = dir.size() <= 255 ? BuildZlogConf(dir) : std::string();
    bool ok = !conf.empty() && CFileUtil::WriteFileAtomic(dir + "/zlog.conf", conf, ".tmp");
    if (ok) ok = m_file.Open(dir, "ocpp") == 1;
    if (!ok) {
        LOG_ERROR("log file setup failed in %s", dir.c_str());
        OCPP_SECTION(&m_dbMutex);
        m_db.CloseDB();
        m_strDbPath.clear();
        return 0;
    }
    LOG_INFO("Log Db File:%s", path.c_str());

    OCPP_SECTION(&m_dbMutex);
    m_db.CloseDB();
    m_strDbPath = path;
    if (!CFileUtil::Exists(path) && m_db.OpenDB(path)) {
        m_db.CreateTable("log", {{"logtime", "integer"}, {"logtype", "integer"}, {"loglevel", "integer"},
                                 {"logcontent", "text"}});
        m_db.CloseDB();
    }
    if (access(path.c_str(), W_OK) == 0 && m_db.OpenDB(path)) {
        // A file left empty by an earlier failed start has no table yet.
        m_db.CreateTable("log", {{"logtime", "integer"}, {"logtype", "integer"}, {"loglevel", "integer"},
                                 {"logcontent", "text"}});
        return 1;
    }
    m_strDbPath.clear();
    return 0;
}

std::string CLogManager::GetStoreFile() {
    OCPP_SECTION(&m_dbMutex);
    return m_strDbPath;
}

void CLogManager::Add(int type, int level, const char* text) {
    if (text == nullptr) text = "";
    m_file.Write(text);
    printf("%s\n", text);
    fflush(stdout);

    {
        OCPP_SECTION(&m_pendingMutex);
        // While stopping, the writer drains what is queued; a steady producer must not keep it alive.
        if (m_bStop) return;
        m_pending.push_back(PendingRecord{type, level, text});
        // Started under the lock, so a concurrent stop always sees the handle it must join.
        if (!m_bWriterRunning && !m_bStop) {
            const pthread_t handle = LinuxCreateThread(nullptr, &CLogManager::TimerProc, this);
            if (ThreadStarted(handle)) {
                m_writer = handle;
                m_bWriterRunning = true;
            }  // otherwise the next Add tries again; the record stays pending
        }
    }
    m_pendingCv.notify_all();  // Flush may be waiting on the same variable
}

size_t CLogManager::PendingCount() {
    OCPP_SECTION(&m_pendingMutex);
    return m_pending.size() + (m_bStoring ? 1 : 0);
}

bool CLogManager::Flush(int timeoutMs) {
    OCPP_SECTION_NAMED(guard, &m_pendingMutex);
    return m_pendingCv.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                [this] { return m_pending.empty() && !m_bStoring; });
}

void* CLogManager::TimerProc(void* self) {
    static_cast<CLogManager*>(self)->WriterLoop();
    return nullptr;
}

void CLogManager::WriterLoop() {
    for (;;) {
        if (StoreOnePending()) continue;
        if (m_bStop) break;
        if (ClearOldLog()) continue;
        OCPP_SECTION_NAMED(guard, &m_pendingMutex);
        if (m_pending.empty() && !m_bStop)
            m_pendingCv.wait_for(guard, std::chrono::milliseconds(kWriterIdleMs));
    }
}

int CLogManager::StoreOnePending() {
    PendingRecord record;
    {
        OCPP_SECTION(&m_pendingMutex);
        if (m_pending.empty()) return 0;
        record = std::move(m_pending.front());
        m_pending.pop_front();
        m_bStoring = true;
    }
    {
        OCPP_SECTION(&m_dbMutex);
        m_db.ExecuteSQL("insert into log(logtime,logtype,loglevel,logcontent)values('%lld','%d','%d', '%s')",
                        static_cast<long long>(CTools::CurTimeMilSec()), record.type, record.level,
                        record.text.c_str());
    }
    {
        OCPP_SECTION(&m_pendingMutex);
        m_bStoring = false;
    }
    m_pendingCv.notify_all();
    return 1;
}

int CLogManager::ClearOldLog() {
    const int64_t nowSec = CTools::CurTimeSec();
    OCPP_SECTION(&m_dbMutex);
    const bool due = m_lastPurgeSec == 0 ? CTools::LocalHour(nowSec) == kPurgeHour
                                         : nowSec - m_lastPurgeSec >= kPurgeEverySec;
    if (!due) return 0;
    m_lastPurgeSec = nowSec;
    m_db.ExecuteSQL("delete from log where logtime < '%lld'",
                    static_cast<long long>(CTools::CurTimeMilSec() - kKeepMs));
    return 1;
}

int CLogManager::FilterLog(const char* dir, const OcppLogFilter& filter, OcppLogFilterProgress progress,
                           OcppLogFilterSuccess success, OcppLogFilterFailure failure) {
    if (dir == nullptr || GetStoreFile().empty() || m_bStop) return 0;
    ReapExports(false);

    auto* arg = new ExportArg{this, nullptr, LogExportJob()};
    LogExportJob& job = arg->job;
    job.dir = dir;
    if (job.dir.empty() || job.dir.back() != '/') job.dir += '/';
    job.startMs = SecToMs(filter.startTime);
    job.endMs = filter.endTime == 0 ? CTools::CurTimeMilSec() : SecToMs(filter.endTime);
    job.hasType = filter.hasLogType != 0;
    job.type = filter.logType;
    job.text.assign(filter.text, strnlen(filter.text, OCPP_LOG_FILTER_TEXT_LEN));
    job.progress = progress;
    job.success = success;
    job.failure = failure;

    OCPP_SECTION(&m_exportMutex);
    m_exports.push_back(std::unique_ptr<ExportThread>(new ExportThread()));
    arg->thread = m_exports.back().get();
    const pthread_t handle = LinuxCreateThread(nullptr, &CLogManager::ExportProc, arg);
    if (!ThreadStarted(handle)) {
        m_exports.pop_back();
        delete arg;
        return 0;
    }
    m_exports.back()->handle = handle;
    return 1;
}

void CLogManager::ReapExports(bool all) {
    std::list<std::unique_ptr<ExportThread>> finished;
    {
        OCPP_SECTION(&m_exportMutex);
        for (auto it = m_exports.begin(); it != m_exports.end();) {
            if (all || (*it)->done) {
                finished.push_back(std::move(*it));
                it = m_exports.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& t : finished) pthread_join(t->handle, nullptr);
}

void* CLogManager::ExportProc(void* raw) {
    ExportArg* arg = static_cast<ExportArg*>(raw);
    arg->self->RunExport(arg->job);
    arg->thread->done = true;
    delete arg;
    return nullptr;
}

int CLogManager::RunExport(const LogExportJob& job) {
    auto fail = [&job]() {
        if (job.failure) job.failure();
        return 0;
    };
    const std::string base = CTools::StringFormat("%s%lld", job.dir.c_str(),
                                                  static_cast<long long>(CTools::CurTimeMilSec()));
    if (base.empty()) {
        printf("Error formatting destination folder name.\n");
        return fail();
    }
    for (const char* suffix : {".tar.gz", ".log"}) {
        if (base.size() + strlen(suffix) >= 509) {
            printf("Not enough space for suffix \"%s\"\n", suffix);
            return fail();
        }
    }
    const std::string gzName = base + ".tar.gz";
    const std::string logName = base + ".log";

    std::string cond, part;
    if (!m_db.FormatSQL(cond, "logtime >= '%lld' and logtime <= '%lld' ", static_cast<long long>(job.startMs),
                        static_cast<long long>(job.endMs)))
        return fail();
    if (job.hasType) {
        if (!m_db.FormatSQL(part, "and logtype='%d' ", job.type)) return fail();
        cond += part;
    }
    if (!job.text.empty()) {
        if (!m_db.FormatSQL(part, "and logcontent like '%%%%%s%%%%' ", job.text.c_str()))
            return fail();
        cond += part;
    }

    int total = -1;
    {
        OCPP_SECTION(&m_dbMutex);
        if (m_db.IsOpen()) {
            const DbRows rows = m_db.QuerySQLText("select count(*) as logcount from log where " + cond);
            if (!rows.empty() && rows.front().count("logcount") != 0)
                total = atoi(rows.front().find("logcount")->second.c_str());
        }
    }
    if (total < 0) return fail();  // the host's callback never runs under our lock

    FILE* out = fopen(logName.c_str(), "w");
    if (out == nullptr) return fail();
    bool ok = true;
    int written = 0;
    for (int offset = 0; ok; offset += kExportPage) {
        if (m_bStop) {
            ok = false;
            break;
        }
        DbRows page;
        {
            OCPP_SECTION(&m_dbMutex);
            page = m_db.QuerySQLText("select * from log where " + cond +
                                     CTools::StringFormat("order by logtime asc limit %d, 100", offset));
        }
        for (const DbRow& row : page) {
            auto get = [&row](const char* key) {
                auto it = row.find(key);
                return it == row.end() ? std::string() : it->second;
            };
            const int64_t when = strtoll(get("logtime").c_str(), nullptr, 10);
            if (fprintf(out, "[%s] %d %s\n", CTools::FormatLocalTime(when).c_str(), atoi(get("loglevel").c_str()),
                        get("logcontent").c_str()) < 0) {
                ok = false;
                break;
            }
            ++written;
            if (job.progress) job.progress(total, written);
        }
        if (page.size() < static_cast<size_t>(kExportPage)) break;
    }
    if (fflush(out) != 0 || ferror(out)) ok = false;
    if (fsync(fileno(out)) != 0) ok = false;
    if (fclose(out) != 0) ok = false;
    if (!ok) return fail();

    const size_t slash = logName.find_last_of('/');
    if (!CZipUtil::TarGzFile(logName, gzName, logName.substr(slash + 1))) return fail();
    if (job.success) job.success(gzName.c_str());
    return 1;
}

int OcppProtocol_SetLogFile(const char* path) {
    const std::string file = path ? path : "";
    {
        OCPP_SECTION(&g_logFileMutex);
        g_strLogFile = file;
    }
    return CLogManager::GetInstance()->SetStoreFile(file);
}

void OcppProtocol_AppendLog(int type, int level, const char* text) { CLogManager::GetInstance()->Add(type, level, text); }

int OcppProtocol_FilterLog(const char* dir, const OcppLogFilter* filter, OcppLogFilterProgress progress,
                           OcppLogFilterSuccess success, OcppLogFilterFailure failure) {
    if (filter == nullptr) return 0;
    return CLogManager::GetInstance()->FilterLog(dir, *filter, progress, success, failure);
}
