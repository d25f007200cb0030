#include "Ocpp20/Ocpp20ProtocolPrivate.h"

#include <json/json.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/PricePlugInRecords.h"
#include "Ocpp20/Process/AuthorizeCache.h"
#include "Ocpp20/Process/VariableCache.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OutboundSender.h"
#include "Process/PlugInManager.h"
#include "Util/Tools.h"
#include "models/Models.h"

namespace {

thread_local AUTHORIZESOURCE t_source = AUTHORIZESOURCE_NONE;

const char kPricePlugIn[] = "PlugInCaliforniaPrice";


// What one answer to an Authorize says.
struct AuthorizeOutcome {
    int status = AUTHORIZESTATUS_NONE;
    int64_t expiry = 0;
    std::string groupToken;
    bool hasPersonalMessage = false;
    PersonalMsg personal{};
};

void PostPriceMessage(const PriceAuthorizeAnswer& answer, const char* idToken) {
    std::vector<char> block(sizeof(CaliforNiaCustomMsg), 0);  // 2.4 kB: off the caller's stack
    CaliforNiaCustomMsg& record = *reinterpret_cast<CaliforNiaCustomMsg*>(block.data());
    record.base.type = SERVERRECVTYPE_CALIFORNIACUSTOMMSG;
    CTools::CopyField(record.idToken, idToken);
    record.messageType = 0;
    const int count = answer.lineCount < 0 ? 0 : (answer.lineCount > kPriceLines ? kPriceLines : answer.lineCount);
    if (count > 0) CTools::CopyField(record.language, sizeof record.language, answer.lines[0].language);
    Json::Value content(Json::objectValue);
    content["text"] = std::string(answer.priceText, strnlen(answer.priceText, sizeof answer.priceText));
    Json::Value& lines = content["lines"] = Json::Value(Json::arrayValue);
    for (int i = 0; i < count; ++i) {
        Json::Value line(Json::objectValue);
        const PriceLine& l = answer.lines[i];
        line["language"] = std::string(l.language, strnlen(l.language, sizeof l.language));
        line["text"] = std::string(l.text, strnlen(l.text, sizeof l.text));
        lines.append(line);
    }
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    CTools::CopyField(record.content, Json::writeString(writer, content));
    CMessageCallBack::GetInstance()->OnMessage(block.data(), static_cast<unsigned int>(block.size()), 0);
}

// The pricing plug-in's reading of the answer; false when it failed.
bool ReadWithPricePlugIn(const char* answer, int answerLen, const char* idToken, AuthorizeOutcome& out) {
    const int length = answerLen > 65535 ? 65535 : answerLen;
    std::vector<char> request(sizeof(PriceAuthorizeRequestHead) + static_cast<size_t>(length), 0);
    PriceAuthorizeRequestHead head{kPriceAuthorizeKind, length};
    std::memcpy(request.data(), &head, sizeof head);
    std::memcpy(request.data() + sizeof head, answer, static_cast<size_t>(length));
    // The manager keeps one byte of the buffer for a terminating NUL.
    std::vector<char> buffer(sizeof(PriceAuthorizeAnswer) + 1, 0);
    int replyLen = static_cast<int>(buffer.size());
    CPlugInManager* plugins = CPlugInManager::GetInstance();
    if (plugins->UsePlugIn(kPricePlugIn) != 1 ||
        plugins->SendMsgToPlugIn(kPricePlugIn, request.data(), static_cast<int>(request.size()), buffer.data(),
                                 &replyLen) != 1 ||
        replyLen < static_cast<int>(sizeof(PriceAuthorizeAnswer))) {
        return false;
    }
    PriceAuthorizeAnswer reply;
    std::memcpy(&reply, buffer.data(), sizeof reply);
    out.status = reply.status;
    out.expiry = reply.cacheExpiry;
    out.groupToken.assign(reply.groupIdToken, strnlen(reply.groupIdToken, sizeof reply.groupIdToken));
    if (reply.hasPersonalMessage) {
        out.hasPersonalMessage = true;
        out.personal.format = reply.messageFormat;
        CTools::CopyField(out.personal.language, sizeof out.personal.language, reply.language);
        CTools::CopyField(out.personal.content, sizeof out.personal.content, reply.content);
    }
    if (reply.hasPriceMessage) PostPriceMessage(reply, idToken);
    return true;
}

void ReadIdTokenInfo(int status, const models::idTokenInfo_t& info, AuthorizeOutcome& out) {
    out.status = status;
    const int64_t expiry = info.cacheExpiryDateTime.empty() ? 0 : CTools::GetTimeByString(info.cacheExpiryDateTime);
    out.expiry = expiry > 0 ? expiry : 0;
    if (info.groupIdToken_present) out.groupToken = info.groupIdToken.idToken;
    if (info.personalMessage_present) {
        out.hasPersonalMessage = true;
        out.personal.format = models::GetMessageFormatInInt(info.personalMessage.format);
        CTools::CopyField(out.personal.language, info.personalMessage.language);
        CTools::CopyField(out.personal.content, info.personalMessage.content);
    }
}

// The answer is cached whatever its status; an answer without an expiry
// lives for the cache's lifetime.
void CacheOutcome(const char* idToken, int tokenType, const AuthorizeOutcome& outcome) {
    AuthorizeItem item{};
    CTools::CopyField(item.token, idToken);
    item.tokenType = tokenType;
    item.status = outcome.status;
    const int64_t expiry =
        outcome.expiry != 0 ? outcome.expiry
                            : CTools::CurTimeSec() + CVariableCache::GetInstance()->AuthCacheCtrlrLifeTime();
    item.expiryTime = static_cast<int32_t>(expiry);
    CTools::CopyField(item.groupToken, outcome.groupToken);
    CAuthorizeCache::GetInstance()->UpdateAuthorizeCache(item);
}

int Decide(const char* idToken, int tokenType) {
    LOG_INFO("Token:<%s> TokenType:%d", CTools::Hash12(idToken).c_str(), tokenType);
    CVariableCache* variables = CVariableCache::GetInstance();
    if (!variables->AuthCtrlrEnabled()) {
        LOG_INFO("AuthCtrlrEnabled is FALSE");
        t_source = AUTHORIZESOURCE_EXEMPT;
        return AUTHORIZESTATUS_ACCEPTED;
    }
    if (tokenType == IDTOKENTYPE_NOAUTHORIZATION) {
        LOG_INFO("卡不鉴权模式");
        t_source = AUTHORIZESOURCE_EXEMPT;
        return AUTHORIZESTATUS_ACCEPTED;
    }
    int status = AUTHORIZESTATUS_NONE;
    const SDKSTATUS sdkStatus = OcppProtocol_GetStatus();
    const bool online = sdkStatus == SDKSTATUS_OK;
    const bool preAuthorize = variables->AuthCtrlrLocalPreAuthorize();
    const bool authorizeOffline = variables->AuthCtrlrLocalAuthorizeOffline();
    LOG_INFO("OcppProtocolStatus:%d", static_cast<int>(sdkStatus));
    LOG_INFO("AuthCtrlrLocalPreAuthorize:%d", preAuthorize ? 1 : 0);
    LOG_INFO("AuthCtrlrLocalAuthorizeOffline:%d", authorizeOffline ? 1 : 0);
    if ((online && preAuthorize) || (!online && authorizeOffline)) {
        LOG_INFO("Enter LocalAuthorize OcppProtocol_GetStatus = %d", static_cast<int>(sdkStatus));
        int fromLocalList = 0;
        if (CAuthorizeCache::GetInstance()->IsTokenAccept(idToken, tokenType, &status, &fromLocalList) == 1) {
            LOG_INFO("Local authorize success");
            t_source = fromLocalList ? AUTHORIZESOURCE_LOCALLIST : AUTHORIZESOURCE_CACHE;
            return AUTHORIZESTATUS_ACCEPTED;
        }
        if (status != AUTHORIZESTATUS_NONE) {
            t_source = fromLocalList ? AUTHORIZESOURCE_LOCALLIST : AUTHORIZESOURCE_CACHE;
            if (fromLocalList && variables->LocalAuthListCtrlrDisablePostAuthorize()) {
                LOG_INFO("LocalAuthListCtrlrDisablePostAuthorize is true, not need send AuthorizeRequest");
                return status;
            }
            if (!fromLocalList && variables->AuthCacheCtrlrDisablePostAuthorize()) {
                LOG_INFO("AuthCacheCtrlrDisablePostAuthorize is true, not need send AuthorizeRequest");
                return status;
            }
        }
        LOG_INFO("LocalAuthorize Status ============================================= %d", status);
    }
    const bool unknownAllowed = variables->AuthCtrlrOfflineTxForUnknownIdEnabled();
    LOG_INFO("AuthCtrlrOfflineTxForUnknownIdEnabled:%d", unknownAllowed ? 1 : 0);
    // Only a token nothing is known about: a known, refused one never gets through here.
    if (!online && status == AUTHORIZESTATUS_NONE && unknownAllowed) {
        LOG_INFO("Start OfflineTxForUnknownIdEnabled");
        t_source = AUTHORIZESOURCE_OFFLINEUNKNOWN;
        return AUTHORIZESTATUS_ACCEPTED;
    }
    const bool remoteDisabled = variables->AuthCtrlrDisableRemoteAuthorization();
    LOG_INFO("AuthCtrlrDisableRemoteAuthorization:%d", remoteDisabled ? 1 : 0);
    if (!online || remoteDisabled) return status;

    // Sent on the caller's thread with no store lock held: it may wait the whole time-out.
    const std::string frame = COcppProtocol20::AuthorizeReq(idToken, tokenType);
    const OutboundResult sent =
        frame.empty() ? OutboundResult() : COutboundSender::Send(OUTBOUNDKIND_REQUEST, frame);
    AuthorizeOutcome outcome;
    bool answered = false;
    if (sent.answer != nullptr) {
        if (CPlugInManager::GetInstance()->IsSupportPlugIn(kPricePlugIn) == 1) {
            printf("支持加州定价\n");
            answered = true;
            if (!ReadWithPricePlugIn(sent.answer, sent.answerLen, idToken, outcome)) {
                printf("加州定价插件解析失败\n");
                outcome.status = AUTHORIZESTATUS_NONE;
            }
        } else {
            int answerStatus = AUTHORIZESTATUS_NONE;
            models::idTokenInfo_t info;
            // A status outside the list is no answer.
            if (COcppProtocol20::AuthorizeResp(sent.answer, &answerStatus, &info) == 1 && answerStatus >= 0) {
                answered = true;
                ReadIdTokenInfo(answerStatus, info, outcome);
            }
        }
    }
    if (!answered) {
        LOG_ERROR("ocpp protocol sdk 在线鉴权状态响应失败==========================================================%d",
                  status);
        return status;
    }
    t_source = AUTHORIZESOURCE_CSMS;
    CacheOutcome(idToken, tokenType, outcome);
    if (outcome.hasPersonalMessage) Ocpp20ProtocolPrivate_PersonalMsgUpdated(outcome.personal);
    LOG_INFO("ocpp protocol sdk 在线鉴权状态结束====================================================================%d",
             outcome.status);
    return outcome.status;
}

}  // namespace

