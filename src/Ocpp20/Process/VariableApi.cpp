// Host entries for device-model variables.
#include <OcppVariables.h>

#include <cstring>
#include <vector>

#include "Ocpp20/Process/VariableCache.h"
#include "Ocpp20/Process/VariableCharacteristics.h"
#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Util/Tools.h"

namespace {

// Hooks to blocks that are not in this library build yet.
// The negotiated protocol; until the SDK core keeps it, the 2.0.1 stores serve every call.
bool IsOcpp16Selected() { return false; }
void NotifyMonitorOnlyWrite(const std::vector<VariableDataItem20>& /*variables*/) {}

// The library's own variables are on the flash before the CSMS hears Accepted, so a
// station that loses power right after answering comes back with the value it
// confirmed. What cannot be written is answered Rejected. The host's own variables
// are stored after the answer, as the host decided them.
void StoreOwnBeforeAnswer(std::vector<VariableDataItem>& settled) {
    CVariableCache* cache = CVariableCache::GetInstance();
    std::vector<size_t> own;
    std::vector<VariableDataItem20> values;
    for (size_t i = 0; i < settled.size(); ++i) {
        if (settled[i].status != VARIABLESTATUS_ACCEPTED) continue;
        const VariableDataItem20 item = VariableDataItem20::FromPublic(settled[i]);
        if (cache->IsProtocolSdkOpt(item) == 0) continue;
        own.push_back(i);
        values.push_back(item);
    }
    if (own.empty() || cache->SetVariablesDurably(values) == 1) return;
    for (size_t i : own) {
        VariableDataItem& entry = settled[i];
        LOG_ERROR("SetVariables %.50s.%.50s not stored, answered Rejected", entry.componentName, entry.variableName);
        entry.status = static_cast<int8_t>(VARIABLESTATUS_REJECTED);
    }
}

}  // namespace

int OcppProtocol_SetVariableData(int count, const VariableDataItem* items, int fromResponse) {
    if (count < 0 || (count > 0 && items == nullptr)) return 0;
    std::vector<VariableDataItem20> kept;
    for (int i = 0; i < count; ++i) {
        if (items[i].status != VARIABLESTATUS_ACCEPTED) continue;
        kept.push_back(VariableDataItem20::FromPublic(items[i]));
        if (IsOcpp16Selected()) {
            const VariableDataItem20& v = kept.back();
            LOG_INFO("ComponentName = %s, VariableName = %s, AttributeValue = %s", v.componentName, v.variableName,
                     v.attributeValue);
        } else if (fromResponse == 0) {
            CVariableCharacteristics::GetInstance()->AddVariableCharacteristics(items[i]);
        }
    }
    if (IsOcpp16Selected()) return 1;
    const int rc = CVariableCache::GetInstance()->SetVariables(kept);
    if (rc == 1) NotifyMonitorOnlyWrite(kept);
    return rc;
}

int OcppProtocol_SetVariables(const char* messageId, int count, const VariableDataItem* items) {
    if (count < 0 || (count > 0 && items == nullptr)) return 0;
    // The host decides only its own variables; the library's verdicts stand, so
    // nothing it refused can reach the store through the answer.
    std::vector<VariableDataItem> settled = Ocpp20Protocol_SettleSetVariables(messageId, count, items);
    StoreOwnBeforeAnswer(settled);
    const int sent = Ocpp20Protocol_SendSetVariablesResponse(messageId, settled);
    const int stored = OcppProtocol_SetVariableData(count, settled.data(), 1);
    return sent == 1 && stored == 1 ? 1 : 0;
}

int OcppProtocol_GetVariableData(const VariableDataItem* query, int option, int* count, VariableDataItem* out) {
    if (query == nullptr || count == nullptr || *count < 0) return 0;
    const int capacity = out != nullptr ? *count : 0;
    const VariableDataItem20 q = VariableDataItem20::FromPublic(*query);
    const std::vector<VariableDataItem20> found = CVariableCache::GetInstance()->GetVariables(q, option == 1 ? 1 : 0);
    CVariableCharacteristics* characteristics = CVariableCharacteristics::GetInstance();
    for (int i = 0; i < capacity && i < static_cast<int>(found.size()); ++i) {
        VariableDataItem record;
        memset(&record, 0, sizeof record);
        const VariableDataItem20& v = found[static_cast<size_t>(i)];
        v.ToPublic(record);
        VariableCharacteristics c;
        if (characteristics->GetVariableCharacteristics(c, v.componentName, v.variableName, v.componentInstance,
                                                        v.variableInstance, v.evseId, v.connectorId))
            c.ToPublic(record);
        else
            record.supportsMonitoring = 1;
        memcpy(&out[i], &record, sizeof record);
    }
    *count = static_cast<int>(found.size());
    return 1;
}

int OcppProtocol_UpdateVariableValue(const VariableDataItem* variable, const char* value) {
    if (variable == nullptr || value == nullptr) return VARIABLESTATUS_REJECTED;
    VariableDataItem20 item = VariableDataItem20::FromPublic(*variable);
    CTools::CopyField(item.attributeValue, value);
    return CVariableCache::GetInstance()->UpdateVariableValue(item);
}

int OcppProtocol_UpgrageVariableData(int count, const VariableUpgradeItem* items) {
    if (count < 0 || (count > 0 && items == nullptr)) return 0;
    for (int i = 0; i < count; ++i) {
        CVariableCache::GetInstance()->UpgradeVariable(items[i]);
        CVariableCharacteristics::GetInstance()->UpgradeCharacteristics(items[i]);
    }
    return 1;
}
