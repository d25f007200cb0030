// Demonstration host: registers with the library, names a cache folder,
// writes a few operational log records and exports them again.
#include <OcppProtocol.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

namespace {

std::mutex g_mutex;
std::condition_variable g_done;
bool g_finished = false;
std::string g_archive;
int g_written = 0;

void OnConnected() { std::printf("host: connected\n"); }
void OnDisconnected() { std::printf("host: disconnected\n"); }

void OnMessage(const char* record, uint32_t length) {
    ServerRecvBase base;
    if (length < sizeof base) return;
    std::memcpy(&base, record, sizeof base);
    std::printf("host: record type %d (%u bytes)\n", static_cast<int>(base.type), static_cast<unsigned>(length));
}

void OnProgress(int total, int written) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_written = written;
    std::printf("export: %d of %d\n", written, total);
}

void OnSuccess(const char* path) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_archive = path ? path : "";
    g_finished = true;
    g_done.notify_all();
}

void OnFailure() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_archive.clear();
    g_finished = true;
    g_done.notify_all();
}

// Exports everything logged so far; returns the archive path, empty on failure.
std::string Export(const std::string& dir, int* written) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_finished = false;
        g_written = 0;
    }
    OcppLogFilter filter;
    std::memset(&filter, 0, sizeof filter);
    filter.startTime = 0;
    filter.endTime = 0;  // up to now
    if (OcppProtocol_FilterLog(dir.c_str(), &filter, OnProgress, OnSuccess, OnFailure) != 1) return "";
    std::unique_lock<std::mutex> lock(g_mutex);
    if (!g_done.wait_for(lock, std::chrono::seconds(10), [] { return g_finished; })) return "";
    *written = g_written;
    return g_archive;
}

void PrintArchive(const std::string& archive) {
    const std::string command = "tar -xzOf '" + archive + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return;
    char line[1024];
    while (std::fgets(line, sizeof line, pipe) != nullptr) std::printf("  %s", line);
    pclose(pipe);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <cache folder>\n", argv[0]);
        return 2;
    }
    const std::string cacheDir = argv[1];
    static OcppProtocolCallBack callbacks = {OnConnected, OnDisconnected, OnMessage};

    OcppProtocol_Init(0, &callbacks);
    if (OcppProtocol_SetCacheDir(cacheDir.c_str()) != 1) {
        std::fprintf(stderr, "cache folder %s is not writable\n", cacheDir.c_str());
        return 1;
    }
    char version[255] = {0};
    OcppProtocol_Version(version);
    std::printf("%s", version);
    std::printf("SDK status: %d, protocol: %d\n", static_cast<int>(OcppProtocol_GetStatus()),
                static_cast<int>(OcppProtocol_GetOcppProtocol()));

    if (OcppProtocol_SetLogFile((cacheDir + "/log.db").c_str()) != 1) {
        std::fprintf(stderr, "log database could not be opened\n");
        OcppProtocol_Release();
        return 1;
    }
    OcppProtocol_AppendLog(LOGTYPE_SYSTEM, 1, "demo host started");
    OcppProtocol_AppendLog(LOGTYPE_CHARGING, 1, "connector 1 plugged in");
    OcppProtocol_AppendLog(LOGTYPE_FAULT, 2, "connector 1 over-temperature");

    // Records are stored by a writer thread; give it a few chances to catch up.
    const std::string exportDir = cacheDir + "/";
    std::string archive;
    int written = 0;
    for (int attempt = 0; attempt < 10; ++attempt) {
        archive = Export(exportDir, &written);
        if (!archive.empty() && written >= 3) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    int rc = 0;
    if (archive.empty()) {
        std::fprintf(stderr, "export failed\n");
        rc = 1;
    } else {
        std::printf("exported %d records to %s:\n", written, archive.c_str());
        PrintArchive(archive);
    }
    OcppProtocol_Release();
    std::printf("released\n");
    return rc;
}
