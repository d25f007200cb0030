#pragma once
#include <string>

// The device model's variables and their stored values.
class CVariableCache {
public:
    static CVariableCache* GetInstance();
    static void Release();

    int SetStoreFile(const std::string& path);
    // OCPPCommCtrlr.OfflineThreshold, seconds.
    int OCPPCommCtrlrOfflineThreshold();

private:
    CVariableCache() = default;
    ~CVariableCache() = default;

    static CVariableCache* s_instance;
};
