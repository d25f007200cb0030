#pragma once
#include <pthread.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Ocpp20/Process/VariableDataItem20.h"
#include "Util/Singleton.h"

// One entry of a written LocalAuthListCtrlr.ListContent value.
struct CustomTokenItem {
    char idToken[37];
    int32_t type;            // IdTokenEnumType order, -1 unknown
    int32_t status;          // AuthorizationStatusEnumType order, -1 unknown
    char groupIdToken[37];
    int64_t expiryDateTime;  // epoch seconds, -1 when absent or invalid
};

// Variables computed on demand instead of stored in the cache.
class CVariableCustom : public CSingleton<CVariableCustom> {
public:
    void Init();
    bool IsCustomVariable(const VariableDataItem20& variable);
    std::string GetCustomVariable(const VariableDataItem20& variable);
    // Applies a written value; 1 when it was taken, 0 when it changes nothing.
    int SetCustomVariable(const VariableDataItem20& variable);

    // Parses a ListContent value; false when it is not a JSON array.
    static bool ParseTokenList(const std::string& text, std::vector<CustomTokenItem>& items);

    static int GetTokenTypeInInt(const std::string& name);
    static std::string GetTokenTypeInString(int type);
    static int GetTokenStatusInInt(const std::string& name);
    static std::string GetTokenStatusInString(int status);

private:
    friend class CSingleton<CVariableCustom>;
    CVariableCustom();
    ~CVariableCustom();
    CVariableCustom(const CVariableCustom&) = delete;
    CVariableCustom& operator=(const CVariableCustom&) = delete;
    void ResetInPlace() { Init(); }

    pthread_mutex_t m_mutex;
    std::vector<VariableDataItem20> m_custom;
};