int Ocpp20ProtocolPrivate_Authorize(const char* idToken, int idTokenType) {
    t_source = AUTHORIZESOURCE_NONE;
    try {
        return Decide(idToken != nullptr ? idToken : "", idTokenType);
    } catch (const std::exception& e) {
        LOG_ERROR("Authorize failed: %s", e.what());
        return AUTHORIZESTATUS_NONE;
    }
}

AUTHORIZESOURCE Ocpp20ProtocolPrivate_GetAuthorizeSource(void) { return t_source; }

int Ocpp20Protocol_AuthorizeWithCertificate(int idTokenType, const char* idToken, const char* certificate) {
    try {
        const char* token = idToken != nullptr ? idToken : "";
        const std::string frame = COcppProtocol20::AuthorizeWithCertificateReq(token, idTokenType, certificate);
        if (frame.empty()) return AUTHORIZESTATUS_INVALID;
        const OutboundResult sent = COutboundSender::Send(OUTBOUNDKIND_REQUEST, frame);
        int status = AUTHORIZESTATUS_NONE;
        int certificateStatus = 0;
        models::idTokenInfo_t info;
        if (sent.answer == nullptr ||
            COcppProtocol20::AuthorizeWithCertificateResp(sent.answer, &status, &certificateStatus, &info) != 1) {
            return AUTHORIZESTATUS_INVALID;
        }
        Ocpp20ProtocolPrivate_CacheIdTokenInfo(token, idTokenType, status, info);
        return status;
    } catch (const std::exception& e) {
        LOG_ERROR("AuthorizeWithCertificate failed: %s", e.what());
        return AUTHORIZESTATUS_INVALID;
    }
}

void Ocpp20ProtocolPrivate_CacheIdTokenInfo(const char* idToken, int tokenType, int status,
                                            const models::idTokenInfo_t& info) {
    AuthorizeOutcome outcome;
    ReadIdTokenInfo(status, info, outcome);
    CacheOutcome(idToken != nullptr ? idToken : "", tokenType, outcome);
}

void Ocpp20ProtocolPrivate_PersonalMsgUpdated(PersonalMsg& record) {
    record.base.type = SERVERRECVTYPE_PERSONALMSG;
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof(record), 0);
}
