#pragma once
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <string>

#include <json/json.h>

// What one JSON store says at each step, so every store keeps its own texts.
// A null text logs nothing at that step, unless said otherwise.
struct JsonStoreTexts {
    // Naming the file.
    const char* fileIs = nullptr;             // info, %s: the path
    const char* alreadyExists = nullptr;      // info
    const char* created = nullptr;            // info
    const char* createFailed = nullptr;       // error, %d: errno of the exclusive create
    const char* createWriteFailed = nullptr;  // error, %d
    const char* createFsyncFailed = nullptr;  // error, %d
    // Loading. Null: reported as the next kind down (too large, unreadable, invalid);
    // kQuiet: not reported at all.
    const char* tooLarge = nullptr;    // error, %lld: the size
    const char* unreadable = nullptr;  // error, %s: the path
    const char* invalid = nullptr;     // error, %s: the parser's message (empty for a wrong shape)
    // Writing. A failed step without its own text is reported with writeFailed.
    const char* writing = nullptr;       // info, before each write
    const char* openFailed = nullptr;    // %s %d: the temporary file, errno
    const char* dataFailed = nullptr;    // %d
    const char* fsyncFailed = nullptr;   // %d
    const char* renameFailed = nullptr;  // %s %s %d: the temporary file, the store, errno
    const char* writeFailed = nullptr;   // %d
    const char* written = nullptr;       // info, after a write

    static const char kQuiet[];
};

// How one JSON store behaves at the edges.
struct JsonStoreShape {
    const char* emptyImage = "[]";  // what a new file holds; its first character gives the root's kind
    size_t maxBytes = 0;            // a larger file is not read
    bool sameFileReloads = false;   // naming the bound file again reads it again
    bool emptyPathRefused = false;  // an empty path fails instead of unbinding
    bool keepAfterCreateWriteError = false;  // the next write replaces the whole file anyway
    bool writeFailuresToStdout = false;
    bool strictFsync = false;  // a failed fsync fails the write instead of being reported
    int unboundWriteResult = 1;
};

// A store kept as one JSON document: created when absent, read with a size cap
// (the store falls back to its defaults when that fails) and replaced crash-safely.
class CJsonStore {
public:
    // 1 when the file could be created or exists and was loaded.
    int SetStoreFile(const std::string& path);
    std::string GetStoreFile();
    virtual int SyncFromFile() = 0;
    // Writes the current state; the image is built under the write lock, so the last
    // writer always leaves the newest state on disk.
    int SyncToFile();
    // Same, but a failed fsync fails the write: 1 only when the state is on the flash.
    int SyncToFileDurably();

protected:
    CJsonStore(const JsonStoreTexts& texts, const JsonStoreShape& shape);
    virtual ~CJsonStore();
    CJsonStore(const CJsonStore&) = delete;
    CJsonStore& operator=(const CJsonStore&) = delete;

    // The whole file. Called with the write lock held; takes the store's own lock itself.
    virtual std::string BuildImage() = 0;

    enum ReadResult { kUnbound, kRead, kFailed };
    // kFailed has been reported; the store then falls back to its defaults.
    ReadResult ReadImage(Json::Value& root);
    // Nothing is written until a file is named again.
    void Unbind();
    // The file may be behind the state: the last write did not complete.
    bool LastWriteFailed() const { return m_lastWriteFailed.load(); }

private:
    int Write(bool strictFsync);
    void Say(const char* function, int level, bool toStdout, const char* text, ...);
    void ReportReadFailure(int kind, long long size, const std::string& path, const std::string& errors);

    const JsonStoreTexts m_texts;
    const JsonStoreShape m_shape;
    pthread_mutex_t m_pathMutex;   // m_path only; taken last
    pthread_mutex_t m_writeMutex;  // one writer at a time: the temporary file has a fixed name
    std::string m_path;
    std::atomic<bool> m_lastWriteFailed{false};
};
