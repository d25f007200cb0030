#pragma once
#include <cstdint>
#include <string>

#include <OcppVariables.h>

namespace Json {
class Value;
}

// One row of the built-in register: a variable the library operates itself.
struct VariableItemRegister {
    char componentName[51];
    char variableName[51];
    int32_t mode;
    char variableInstance[51];
    char defaultValue[129];
    int32_t attributeType;
    int32_t constant;
};

// One device-model variable attribute. Plain and fixed-size: copied by value.
struct VariableDataItem20 {
    int32_t status = 0;          // VARIABLESTATUS of the last check
    int32_t mode = VARIABLEMODE_READWRITE;
    int32_t attributeType = VARIABLEATTRIBUTETYPE_ACTUAL;
    int32_t notPersistent = 0;
    int32_t constant = 0;
    uint8_t evseId = 0;
    uint8_t connectorId = 0;
    char attributeValue[1001] = {};
    char componentName[51] = {};
    char variableName[51] = {};
    char componentInstance[51] = {};
    char variableInstance[51] = {};

    // this = stored record, other = query.
    bool IsSameVariable(const VariableDataItem20& other, int exact) const;
    bool IsSameVariable(const VariableItemRegister* row) const;
    bool IsSameComponent(const VariableDataItem20& other) const;
    std::string ToString() const;

    // Appends the stored object, keys in the file's order.
    void AppendJson(std::string& out) const;
    // Fills the record from one stored object; false when it is not an object.
    bool FromJson(const Json::Value& in);

    // Public record <-> internal record; text fields are cut to their widths.
    static VariableDataItem20 FromPublic(const VariableDataItem& in);
    void ToPublic(VariableDataItem& out) const;  // leaves the characteristics fields as they are

    static VariableDataItem20 Make(const char* component, const char* variable, const char* variableInstance = "",
                                   int attributeType = VARIABLEATTRIBUTETYPE_ACTUAL);
};
