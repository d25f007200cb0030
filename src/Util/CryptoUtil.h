#pragma once
#include <string>

class CCryptoUtil {
public:
    // Lowercase hexadecimal SHA-256 digest (64 characters).
    static std::string GenSha256(const std::string& data);
};
