// Host entries that reach the charging profile stores directly.
#include <json/json.h>
#include <rapidjson/document.h>

#include <cstring>
#include <string>

#include <OcppProtocol.h>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/OutboundSender.h"
#include "SmartCharging/ChargingProfile20/ProfileCache.h"
#include "SmartCharging/ChargingProfile20/ProfileManager.h"
#include "SmartCharging/ChargingProfile21/ProfileCache.h"
#include "SmartCharging/ChargingProfile21/ProfileManager.h"
#include "SmartCharging/ProfileJson.h"
#include "Util/Tools.h"

namespace {
// The host's profile text is kept within the buffer the record of type 31 allows.
const size_t kMaxProfileText = 65534;

CProfileStore* RunningStore() {
    switch (OcppProtocol_GetOcppProtocol()) {
        case OCPPPROTOCOL_201:
            return CProfileManager20::GetInstance();
        case OCPPPROTOCOL_21:
            return CProfileManager21::GetInstance();
        default:
            return nullptr;
    }
}

CPendingProfileCache* RunningCache() {
    switch (OcppProtocol_GetOcppProtocol()) {
        case OCPPPROTOCOL_201:
            return CProfileCache20::GetInstance();
        case OCPPPROTOCOL_21:
            return CProfileCache21::GetInstance();
        default:
            return nullptr;
    }
}

// Every schedule of a stored profile, as the message models read them.
std::vector<models::chargingSchedule_t> SchedulesOf(const std::string& profileJson) {
    std::vector<models::chargingSchedule_t> out;
    rapidjson::Document doc;
    doc.Parse(profileJson.c_str(), profileJson.size());
    if (doc.HasParseError() || !doc.IsObject() || !doc.HasMember("chargingSchedule")) return out;
    const rapidjson::Value& schedules = doc["chargingSchedule"];
    try {
        if (schedules.IsArray()) {
            for (const rapidjson::Value& schedule : schedules.GetArray()) out.emplace_back(schedule);
        } else if (schedules.IsObject()) {
            out.emplace_back(schedules);
        }
    } catch (...) {
        out.clear();
    }
    return out;
}

int SendNotifyChargingLimit(int evseId, const std::string& source, const std::string& profileJson) {
    models::notifyChargingLimitRequest_t request;
    request.evseId = evseId;
    request.evseId_present = true;
    request.chargingLimit.chargingLimitSource = source;
    if (CVariableCache::GetInstance()->SmartChargingCtrlrNotifyChargingLimitWithSchedules())
        request.chargingSchedule = SchedulesOf(profileJson);
    const OutboundResult out =
        COutboundSender::Send(OUTBOUNDKIND_REQUEST, COcppProtocol20::NotifyChargingLimitReq(request));
    return out.answer != nullptr ? COcppProtocol20::NotifyChargingLimitResp(out.answer) : out.result;
}

int SendTxDefaultSchedule(int evseId) {
    const std::string profile = RunningStore()->GetCurVaildTxDefaultProfile(evseId);
    const std::vector<models::chargingSchedule_t> schedules = SchedulesOf(profile);
    if (schedules.empty()) {
        LOG_ERROR("NOT GetCurVaildTxDefaultProfile");
        return 255;
    }
    models::notifyEVChargingScheduleRequest_t request;
    request.timeBase = CTools::GetLocalTime(CTools::CurTimeSec());
    request.chargingSchedule = schedules.front();
    request.chargingSchedule_present = true;
    request.evseId = evseId;
    request.evseId_present = true;
    const OutboundResult out =
        COutboundSender::Send(OUTBOUNDKIND_EVCHARGINGSCHEDULE, COcppProtocol20::NotifyEVChargingScheduleReq(request));
    if (out.answer == nullptr) return out.result;
    int status = 0;
    return COcppProtocol20::NotifyEVChargingScheduleResp(out.answer, &status);
}
}  // namespace

