// The device-model handlers of the action table: GetVariables and SetVariables.
#include <OcppProtocol.h>
#include <pthread.h>

#include <cstring>
#include <deque>
#include <string>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OutboundSender.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "Util/CriticalSectionManager.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

// A SetVariables request the host has not answered yet.
struct PendingSet {
    std::string messageId;
    std::vector<int> statuses;  // the library's verdict per entry
};
// The oldest fall off, as their CALLs have long timed out.
const size_t kMaxPending = 16;
pthread_mutex_t g_pendingLock = PTHREAD_MUTEX_INITIALIZER;
std::deque<PendingSet> g_pending;

// Absent or negative ids mean station or EVSE level.
uint8_t Id(bool present, int32_t id) { return present && id > 0 ? static_cast<uint8_t>(id) : 0; }

// Absent is Actual; a text outside the list stays unmatchable (-1) and is answered as such.
int32_t AttributeType(const std::string& text) {
    return text.empty() ? VARIABLEATTRIBUTETYPE_ACTUAL : models::GetAttributeInInt(text);
}

VariableDataItem20 Query(const models::component_t& component, const models::variable_t& variable,
                         const std::string& attributeType) {
    VariableDataItem20 item;
    item.attributeType = AttributeType(attributeType);
    item.evseId = Id(component.evse_present, component.evse.id);
    item.connectorId = Id(component.evse_present && component.evse.connectorId_present, component.evse.connectorId);
    CTools::CopyField(item.componentName, component.name);
    CTools::CopyField(item.componentInstance, component.instance);
    CTools::CopyField(item.variableName, variable.name);
    CTools::CopyField(item.variableInstance, variable.instance);
    return item;
}

template <size_t N>
std::string Field(const char (&text)[N]) {
    return std::string(text, strnlen(text, N));
}

void Describe(models::component_t& component, models::variable_t& variable, int evseId, int connectorId,
              const std::string& componentName, const std::string& componentInstance,
              const std::string& variableName, const std::string& variableInstance) {
    component.name = componentName;
    component.instance = componentInstance;
    if (evseId > 0) {
        component.evse_present = true;
        component.evse.id = evseId;
        component.evse.id_present = true;
        if (connectorId > 0) {
            component.evse.connectorId = connectorId;
            component.evse.connectorId_present = true;
        }
    }
    variable.name = variableName;
    variable.instance = variableInstance;
}

}  // namespace

void Ocpp20Protocol_OnSetVariablesRequest(const char* messageId, const models::setVariablesRequest_t& request,
                                          int len) {
    CVariableCache* cache = CVariableCache::GetInstance();
    const int count = static_cast<int>(request.setVariableData.size());
    const int maxItems = cache->DeviceDataCtrlrItemsPerMessageSetVariables();
    const int maxBytes = cache->DeviceDataCtrlrBytesPerMessageSetVariables();
    if (count > maxItems || len > maxBytes) {
        LOG_INFO("Too many variables:%d max:%d or SetVariablesReques bytes:%d over config:%d\n", count, maxItems, len,
                 maxBytes);
        OcppProtocol_ResponseError(messageId, RESPONSEERRORCODE_OCCURRENCECONSTRAINTVIOLATION, "", "{}");
        return;
    }

    // Variable length: the head, then one public variable record per entry.
    std::vector<char> block(sizeof(SetVariablesReq) + sizeof(VariableDataItem) * static_cast<size_t>(count), 0);
    LOG_INFO("iVariableDataSize = %d", count);
    SetVariablesReq head;
    std::memset(&head, 0, sizeof head);
    head.base.type = SERVERRECVTYPE_SETVARIABLES;
    CTools::CopyField(head.base.messageId, messageId != nullptr ? messageId : "");
    head.count = count;
    std::memcpy(block.data(), &head, sizeof head);

    PendingSet pending;
    pending.messageId = messageId != nullptr ? messageId : "";
    for (int i = 0; i < count; ++i) {
        const models::setVariableData_t& entry = request.setVariableData[static_cast<size_t>(i)];
        VariableDataItem20 item = Query(entry.component, entry.variable, entry.attributeType);
        CTools::CopyField(item.attributeValue, entry.attributeValue);
        cache->CheckSetVariable(item);
        pending.statuses.push_back(item.status);
        VariableDataItem record;
        std::memset(&record, 0, sizeof record);
        item.ToPublic(record);
        std::memcpy(block.data() + sizeof head + sizeof record * static_cast<size_t>(i), &record, sizeof record);
    }
    {
        OCPP_SECTION(&g_pendingLock);
        if (g_pending.size() >= kMaxPending) g_pending.pop_front();
        g_pending.push_back(pending);
    }
    CMessageCallBack::GetInstance()->OnMessage(block.data(), static_cast<unsigned int>(block.size()), 0);
}

