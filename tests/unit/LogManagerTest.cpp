#include <gtest/gtest.h>
#include <zlib.h>

#include <ctime>
#include <mutex>
#include <thread>
#include <vector>

#include "Log/LogManager.h"
#include "Log/RotatingLogFile.h"
#include "TestSupport.h"
#include "Util/DbDriver.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

using namespace ocpptest;

namespace {
const int64_t kDayMs = 86400000LL;

class LogManagerTest : public ::testing::Test {
protected:
    void SetUp() override { g_strLogFile.clear(); }
    void TearDown() override { CLogManager::Release(); }

    CLogManager* Manager() { return CLogManager::GetInstance(); }
    std::string DbPath() const { return dir.file("log.db"); }
    void OpenStore() { ASSERT_EQ(Manager()->SetStoreFile(DbPath()), 1); }

    // Rows written straight into the database, with chosen times.
    void Insert(int64_t ms, int type, int level, const std::string& text) {
        CDbDriver db;
        ASSERT_EQ(db.OpenDB(DbPath()), 1);
        ASSERT_EQ(db.ExecuteSQL("insert into log(logtime,logtype,loglevel,logcontent)values('%lld','%d','%d','%s')",
                                static_cast<long long>(ms), type, level, text.c_str()),
                  1);
    }
    std::vector<std::string> Contents() {
        CDbDriver db;
        EXPECT_EQ(db.OpenDB(DbPath()), 1);
        const auto l = db.QuerySQL2("select logcontent from log order by rowid");
        return std::vector<std::string>(l.begin(), l.end());
    }

    TempDir dir;
    ClockGuard clock;
};

// Moves the wall clock to today's local hh:30.
void MoveToLocalHour(int hour) {
    CTools::SetClockOffsetMs(0, 0);
    const time_t now = static_cast<time_t>(CTools::CurTimeSec());
    struct tm tmv;
    localtime_r(&now, &tmv);
    tmv.tm_hour = hour;
    tmv.tm_min = 30;
    tmv.tm_sec = 0;
    tmv.tm_isdst = -1;
    CTools::SetClockOffsetMs((static_cast<int64_t>(mktime(&tmv)) - static_cast<int64_t>(now)) * 1000, 0);
}

// What the host's callbacks saw while this object lives.
struct ExportSeen;
ExportSeen* g_seen = nullptr;
struct ExportSeen {
    ExportSeen() { g_seen = this; }
    ~ExportSeen() { g_seen = nullptr; }
    std::mutex m;
    std::vector<std::pair<int, int>> progress;
    std::string success;
    int failures = 0;
    bool done = false;
};
void OnProgress(int total, int written) {
    std::lock_guard<std::mutex> l(g_seen->m);
    g_seen->progress.emplace_back(total, written);
}
void OnSuccess(const char* path) {
    std::lock_guard<std::mutex> l(g_seen->m);
    g_seen->success = path;
    g_seen->done = true;
}
void OnFailure() {
    std::lock_guard<std::mutex> l(g_seen->m);
    ++g_seen->failures;
    g_seen->done = true;
}

LogExportJob Job(const std::string& dir, int64_t startMs, int64_t endMs) {
    LogExportJob job;
    job.dir = dir + "/";
    job.startMs = startMs;
    job.endMs = endMs;
    job.progress = &OnProgress;
    job.success = &OnSuccess;
    job.failure = &OnFailure;
    return job;
}

// The exported text file next to the archive the host is told about.
std::string LogFileOf(const std::string& archive) { return archive.substr(0, archive.size() - 7) + ".log"; }

// 39 characters plus the newline: 40 bytes a line.
std::string Line(char c) { return std::string(39, c); }

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        out.push_back(text.substr(start, nl - start));
    return out;
}

