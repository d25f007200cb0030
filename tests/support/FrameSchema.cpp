#include "FrameSchema.h"

#include <rapidjson/document.h>

#include <map>
#include <mutex>

#include "Ocpp20/OcppProtocol20.h"
#include "Ocpp20/Protocol/Base.h"
#include "Ocpp20/Protocol/SchemaCheck.h"

namespace ocpptest {

namespace {

std::mutex g_callsLock;
std::map<std::string, std::string> g_calls;  // CALL id -> action

bool Parse(rapidjson::Document& doc, const char* frame, size_t len) {
    // Bounded depth and no recursion, as the library reads frames: tests feed hostile ones.
    return Base::ParseFrame(doc, frame, len) && doc.IsArray() && doc.Size() >= 1 && doc[0].IsInt();
}

std::string Text(const rapidjson::Value& v) { return std::string(v.GetString(), v.GetStringLength()); }

bool IsErrorCode(const std::string& code) {
    for (int i = 0; i <= 11; ++i)
        if (code == Base::ErrorCodeText(i)) return true;
    return false;
}

std::string PayloadProblem(const char* action, bool request, const rapidjson::Value& payload) {
    std::string why;
    if (models::ValidatePayload(action, request, payload, &why)) return std::string();
    return std::string(action) + (request ? "Request " : "Response ") + (why.empty() ? "refused" : why);
}

}  // namespace

void NoteInboundCall(const char* frame, size_t len) {
    rapidjson::Document doc;
    if (frame == nullptr || !Parse(doc, frame, len) || doc[0].GetInt() != Base::CALL || doc.Size() < 3 ||
        !doc[1].IsString() || !doc[2].IsString())
        return;
    std::lock_guard<std::mutex> lock(g_callsLock);
    g_calls[Text(doc[1])] = Text(doc[2]);
}

void ForgetInboundCalls() {
    std::lock_guard<std::mutex> lock(g_callsLock);
    g_calls.clear();
}

void DeliverTo20(const std::string& frame) {
    NoteInboundCall(frame.data(), frame.size());
    COcppProtocol20::OnMessage(frame.data(), static_cast<int>(frame.size()));
}

std::string FrameSchemaProblem(const std::string& frame) {
    rapidjson::Document doc;
    if (!Parse(doc, frame.data(), frame.size())) return "not an OCPP-J frame";
    // The id is whatever the CSMS chose for its CALL: only its type is the station's to get right.
    if (doc.Size() < 2 || !doc[1].IsString()) return "message id is not a text";
    switch (doc[0].GetInt()) {
        case Base::CALL:
            if (doc.Size() != 4 || !doc[2].IsString() || !doc[3].IsObject()) return "CALL is not [2,id,action,{}]";
            return PayloadProblem(doc[2].GetString(), true, doc[3]);
        case Base::CALLRESULT: {
            if (doc.Size() != 3 || !doc[2].IsObject()) return "CALLRESULT is not [3,id,{}]";
            std::string action;
            {
                std::lock_guard<std::mutex> lock(g_callsLock);
                auto it = g_calls.find(Text(doc[1]));
                if (it != g_calls.end()) action = it->second;
            }
            if (action.empty() || !models::IsOcppAction(action.c_str())) return std::string();
            return PayloadProblem(action.c_str(), false, doc[2]);
        }
        case Base::CALLERROR:
            if (doc.Size() != 5 || !doc[2].IsString() || !doc[3].IsString() || !doc[4].IsObject())
                return "CALLERROR is not [4,id,code,description,{}]";
            if (!IsErrorCode(Text(doc[2]))) return "unknown error code " + Text(doc[2]);
            return std::string();
        default:
            return "message type is not 2, 3 or 4";
    }
}

}  // namespace ocpptest
