#include "FuzzSupport.h"

#include <OcppProtocol.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace fuzzsupport {
namespace {

void RemoveCacheDir();

std::string MakeCacheDir() {
    // In memory where there is such a file system: every store write ends in an fsync.
    char shm[] = "/dev/shm/ocpp-fuzz-XXXXXX";
    char tmp[] = "/tmp/ocpp-fuzz-XXXXXX";
    const char* made = mkdtemp(shm);
    if (made == nullptr) made = mkdtemp(tmp);
    if (made == nullptr) {
        perror("mkdtemp");
        abort();
    }
    std::atexit(RemoveCacheDir);
    return made;
}

void RemoveCacheDir() {
    const std::string command = "rm -rf '" + CacheDir() + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", CacheDir().c_str());
}

void Quiet(LOGLEVEL, const char*, const char*, int, const char*) {}

}  // namespace

const std::string& CacheDir() {
    // Never destroyed: the exit handler that removes the folder still needs its name.
    static const std::string* dir = new std::string(MakeCacheDir());
    return *dir;
}

void WriteFile(const std::string& path, const unsigned char* data, size_t size) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) {
        perror(path.c_str());
        abort();
    }
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n <= 0) abort();
        done += static_cast<size_t>(n);
    }
    close(fd);
}

void SilenceLog() { OcppProtocol_SetLog(&Quiet); }

}  // namespace fuzzsupport
