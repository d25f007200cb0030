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

namespace {

// 0 on success, else errno (0 kept for a write that made no progress).
int WriteAll(int fd, const std::string& content, int* err) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *err = n < 0 ? errno : 0;
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

void SyncDir(const std::string& dir) {
    const int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
}

// strict: a failed fsync aborts the replace and a failed rename removes the temporary file.
FileWriteResult Replace(const std::string& path, const std::string& content, const std::string& tmpSuffix,
                        bool strict) {
    FileWriteResult r;
    const std::string tmp = path + tmpSuffix;
    const int fd = openat(AT_FDCWD, tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        r.failedStep = FileWriteResult::kOpen;
        r.err = errno;
        return r;
    }
    if (WriteAll(fd, content, &r.err) != 0) {
        r.failedStep = FileWriteResult::kWrite;
        close(fd);
        unlink(tmp.c_str());
        return r;
    }
    if (fsync(fd) != 0) {
        r.fsyncErr = errno != 0 ? errno : EIO;
        if (strict) {
            r.failedStep = FileWriteResult::kFsync;
            r.err = r.fsyncErr;
            close(fd);
            unlink(tmp.c_str());
            return r;
        }
    }
    close(fd);
    if (renameat(AT_FDCWD, tmp.c_str(), AT_FDCWD, path.c_str()) != 0) {
        r.failedStep = FileWriteResult::kRename;
        r.err = errno;
        if (strict) unlink(tmp.c_str());
        return r;
    }
    // Make the rename itself durable.
    SyncDir(CFileUtil::DirName(path));
    return r;
}

}  // namespace

bool CFileUtil::WriteFileAtomic(const std::string& path, const std::string& content, const std::string& tmpSuffix) {
    return Replace(path, content, tmpSuffix, true).Ok();
}

FileWriteResult CFileUtil::WriteFileAtomicEx(const std::string& path, const std::string& content,
                                             const std::string& tmpSuffix, bool strict) {
    return Replace(path, content, tmpSuffix, strict);
}

int CFileUtil::CreateIfAbsent(const std::string& path, const std::string& initialContent, int* err,
                              FileWriteResult* detail) {
    FileWriteResult local;
    FileWriteResult& r = detail != nullptr ? *detail : local;
    r = FileWriteResult();
    // O_EXCL: two stores racing for the same file must not both write it.
    const int fd = openat(AT_FDCWD, path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (errno == EEXIST) return 0;
        r.failedStep = FileWriteResult::kOpen;
        r.err = errno;
        if (err != nullptr) *err = r.err;
        return -1;
    }
    if (WriteAll(fd, initialContent, &r.err) != 0) {
        r.failedStep = FileWriteResult::kWrite;
        close(fd);
        if (err != nullptr) *err = r.err;
        return -1;
    }
    if (fsync(fd) != 0) r.fsyncErr = errno != 0 ? errno : EIO;
    close(fd);
    return 1;
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
