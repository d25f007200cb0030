#include "Util/ZipUtil.h"

#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Util/Tools.h"

namespace {
const size_t kBlock = 512;

void Octal(char* field, size_t width, unsigned long long value) {
    // width - 1 digits, zero padded, then NUL.
    snprintf(field, width, "%0*llo", static_cast<int>(width - 1), value);
}

bool GzWriteAll(gzFile gz, const char* data, size_t len) {
    while (len > 0) {
        const unsigned chunk = len > 65536 ? 65536u : static_cast<unsigned>(len);
        const int n = gzwrite(gz, data, chunk);
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}
}  // namespace

int CZipUtil::TarGzFile(const std::string& srcPath, const std::string& destPath, const std::string& nameInArchive) {
    if (nameInArchive.empty() || nameInArchive.size() > 99) return 0;
    const int fd = open(srcPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        close(fd);
        return 0;
    }
    const unsigned long long size = static_cast<unsigned long long>(st.st_size);

    char header[kBlock];
    memset(header, 0, sizeof header);
    memcpy(header, nameInArchive.data(), nameInArchive.size());
    Octal(header + 100, 8, 0644);
    Octal(header + 108, 8, 0);
    Octal(header + 116, 8, 0);
    Octal(header + 124, 12, size);
    Octal(header + 136, 12, static_cast<unsigned long long>(CTools::CurTimeSec()));
    header[156] = '0';
    memcpy(header + 257, "ustar", 6);
    memcpy(header + 263, "00", 2);
    memset(header + 148, ' ', 8);
    unsigned sum = 0;
    for (size_t i = 0; i < kBlock; ++i) sum += static_cast<unsigned char>(header[i]);
    snprintf(header + 148, 7, "%06o", sum);
    header[155] = ' ';

    gzFile gz = gzopen(destPath.c_str(), "wb");
    if (gz == nullptr) {
        close(fd);
        return 0;
    }
    bool ok = GzWriteAll(gz, header, kBlock);
    unsigned long long copied = 0;
    char buf[16384];
    while (ok && copied < size) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        // The file may have grown since fstat; the header promised `size` bytes.
        size_t take = static_cast<size_t>(n);
        if (copied + take > size) take = static_cast<size_t>(size - copied);
        ok = GzWriteAll(gz, buf, take);
        copied += take;
    }
    close(fd);
    if (ok && copied != size) ok = false;
    if (ok) {
        const size_t pad = static_cast<size_t>((kBlock - size % kBlock) % kBlock);
        char zeros[kBlock * 2];
        memset(zeros, 0, sizeof zeros);
        ok = (pad == 0 || GzWriteAll(gz, zeros, pad)) && GzWriteAll(gz, zeros, sizeof zeros);
    }
    if (gzclose(gz) != Z_OK) ok = false;
    if (!ok) unlink(destPath.c_str());
    return ok ? 1 : 0;
}
