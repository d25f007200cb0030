#include "FuzzSupport.h"

#include <OcppProtocol.h>

#include <cstdio>
#include <cstdlib>

namespace fuzzsupport {
namespace {

void RemoveCacheDir() {
    const std::string command = "rm -rf '" + CacheDir() + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", CacheDir().c_str());
}

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

void Quiet(LOGLEVEL, const char*, const char*, int, const char*) {}

}  // namespace

const std::string& CacheDir() {
    // Never destroyed: the exit handler that removes the folder still needs its name.
    static const std::string* dir = new std::string(MakeCacheDir());
    return *dir;
}

void WriteFile(const std::string& path, const unsigned char* data, size_t size) {
    FILE* file = fopen(path.c_str(), "wb");
    if (file == nullptr || fwrite(data, 1, size, file) != size || fclose(file) != 0) {
        perror(path.c_str());
        abort();
    }
}

void SilenceLog() { OcppProtocol_SetLog(&Quiet); }

}  // namespace fuzzsupport