int OcppProtocol_AddCharingProfile(const char* requestJson) {
    if (requestJson == nullptr) return 0;
    LOG_DEBUG("External Add ChargingProfile=>\n%s", requestJson);
    CProfileStore* store = RunningStore();
    if (store == nullptr) return 0;
    Json::Value request;
    if (!CTools::ParseJson(requestJson, strlen(requestJson), request) || !request.isObject()) {
        LOG_ERROR("ChargingProfile content error\n");
        return 0;
    }
    const Json::Value& profile = request["chargingProfile"];
    const std::string source = CProfileJson::HostSource(profile);
    std::string content = CProfileJson::Compact(profile);
    if (content.size() > kMaxProfileText) content.resize(kMaxProfileText);
    const int evseId = CProfileJson::Int(request, "evseId");
    const int result = store->AddChargingProfile(evseId, content.c_str(), "", source.c_str());
    // The 2.1 engine reports limits of its own generation.
    if (result == 1 && OcppProtocol_GetOcppProtocol() == OCPPPROTOCOL_201)
        SendNotifyChargingLimit(evseId, source, content);
    return result;
}

int OcppProtocol_RemoveCharingProfile(int evseId, CHARGINGLIMITSOURCE source) {
    if (source == CHARGINGLIMITSOURCE_CSO) return 0;
    const std::string text = models::GetChargingLimitSourceInString(static_cast<int>(source));
    CProfileStore* store = RunningStore();
    if (text.empty() || store == nullptr) return 0;
    store->RemoveChargingProfile(text.c_str());
    if (OcppProtocol_GetOcppProtocol() != OCPPPROTOCOL_201) return 1;
    const OutboundResult out = COutboundSender::Send(
        OUTBOUNDKIND_REQUEST, COcppProtocol20::ClearedChargingLimitReq(static_cast<int>(source), evseId));
    return out.answer != nullptr ? COcppProtocol20::ClearedChargingLimitResp(out.answer) : out.result;
}

int OcppProtocol_RequestChargingProfile(int evseId, ENERGYTRANSFERMODE mode, int controlMode, int departureTimeSec) {
    LOG_INFO("---RequestChargingProfile=>EvseID:%d TransferMode:%d ControlMode:%d DepartureTimeSec:%d---", evseId,
             static_cast<int>(mode), controlMode, departureTimeSec);
    // The 2.1 engine asks through its own messages.
    if (OcppProtocol_GetOcppProtocol() != OCPPPROTOCOL_201) return 0;
    if (OcppProtocol_GetStatus() != SDKSTATUS_OK) return SendTxDefaultSchedule(evseId);

    CPendingProfileCache* cache = RunningCache();
    cache->AddCacheRecord(static_cast<unsigned>(evseId));
    models::notifyEVChargingNeedsRequest_t request;
    request.evseId = evseId;
    request.evseId_present = true;
    request.chargingNeeds.requestedEnergyTransfer = models::GetEnergyTransferModeInString(static_cast<int>(mode));
    if (departureTimeSec > 0) request.chargingNeeds.departureTime = CTools::GetLocalTime(departureTimeSec);
    request.chargingNeeds_present = true;
    const OutboundResult out =
        COutboundSender::Send(OUTBOUNDKIND_EVCHARGINGNEEDS, COcppProtocol20::NotifyEVChargingNeedsReq(request));
    int status = 0;
    const int result = out.answer != nullptr ? COcppProtocol20::NotifyEVChargingNeedsResp(out.answer, &status) : 0;
    if (result != 1) cache->RemoveCacheRecord(static_cast<unsigned>(evseId));
    return result;
}

int OcppProtocol_SelectChargingProfileSchedule(uint32_t profileId, const char* scheduleIds) {
    CPendingProfileCache* cache = RunningCache();
    return cache != nullptr ? cache->SelectSchedule(profileId, scheduleIds) : 0;
}