std::string Gunzip(const std::string& path) {
    gzFile gz = gzopen(path.c_str(), "rb");
    if (gz == nullptr) return std::string();
    std::string out;
    char buf[4096];
    int n;
    while ((n = gzread(gz, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    gzclose(gz);
    return out;
}
}  // namespace

TEST_F(LogManagerTest, StoreFileWritesExactZlogConfigAndCreatesTheTableButAnUnusableFolderSetsNoStore) {
    EXPECT_EQ(Manager()->SetStoreFile(dir.file("absent/log.db")), 0);
    EXPECT_EQ(Manager()->GetStoreFile(), "");
    LogCapture log;
    OpenStore();
    const std::string d = dir.path();
    EXPECT_EQ(ReadText(dir.file("zlog.conf")),
              "[formats]\nsimple = \"%m%n\"\nnormal = \"[%V] %m%n\"\n\n[rules]\n*.*    \"" + d + "/ocpp.log\",10M*2~\"" +
                  d + "/ocpp.log.#r\";\n*.*  >stdout;\n");
    EXPECT_TRUE(log.Contains("Log Db File:" + DbPath(), 1));

    CDbDriver db;
    ASSERT_EQ(db.OpenDB(DbPath()), 1);
    const auto cols = db.QuerySQL2("select name from pragma_table_info('log') order by cid");
    EXPECT_EQ(std::vector<std::string>(cols.begin(), cols.end()),
              (std::vector<std::string>{"logcontent", "loglevel", "logtime", "logtype"}));

    log.Clear();
    EXPECT_EQ(Manager()->SetStoreFile(DbPath()), 1);
    EXPECT_FALSE(log.Contains("Log Db File:")) << "the same path again is accepted without redoing anything";
    EXPECT_EQ(CLogManager::BuildZlogConf(std::string(300, 'x')), "") << "a config over 510 bytes is refused";
}

TEST_F(LogManagerTest, AppendedRecordsAreStoredInOrderWithQuotesIntactAndShutdownStoresThePendingOnes) {
    OpenStore();
    const std::vector<std::string> texts = {"gun plugged", "it's charging", "x' OR '1'='1", "50% done", "last"};
    for (size_t i = 0; i < texts.size(); ++i)
        OcppProtocol_AppendLog(LOGTYPE_CHARGING, static_cast<int>(i % 3), texts[i].c_str());
    ASSERT_TRUE(Manager()->Flush(2000));
    EXPECT_EQ(Contents(), texts);

    std::string expected;
    for (const auto& t : texts) expected += t + "\n";
    EXPECT_EQ(ReadText(dir.file("ocpp.log")), expected);

    for (int i = 0; i < 40; ++i) OcppProtocol_AppendLog(LOGTYPE_SYSTEM, 1, CTools::StringFormat("rec %d", i).c_str());
    CLogManager::Release();
    const std::vector<std::string> stored = Contents();
    ASSERT_EQ(stored.size(), texts.size() + 40u);
    EXPECT_EQ(stored.back(), "rec 39");
}

TEST_F(LogManagerTest, PurgeDeletesRecordsOlderThanThirtyDaysOncePerDay) {
    OpenStore();
    CTools::FreezeClock(true);
    // The first purge of a process waits for the local hour 23.
    MoveToLocalHour(10);
    Insert(CTools::CurTimeMilSec() - 30 * kDayMs - 1000, 0, 1, "old");
    EXPECT_EQ(Manager()->ClearOldLog(), 0);
    EXPECT_EQ(Contents(), (std::vector<std::string>{"old"}));

    MoveToLocalHour(23);
    const int64_t now = CTools::CurTimeMilSec();
    Insert(now - 30 * kDayMs - 1000, 0, 1, "thirty days");
    Insert(now - 29 * kDayMs, 0, 1, "twenty-nine days");
    EXPECT_EQ(Manager()->ClearOldLog(), 1);
    EXPECT_EQ(Contents(), (std::vector<std::string>{"twenty-nine days"}));

    // Next purge only after a full day and a second, whatever the hour.
    CTools::AdvanceClockMs(86400 * 1000LL);
    EXPECT_EQ(Manager()->ClearOldLog(), 0);
    CTools::AdvanceClockMs(1000);
    EXPECT_EQ(Manager()->ClearOldLog(), 1);
    EXPECT_TRUE(Contents().empty()) << "a record is gone once it is 30 days old at a purge";
}

TEST_F(LogManagerTest, ExportSelectsTheWindowTypeAndTextAndReportsProgress) {
    OpenStore();
    const int64_t base = CTools::CurTimeMilSec() - 3600 * 1000;
    Insert(base, LOGTYPE_FAULT, 2, "overcurrent on gun 1");
    Insert(base + 1000, LOGTYPE_CHARGING, 1, "session started");
    Insert(base + 2000, LOGTYPE_FAULT, 2, "it's hot");
    Insert(base + 3000, LOGTYPE_NETWORK, 1, "link lost");
    ExportSeen seen;

    LogExportJob job = Job(dir.path(), base + 1000, base + 3000);
    ASSERT_EQ(Manager()->RunExport(job), 1);
    ASSERT_GT(seen.success.size(), 7u);
    EXPECT_EQ(seen.success.substr(seen.success.size() - 7), ".tar.gz");
    const std::string logFile = LogFileOf(seen.success);
    const std::vector<std::string> lines = Lines(ReadText(logFile));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "[" + CTools::FormatLocalTime(base + 1000) + "] 1 session started");
    EXPECT_EQ(lines[1], "[" + CTools::FormatLocalTime(base + 2000) + "] 2 it's hot");
    EXPECT_EQ(seen.progress, (std::vector<std::pair<int, int>>{{3, 1}, {3, 2}, {3, 3}}));

    // The archive the host is told about holds the exported file.
    const std::string tar = Gunzip(seen.success);
    ASSERT_GE(tar.size(), 1536u);
    EXPECT_EQ(tar.substr(257, 5), "ustar");
    const std::string name = logFile.substr(logFile.rfind('/') + 1);
    EXPECT_EQ(tar.substr(0, name.size() + 1), name + '\0');
    EXPECT_EQ(tar.substr(512, 20), ReadText(logFile).substr(0, 20));

    job.hasType = true;
    job.type = LOGTYPE_FAULT;
    job.startMs = 0;
    seen.progress.clear();
    ASSERT_EQ(Manager()->RunExport(job), 1);
    EXPECT_EQ(seen.progress.back(), std::make_pair(2, 2));

    job.hasType = false;
    job.text = "it's";
    seen.progress.clear();
    ASSERT_EQ(Manager()->RunExport(job), 1);
    EXPECT_EQ(seen.progress, (std::vector<std::pair<int, int>>{{1, 1}}));
    EXPECT_EQ(seen.failures, 0);
}

TEST_F(LogManagerTest, ExportWithEndZeroReachesThePresentInPagesInOrder) {
    OpenStore();
    const int64_t now = CTools::CurTimeMilSec();
    {
        CDbDriver db;
        ASSERT_EQ(db.OpenDB(DbPath()), 1);
        db.ExecuteSQL("begin");
        for (int i = 0; i < 250; ++i)
            db.ExecuteSQL("insert into log(logtime,logtype,loglevel,logcontent)values('%lld','0','1','rec %03d')",
                          static_cast<long long>(now - 250 + i), i);
        db.ExecuteSQL("commit");
    }
    ExportSeen seen;
    OcppLogFilter filter{};
    filter.startTime = now / 1000 - 10;
    filter.endTime = 0;
    ASSERT_EQ(OcppProtocol_FilterLog(dir.path().c_str(), &filter, &OnProgress, &OnSuccess, &OnFailure), 1);
    ASSERT_TRUE(WaitFor([&] {
        std::lock_guard<std::mutex> l(seen.m);
        return seen.done;
    }));
    CLogManager::Release();  // joins the export thread
    ASSERT_EQ(seen.failures, 0);
    const std::vector<std::string> lines = Lines(ReadText(LogFileOf(seen.success)));
    ASSERT_EQ(lines.size(), 250u);
    EXPECT_NE(lines.front().find("rec 000"), std::string::npos);
    EXPECT_NE(lines.back().find("rec 249"), std::string::npos);
    EXPECT_EQ(seen.progress.size(), 250u);
    EXPECT_EQ(seen.progress.back(), std::make_pair(250, 250));
}

TEST_F(LogManagerTest, ExportWithoutStoreFileDoesNothingAndIntoAMissingFolderReportsFailure) {
    ExportSeen seen;
    OcppLogFilter filter{};
    EXPECT_EQ(OcppProtocol_FilterLog(dir.path().c_str(), &filter, &OnProgress, &OnSuccess, &OnFailure), 0);
    EXPECT_EQ(OcppProtocol_FilterLog(dir.path().c_str(), nullptr, &OnProgress, &OnSuccess, &OnFailure), 0);
    CLogManager::Release();
    EXPECT_FALSE(seen.done);
    EXPECT_TRUE(seen.progress.empty());

    OpenStore();
    EXPECT_EQ(Manager()->RunExport(Job(dir.file("no/such"), 0, CTools::CurTimeMilSec())), 0);
    EXPECT_EQ(seen.failures, 1);
    EXPECT_TRUE(seen.success.empty());
}

// The text file beside the store, rotated by size.
TEST(RotatingLogFile, RotatesIntoTwoNumberedFilesNewestFirst) {
    TempDir dir;
    CRotatingLogFile file(100);
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path(), "ocpp"), 1);
    EXPECT_EQ(file.Path(), dir.file("ocpp.log"));
    for (char c : {'a', 'b', 'c', 'd', 'e', 'f', 'g'}) ASSERT_EQ(file.Write(Line(c).c_str()), 1);

    EXPECT_EQ(ReadText(dir.file("ocpp.log")), Line('g') + "\n");
    EXPECT_EQ(ReadText(dir.file("ocpp.log.0")), Line('e') + "\n" + Line('f') + "\n");
    EXPECT_EQ(ReadText(dir.file("ocpp.log.1")), Line('c') + "\n" + Line('d') + "\n");
    EXPECT_FALSE(CFileUtil::Exists(dir.file("ocpp.log.2"))) << "only two rotated files are kept";
}

