#include "Log/RotatingLogFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Util/CriticalSectionManager.h"

namespace {
bool WriteAll(int fd, const char* data, size_t len) {
    while (len > 0) {
        const ssize_t n = write(fd, data, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}
}  // namespace

CRotatingLogFile::CRotatingLogFile(uint64_t limitBytes, int keep) : m_limit(limitBytes), m_keep(keep) {
    pthread_mutex_init(&m_mutex, nullptr);
}

CRotatingLogFile::~CRotatingLogFile() {
    Close();
    pthread_mutex_destroy(&m_mutex);
}

int CRotatingLogFile::Open(const std::string& dir, const std::string& name) {
    OCPP_SECTION(&m_mutex);
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
    m_path = dir + "/" + name + ".log";
    m_fd = open(m_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        m_path.clear();
        return 0;
    }
    struct stat st;
    m_size = fstat(m_fd, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
    return 1;
}

void CRotatingLogFile::Close() {
    OCPP_SECTION(&m_mutex);
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    m_path.clear();
    m_size = 0;
}

bool CRotatingLogFile::IsOpen() {
    OCPP_SECTION(&m_mutex);
    return m_fd >= 0;
}

void CRotatingLogFile::SetLimit(uint64_t limitBytes) {
    OCPP_SECTION(&m_mutex);
    m_limit = limitBytes;
}

void CRotatingLogFile::SetEchoToStdout(bool on) {
    OCPP_SECTION(&m_mutex);
    m_echo = on;
}

std::string CRotatingLogFile::Path() {
    OCPP_SECTION(&m_mutex);
    return m_path;
}

std::string CRotatingLogFile::RotatedName(int index) const { return m_path + "." + std::to_string(index); }

void CRotatingLogFile::RotateLocked() {
    close(m_fd);
    m_fd = -1;
    // Oldest first, so each rename only ever replaces a file that is going away anyway.
    for (int i = m_keep - 1; i > 0; --i) rename(RotatedName(i - 1).c_str(), RotatedName(i).c_str());
    if (m_keep > 0)
        rename(m_path.c_str(), RotatedName(0).c_str());
    else
        unlink(m_path.c_str());
    m_fd = open(m_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    m_size = 0;
    if (m_fd >= 0) {
        struct stat st;
        if (fstat(m_fd, &st) == 0) m_size = static_cast<uint64_t>(st.st_size);
    }
}

int CRotatingLogFile::Write(const char* text) {
    if (text == nullptr) return 0;
    std::string line(text);
    line += '\n';
    OCPP_SECTION(&m_mutex);
    if (m_echo) {
        fwrite(line.data(), 1, line.size(), stdout);
        fflush(stdout);
    }
    if (m_fd < 0) return 0;
    if (m_size > 0 && m_size + line.size() > m_limit) {
        RotateLocked();
        if (m_fd < 0) return 0;
    }
    if (!WriteAll(m_fd, line.data(), line.size())) return 0;
    m_size += line.size();
    return 1;
}
