#pragma once
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <string>

// Appends "message\n" lines to DIR/ocpp.log; when a line would take the file
// past the limit it rotates: ocpp.log.0 -> ocpp.log.1, ocpp.log -> ocpp.log.0
// (newest rotated file is .0, two are kept). Every line is also copied to
// standard output. Thread-safe; appends with O_APPEND, rotates by rename.
class CRotatingLogFile {
public:
    explicit CRotatingLogFile(uint64_t limitBytes = 10ULL * 1024 * 1024, int keep = 2);
    ~CRotatingLogFile();
    CRotatingLogFile(const CRotatingLogFile&) = delete;
    CRotatingLogFile& operator=(const CRotatingLogFile&) = delete;

    // (Re)opens DIR/<name>.log. 1 on success.
    int Open(const std::string& dir, const std::string& name = "ocpp");
    void Close();
    bool IsOpen();

    void SetLimit(uint64_t limitBytes);
    void SetEchoToStdout(bool on);

    // Writes one line (text plus newline). 1 when it reached the file.
    int Write(const char* text);

    std::string Path();

private:
    void RotateLocked();
    std::string RotatedName(int index) const;

    pthread_mutex_t m_mutex;
    std::string m_path;
    int m_fd = -1;
    uint64_t m_size = 0;
    uint64_t m_limit;
    int m_keep;
    bool m_echo = true;
};