TEST(RotatingLogFile, ReopeningAppendsAndCountsWhatIsThere) {
    TempDir dir;
    {
        CRotatingLogFile file(100);
        file.SetEchoToStdout(false);
        ASSERT_EQ(file.Open(dir.path()), 1);
        file.Write(Line('a').c_str());
        file.Write(Line('b').c_str());
    }
    CRotatingLogFile file(100);
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path()), 1);
    file.Write(Line('c').c_str());
    EXPECT_EQ(ReadText(dir.file("ocpp.log.0")), Line('a') + "\n" + Line('b') + "\n")
        << "a restart must not let the file grow past its limit";
    EXPECT_EQ(ReadText(dir.file("ocpp.log")), Line('c') + "\n");
}

TEST(RotatingLogFile, ConcurrentWritersNeverInterleaveLines) {
    TempDir dir;
    CRotatingLogFile file;
    file.SetEchoToStdout(false);
    ASSERT_EQ(file.Open(dir.path()), 1);
    std::vector<std::thread> threads;
    for (char c : {'p', 'q', 'r', 's'})
        threads.emplace_back([&file, c] {
            for (int i = 0; i < 300; ++i) file.Write(Line(c).c_str());
        });
    for (auto& t : threads) t.join();
    const std::string text = ReadText(dir.file("ocpp.log"));
    ASSERT_EQ(text.size(), 4u * 300u * 40u);
    for (size_t pos = 0; pos < text.size(); pos += 40)
        ASSERT_EQ(text.substr(pos, 40), Line(text[pos]) + "\n") << "line at byte " << pos;
}

TEST(RotatingLogFile, WritesWithoutAFolderAreDroppedSafely) {
    TempDir dir;
    CRotatingLogFile file;
    file.SetEchoToStdout(false);
    EXPECT_EQ(file.Write("nowhere"), 0);
    EXPECT_EQ(file.Open(dir.file("no/such/folder")), 0);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Write(nullptr), 0);
}
