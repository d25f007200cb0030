#include "Util/FileUtil.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int CFileUtil::CanWriteDir(const std::string& dir) {
    if (dir.empty()) return 0;
    struct stat st;
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return 0;
    return access(dir.c_str(), W_OK | X_OK) == 0 ? 1 : 0;
}

bool CFileUtil::Exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string CFileUtil::DirName(const std::string& path) {
    const size_t pos = path.find_last_of('/');
    if (pos == std::string::npos) return ".";
    if (pos == 0) return "/";
    return path.substr(0, pos);
}

bool CFileUtil::WriteFileAtomic(const std::string& path, const std::string& content, const std::string& tmpSuffix) {
    const std::string tmp = path + tmpSuffix;
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            close(fd);
            unlink(tmp.c_str());
            return false;
        }
        done += static_cast<size_t>(n);
    }
    if (fsync(fd) != 0) {
        close(fd);
        unlink(tmp.c_str());
        return false;
    }
    close(fd);
    if (renameat(AT_FDCWD, tmp.c_str(), AT_FDCWD, path.c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    // Make the rename itself durable.
    const int dfd = open(DirName(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return true;
}

bool CFileUtil::ReadFile(const std::string& path, std::string& content) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    content.clear();
    char buf[8192];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0) {
            if (errno == EINTR) continue;
            close(fd);
            return false;
        }
        if (n == 0) break;
        content.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

int CFileUtil::MakeDirs(const std::string& dir) {
    if (dir.empty()) return 0;
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        partial = dir.substr(0, pos);
        if (partial.empty()) continue;
        if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return 0;
    }
    return 1;
}