std::vector<VariableDataItem> Ocpp20Protocol_SettleSetVariables(const char* messageId, int count,
                                                                const VariableDataItem* items) {
    std::vector<VariableDataItem> settled;
    if (count <= 0 || items == nullptr) return settled;
    settled.assign(items, items + count);
    std::vector<int> decided;
    {
        OCPP_SECTION(&g_pendingLock);
        const std::string id = messageId != nullptr ? messageId : "";
        for (auto it = g_pending.begin(); it != g_pending.end(); ++it) {
            if (it->messageId != id) continue;
            decided = it->statuses;
            g_pending.erase(it);
            break;
        }
    }
    // A count that does not match the request cannot be lined up with it: the host's word stands.
    if (decided.size() != settled.size()) decided.assign(settled.size(), VARIABLESTATUS_HOSTDECIDE);
    for (size_t i = 0; i < settled.size(); ++i) {
        if (decided[i] != VARIABLESTATUS_HOSTDECIDE) settled[i].status = static_cast<int8_t>(decided[i]);
        if (settled[i].status < VARIABLESTATUS_ACCEPTED || settled[i].status > VARIABLESTATUS_REBOOTREQUIRED)
            settled[i].status = VARIABLESTATUS_REJECTED;
    }
    return settled;
}

int Ocpp20Protocol_SendSetVariablesResponse(const char* messageId, const std::vector<VariableDataItem>& items) {
    models::setVariablesResponse_t answer;
    for (const VariableDataItem& item : items) {
        models::setVariableResult_t result;
        result.attributeType = models::GetAttributeInString(item.attributeType);
        result.attributeStatus = models::GetSetVariableStatusInString(item.status);
        result.component_present = true;
        result.variable_present = true;
        Describe(result.component, result.variable, item.evseId, item.connectorId, Field(item.componentName),
                 Field(item.componentInstance), Field(item.variableName), Field(item.variableInstance));
        answer.setVariableResult.push_back(result);
    }
    const std::string frame = COcppProtocol20::SetVariables(messageId, answer);
    if (frame.empty()) return 0;
    return COutboundSender::Send(OUTBOUNDKIND_ANSWER, frame).result;
}

void Ocpp20Protocol_OnGetVariablesRequest(const char* messageId, const models::getVariablesRequest_t& request,
                                          int len) {
    CVariableCache* cache = CVariableCache::GetInstance();
    const int count = static_cast<int>(request.getVariableData.size());
    const int maxItems = cache->DeviceDataCtrlrItemsPerMessageGetVariables();
    const int maxBytes = cache->DeviceDataCtrlrBytesPerMessageGetVariables();
    if (count > maxItems) {
        LOG_INFO("GetVariables count:%d over config:%d or byte:%d over config:%d", count, maxItems, len, maxBytes);
        OcppProtocol_ResponseError(messageId, RESPONSEERRORCODE_OCCURRENCECONSTRAINTVIOLATION, "", "{}");
        return;
    }
    if (len > maxBytes) {
        LOG_INFO("GetVariables BufferLen: %d over config: %d\n", len, maxBytes);
        OcppProtocol_ResponseError(messageId, RESPONSEERRORCODE_FORMATVIOLATION, "", "{}");
        return;
    }

    std::vector<VariableDataItem20> queries;
    queries.reserve(request.getVariableData.size());
    for (const models::getVariableData_t& entry : request.getVariableData)
        queries.push_back(Query(entry.component, entry.variable, entry.attributeType));
    const std::vector<VariableDataItem20> found = cache->AnswerGetVariables(queries);

    models::getVariablesResponse_t answer;
    for (const VariableDataItem20& item : found) {
        models::getVariableResult_t result;
        result.attributeStatus = models::GetGetVariableStatusInString(item.status);
        result.attributeType = models::GetAttributeInString(item.attributeType);
        if (item.status == VARIABLESTATUS_ACCEPTED) result.attributeValue = Field(item.attributeValue);
        result.component_present = true;
        result.variable_present = true;
        Describe(result.component, result.variable, item.evseId, item.connectorId, Field(item.componentName),
                 Field(item.componentInstance), Field(item.variableName), Field(item.variableInstance));
        answer.getVariableResult.push_back(result);
    }
    // The schema wants at least one result; the request had at least one entry.
    if (answer.getVariableResult.empty()) return;
    const std::string out = COcppProtocol20::GetVariables(messageId, answer);
    if (!out.empty()) COutboundSender::Send(OUTBOUNDKIND_ANSWER, out);
}

void Ocpp20Protocol_ClearPendingSetVariables() {
    OCPP_SECTION(&g_pendingLock);
    g_pending.clear();
}
