#pragma once
#include <pthread.h>

#include <cstdint>
#include <string>
#include <vector>

#include <OcppVariables.h>

#include "Util/JsonStore.h"
#include "Util/Singleton.h"

namespace Json {
class Value;
}

namespace Ocpp20 {
// DataEnumType order.
enum VARIABLECHARACTERDATATYPE {
    VARIABLECHARACTERDATATYPE_STRING = 0,
    VARIABLECHARACTERDATATYPE_DECIMAL = 1,
    VARIABLECHARACTERDATATYPE_INTEGER = 2,
    VARIABLECHARACTERDATATYPE_DATETIME = 3,
    VARIABLECHARACTERDATATYPE_BOOLEAN = 4,
    VARIABLECHARACTERDATATYPE_OPTIONLIST = 5,
    VARIABLECHARACTERDATATYPE_SEQUENCELIST = 6,
    VARIABLECHARACTERDATATYPE_MEMBERLIST = 7
};
}  // namespace Ocpp20

// Which of the two limits a record carries.
enum LIMITFALG { LIMITFALG_NONE = 0, LIMITFALG_MIN = 1, LIMITFALG_MAX = 2, LIMITFALG_BOTH = 3 };

struct VariableCharacteristics {
    char componentName[51] = {};
    char variableName[51] = {};
    char componentInstance[51] = {};
    char variableInstance[51] = {};
    uint8_t evseId = 0;
    uint8_t connectorId = 0;
    char unit[17] = {};
    int32_t dataType = Ocpp20::VARIABLECHARACTERDATATYPE_STRING;
    float minLimit = 0;
    float maxLimit = 0;
    int32_t limitFlag = LIMITFALG_NONE;
    char valuesList[1001] = {};
    int32_t notSupportsMonitoring = 0;

    bool IsSame(const VariableCharacteristics& other) const;
    void AppendJson(std::string& out) const;  // keys in the file's order
    bool FromJson(const Json::Value& in);
    static VariableCharacteristics FromPublic(const VariableDataItem& in);
    void ToPublic(VariableDataItem& out) const;
};

// Per-variable characteristics (unit, type, limits, allowed values) and the
// check every value written by SetVariables goes through.
class CVariableCharacteristics : public CJsonStore, public CSingleton<CVariableCharacteristics> {
public:
    static const int kMaxRecords = 3000;

    void InitDefault();
    int CheckFromDefault();
    int SyncFromFile() override;

    bool GetVariableCharacteristics(VariableCharacteristics& out, const char* component, const char* variable,
                                    const char* componentInstance, const char* variableInstance, int evseId,
                                    int connectorId);
    int GetVariableDataType(const char* component, const char* variable, const char* componentInstance,
                            const char* variableInstance, int evseId, int connectorId);
    int GetVariableMaxLimit(float& value, const char* component, const char* variable, const char* componentInstance,
                            const char* variableInstance, int evseId, int connectorId);
    int GetVariableMinLimit(float& value, const char* component, const char* variable, const char* componentInstance,
                            const char* variableInstance, int evseId, int connectorId);

    int AddVariableCharacteristics(const VariableDataItem& publicVariable);
    int UpgradeCharacteristics(const VariableUpgradeItem& upgradeItem);

    // 1 = the value may be written, 0 = refused.
    int CheckCharacteristics(const char* value, const char* component, const char* variable,
                             const char* variableInstance, const char* componentInstance, int evseId,
                             int connectorId);
    static bool IsExceedStringLengthLimit(const char* value, float minLimit, float maxLimit, int limitFlag);
    static bool IsSubsetOfSubstrings(const char* value, const char* valuesList, int dataType);

    // Converts a document of the older layout in place; true when something changed.
    static bool JudgeDataMigrate(Json::Value& root);

    std::vector<VariableCharacteristics> GetAll();

private:
    friend class CSingleton<CVariableCharacteristics>;
    CVariableCharacteristics();
    ~CVariableCharacteristics() override;
    CVariableCharacteristics(const CVariableCharacteristics&) = delete;
    CVariableCharacteristics& operator=(const CVariableCharacteristics&) = delete;

    int LoadDefault();
    // Caller holds m_mutex.
    const VariableCharacteristics* Find(const VariableCharacteristics& key) const;
    std::string BuildImage() override;
    void ResetInPlace();

    pthread_mutex_t m_mutex;
    std::vector<VariableCharacteristics> m_defaults;
    std::vector<VariableCharacteristics> m_items;
};
