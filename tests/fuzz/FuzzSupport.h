#pragma once
// What every fuzz target shares: a cache folder of its own (in /dev/shm) and a
// quiet log, so a campaign neither litters the disk nor spends its time printing.
#include <string>

namespace fuzzsupport {

// Created on first use, removed when the process ends.
const std::string& CacheDir();
// Writes `size` bytes to `path`, replacing it.
void WriteFile(const std::string& path, const unsigned char* data, size_t size);
// Drops the library's log lines.
void SilenceLog();

}  // namespace fuzzsupport
