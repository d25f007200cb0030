#include "Ocpp20/Protocol/Base.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <utility>

#include "Ocpp20/Protocol/JsonText.h"

namespace {

const char* const kErrorCodeTexts[] = {
    "FormatViolation",   "GenericError", "InternalError",  "MessageTypeNotSupported",
    "NotImplemented",    "NotSupported", "OccurrenceConstraintViolation",
    "PropertyConstraintViolation", "ProtocolError", "RpcFrameworkError", "SecurityError",
    "TypeConstraintViolation",
};

// Element text as the frame carries it: strings as they are, numbers in their JSON form.
std::string ElementText(const rapidjson::Value& v) {
    if (v.IsString()) return std::string(v.GetString(), v.GetStringLength());
    if (v.IsNumber() || v.IsBool()) {
        rapidjson::StringBuffer sb;
        rapidjson::Writer<rapidjson::StringBuffer> w(sb);
        v.Accept(w);
        return std::string(sb.GetString(), sb.GetSize());
    }
    return std::string();
}

bool IsJsonObjectText(const std::string& text) {
    if (!CJsonText::DepthWithin(text.data(), text.size())) return false;
    rapidjson::Document d;
    d.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
    return !d.HasParseError() && d.IsObject();
}

}  // namespace

Base::Base() : messageType(0), errorDetails("{}") {}

Base::Base(int type, std::string id, std::string act)
    : messageType(type), messageId(std::move(id)), action(std::move(act)), errorDetails("{}") {}

std::string Base::HeaderForJson() const {
    std::string out;
    out.reserve(64 + messageId.size() + action.size() + errorDescription.size() + errorDetails.size());
    out.push_back('[');
    CJsonText::AppendInt(out, messageType);
    out.push_back(',');
    CJsonText::AppendString(out, messageId);
    out.push_back(',');
    if (messageType == CALL) {
        CJsonText::AppendString(out, action);
        out.push_back(',');
    } else if (messageType == CALLERROR) {
        CJsonText::AppendString(out, errorCode);
        out.push_back(',');
        CJsonText::AppendString(out, errorDescription);
        out.push_back(',');
        // Details are passed through verbatim, but only a JSON object keeps the frame valid.
        out += IsJsonObjectText(errorDetails) ? errorDetails : std::string("{}");
        out += "]";
    }
    out.push_back('\n');
    return out;
}

std::string Base::EndJson() { return "]"; }

const rapidjson::Value* Base::TakeHeader(const rapidjson::Value& doc) {
    if (!doc.IsArray() || doc.Size() < 2) return nullptr;
    const rapidjson::Value& type = doc[0];
    if (type.IsInt()) messageType = type.GetInt();
    messageId = ElementText(doc[1]);
    const rapidjson::Value* body = nullptr;
    if (messageType == CALL && doc.Size() >= 3) {
        action = ElementText(doc[2]);
        if (doc.Size() >= 4) body = &doc[3];
    } else if (messageType == CALLRESULT && doc.Size() >= 3) {
        body = &doc[2];
    } else if (messageType == CALLERROR) {
        if (doc.Size() >= 3) errorCode = ElementText(doc[2]);
        // The description (element 3) is kept in the details field, as callers expect.
        if (doc.Size() >= 4) errorDetails = ElementText(doc[3]);
    }
    return body != nullptr && body->IsObject() ? body : nullptr;
}

bool Base::ParseFrame(rapidjson::Document& doc, const char* frame, size_t len) {
    if (frame == nullptr || !CJsonText::DepthWithin(frame, len)) return false;
    doc.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(frame, len);
    return !doc.HasParseError();
}

std::string Base::NormalizeExtract(const char* frame, size_t len) {
    std::string payload = "{}\n";
    rapidjson::Document doc;
    const rapidjson::Value* body = ParseFrame(doc, frame, len) ? TakeHeader(doc) : nullptr;
    if (body != nullptr) {
        rapidjson::StringBuffer sb;
        rapidjson::Writer<rapidjson::StringBuffer> w(sb);
        body->Accept(w);
        payload.assign(sb.GetString(), sb.GetSize());
        payload.push_back('\n');
    }
    // The compact form ends with a newline; it is overwritten in place.
    payload.back() = '\0';
    return payload;
}

const char* Base::ErrorCodeText(int code) {
    if (code < 0 || code >= static_cast<int>(sizeof(kErrorCodeTexts) / sizeof(kErrorCodeTexts[0]))) {
        return "GenericError";
    }
    return kErrorCodeTexts[code];
}
