#include "Ocpp20/Process/VariableDataItem20.h"

#include <cstring>

#include <json/json.h>

#include "Ocpp20/Protocol/JsonText.h"
#include "Util/Tools.h"

namespace {

bool Same(const char* a, const char* b) { return strcmp(a, b) == 0; }

// Wildcard on the query side only when matching loosely.
bool SameOrWild(const char* stored, const char* query, int exact) {
    if (exact == 0 && query[0] == '\0') return true;
    return Same(stored, query);
}

int IntOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    if (v.isInt()) return v.asInt();
    if (v.isUInt()) return static_cast<int>(v.asUInt() & 0x7fffffff);
    if (v.isDouble()) {
        const double d = v.asDouble();
        return (d > -2147483648.0 && d < 2147483648.0) ? static_cast<int>(d) : 0;
    }
    return 0;
}

std::string TextOf(const Json::Value& obj, const char* key) {
    const Json::Value& v = obj[key];
    return v.isString() ? v.asString() : std::string();
}

}  // namespace

bool VariableDataItem20::IsSameVariable(const VariableDataItem20& other, int exact) const {
    if (componentName[0] != '\0' && other.componentName[0] != '\0' && !Same(componentName, other.componentName))
        return false;
    if (!SameOrWild(variableName, other.variableName, exact)) return false;
    if (exact == 1 && attributeType != other.attributeType) return false;
    if (!SameOrWild(variableInstance, other.variableInstance, exact)) return false;
    if (!SameOrWild(componentInstance, other.componentInstance, exact)) return false;
    if (exact == 1) return evseId == other.evseId && connectorId == other.connectorId;
    if (other.evseId != 0 && evseId != other.evseId) return false;
    if (other.connectorId != 0 && connectorId != other.connectorId) return false;
    return true;
}

bool VariableDataItem20::IsSameVariable(const VariableItemRegister* row) const {
    return row != nullptr && Same(componentName, row->componentName) && Same(variableName, row->variableName) &&
           Same(variableInstance, row->variableInstance);
}

bool VariableDataItem20::IsSameComponent(const VariableDataItem20& other) const {
    return Same(componentName, other.componentName) && Same(componentInstance, other.componentInstance) &&
           evseId == other.evseId;
}

std::string VariableDataItem20::ToString() const {
    return CTools::StringFormat(
        "Status:%d Mode:%d AttributeType:%d EvseID:%d ConnectorID:%d AttributeValue:%s ComponentName:%s "
        "VariableName:%s ComponentInstance:%s VariableInstance:%s\n",
        status, mode, attributeType, evseId, connectorId, attributeValue, componentName, variableName,
        componentInstance, variableInstance);
}

void VariableDataItem20::AppendJson(std::string& out) const {
    out += '{';
    CJsonText::AppendIntMember(out, "type", attributeType, true);
    CJsonText::AppendIntMember(out, "variablemode", mode);
    CJsonText::AppendStringMember(out, "value", attributeValue);
    CJsonText::AppendStringMember(out, "componentname", componentName);
    CJsonText::AppendStringMember(out, "variablename", variableName);
    CJsonText::AppendStringMember(out, "componentinstance", componentInstance);
    CJsonText::AppendStringMember(out, "variableinstance", variableInstance);
    CJsonText::AppendIntMember(out, "evseid", evseId);
    CJsonText::AppendIntMember(out, "connectorid", connectorId);
    CJsonText::AppendIntMember(out, "notpersistent", notPersistent);
    CJsonText::AppendIntMember(out, "constant", constant);
    out += '}';
}

bool VariableDataItem20::FromJson(const Json::Value& in) {
    *this = VariableDataItem20();
    if (!in.isObject()) return false;
    attributeType = IntOf(in, "type");
    mode = IntOf(in, "variablemode");
    CTools::CopyField(attributeValue, TextOf(in, "value"));
    CTools::CopyField(componentName, TextOf(in, "componentname"));
    CTools::CopyField(variableName, TextOf(in, "variablename"));
    CTools::CopyField(componentInstance, TextOf(in, "componentinstance"));
    CTools::CopyField(variableInstance, TextOf(in, "variableinstance"));
    evseId = static_cast<uint8_t>(IntOf(in, "evseid"));
    connectorId = static_cast<uint8_t>(IntOf(in, "connectorid"));
    notPersistent = IntOf(in, "notpersistent");
    constant = IntOf(in, "constant");
    status = 0;
    return true;
}

VariableDataItem20 VariableDataItem20::Make(const char* component, const char* variable, const char* variableInstance,
                                            int attributeType) {
    VariableDataItem20 item;
    CTools::CopyField(item.componentName, component);
    CTools::CopyField(item.variableName, variable);
    CTools::CopyField(item.variableInstance, variableInstance);
    item.attributeType = attributeType;
    return item;
}

VariableDataItem20 VariableDataItem20::FromPublic(const VariableDataItem& in) {
    VariableDataItem20 item;
    item.status = in.status;
    item.mode = in.mode;
    item.attributeType = in.attributeType;
    item.notPersistent = in.notPersistent;
    item.constant = in.constant;
    item.evseId = in.evseId;
    item.connectorId = in.connectorId;
    // The host's fields may lack a terminator; CopyField reads at most the field width.
    CTools::CopyField(item.attributeValue, sizeof item.attributeValue,
                      std::string(in.attributeValue, strnlen(in.attributeValue, sizeof in.attributeValue)));
    CTools::CopyField(item.componentName, std::string(in.componentName, strnlen(in.componentName, 50)));
    CTools::CopyField(item.variableName, std::string(in.variableName, strnlen(in.variableName, 50)));
    CTools::CopyField(item.componentInstance, std::string(in.componentInstance, strnlen(in.componentInstance, 50)));
    CTools::CopyField(item.variableInstance, std::string(in.variableInstance, strnlen(in.variableInstance, 50)));
    return item;
}

void VariableDataItem20::ToPublic(VariableDataItem& out) const {
    out.status = static_cast<int8_t>(status);
    out.mode = static_cast<int8_t>(mode);
    out.attributeType = static_cast<int8_t>(attributeType);
    out.notPersistent = static_cast<int8_t>(notPersistent);
    out.constant = static_cast<int8_t>(constant);
    out.evseId = evseId;
    out.connectorId = connectorId;
    CTools::CopyField(out.attributeValue, attributeValue);
    CTools::CopyField(out.componentName, componentName);
    CTools::CopyField(out.variableName, variableName);
    CTools::CopyField(out.componentInstance, componentInstance);
    CTools::CopyField(out.variableInstance, variableInstance);
}
