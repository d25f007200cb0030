// Variables the host owns: declared to the library, reported again for each CSMS store.
#include <algorithm>
#include <mutex>

#include "Sim.h"

namespace sim {

VariableDataItem ItemFromJson(const Json::Value& j) {
    VariableDataItem item;
    std::memset(&item, 0, sizeof item);
    item.evseId = static_cast<uint8_t>(j.get("evse", 0).asInt());
    item.connectorId = static_cast<uint8_t>(j.get("connector", 0).asInt());
    item.status = VARIABLESTATUS_ACCEPTED;
    item.mode = static_cast<int8_t>(IndexOf({"ReadWrite", "ReadOnly", "WriteOnly"}, j.get("mode", "").asString(), 0));
    item.attributeType =
        static_cast<int8_t>(IndexOf({"Actual", "Target", "MinSet", "MaxSet"}, j.get("attributeType", "").asString(), 0));
    item.constant = static_cast<int8_t>(j.get("constant", false).asBool());
    item.notPersistent = static_cast<int8_t>(!j.get("persistent", true).asBool());
    Fill(item.attributeValue, j, "value");
    Fill(item.componentName, j, "component");
    Fill(item.variableName, j, "variable");
    Fill(item.componentInstance, j, "componentInstance");
    Fill(item.variableInstance, j, "variableInstance");
    Fill(item.unit, j, "unit");
    item.dataType = static_cast<int8_t>(IndexOf({"string", "decimal", "integer", "dateTime", "boolean", "OptionList",
                                                 "SequenceList", "MemberList"},
                                                j.get("dataType", "").asString(), 0));
    Fill(item.valuesList, j, "valuesList");
    item.supportsMonitoring = 1;
    return item;
}

Json::Value ItemToJson(const VariableDataItem& item) {
    Json::Value v(Json::objectValue);
    v["component"] = Text(item.componentName);
    v["variable"] = Text(item.variableName);
    if (item.componentInstance[0] != '\0') v["componentInstance"] = Text(item.componentInstance);
    if (item.variableInstance[0] != '\0') v["variableInstance"] = Text(item.variableInstance);
    v["evse"] = item.evseId;
    v["connector"] = item.connectorId;
    v["value"] = Text(item.attributeValue);
    v["mode"] = item.mode;
    v["attributeType"] = item.attributeType;
    return v;
}

Json::Value GetVariableData(const Json::Value& cmd) {
    const VariableDataItem query = ItemFromJson(cmd);
    int count = 16;
    std::vector<VariableDataItem> out(static_cast<size_t>(count));
    Json::Value list(Json::arrayValue);
    if (OcppProtocol_GetVariableData(&query, cmd.get("exact", 1).asInt(), &count, out.data()) == 1)
        for (int i = 0; i < count && i < static_cast<int>(out.size()); ++i) list.append(ItemToJson(out[static_cast<size_t>(i)]));
    return list;
}

bool SameVariable(const VariableDataItem& a, const VariableDataItem& b) {
    return Text(a.componentName) == Text(b.componentName) && Text(a.variableName) == Text(b.variableName) &&
           Text(a.componentInstance) == Text(b.componentInstance) &&
           Text(a.variableInstance) == Text(b.variableInstance) && a.evseId == b.evseId &&
           a.connectorId == b.connectorId && a.attributeType == b.attributeType;
}

// Variables the host declared (the station identity first: the library builds its url from it).
// Each CSMS has its own store, so they are declared again whenever the library asks.
std::mutex g_variablesMutex;
std::vector<VariableDataItem> g_declared;

int Declare(const std::vector<VariableDataItem>& items) {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    for (const VariableDataItem& item : items) {
        auto it = std::find_if(g_declared.begin(), g_declared.end(),
                               [&item](const VariableDataItem& d) { return SameVariable(d, item); });
        if (it == g_declared.end())
            g_declared.push_back(item);
        else
            *it = item;
    }
    return OcppProtocol_SetVariableData(static_cast<int>(items.size()), items.data(), 0);
}

// Values the CSMS set on host-owned variables survive the next report.
void Remember(const std::vector<VariableDataItem>& accepted) {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    for (const VariableDataItem& item : accepted)
        for (VariableDataItem& d : g_declared)
            if (SameVariable(d, item)) std::memcpy(d.attributeValue, item.attributeValue, sizeof d.attributeValue);
}

void ReportVariables() {
    std::lock_guard<std::mutex> lock(g_variablesMutex);
    if (OcppProtocol_SetVariableData(static_cast<int>(g_declared.size()), g_declared.data(), 0) == 1)
        OcppProtocol_SetNeedReportVariables(0);
}

void DeclareIdentity() {
    Json::Value j(Json::objectValue);
    j["component"] = "SecurityCtrlr";
    j["variable"] = "Identity";
    j["value"] = g_opt.identity;
    j["mode"] = "ReadOnly";
    Declare({ItemFromJson(j)});
}

int SetVariableData(const Json::Value& cmd) {
    std::vector<VariableDataItem> items;
    for (const Json::Value& j : cmd["items"]) items.push_back(ItemFromJson(j));
    if (items.empty()) return 0;
    if (cmd.get("fromResponse", 0).asInt() == 1)
        return OcppProtocol_SetVariableData(static_cast<int>(items.size()), items.data(), 1);
    return Declare(items);
}

}  // namespace sim
