// Reads one JSON object per line, {"type":"BootNotificationRequest","frame":"..."},
// runs the frame through that message's record and answers one line
// {"threw":bool,"out":"frame text written back"}. A line
// {"check":"BootNotification","request":true,"payload":"..."} runs the payload
// text through the schema check instead and answers {"valid":bool,"why":"..."}.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "Ocpp20/Protocol/SchemaCheck.h"
#include "models/Models.h"

namespace {

typedef std::function<std::string(const char*, unsigned int, const std::string&, const std::string&)> RoundTrip;

const std::map<std::string, RoundTrip>& Table() {
    static const std::map<std::string, RoundTrip> table = {
#include "models/ModelTable.inc"
    };
    return table;
}

// One answer line: {"<flag>":bool,"<k1>":"v1"[,"<k2>":"v2"]}.
void Print(const char* flag, bool value, const char* k1, const std::string& v1, const char* k2 = nullptr,
           const std::string& v2 = "") {
    rapidjson::StringBuffer sb;
    rapidjson::Writer<rapidjson::StringBuffer> w(sb);
    w.StartObject();
    w.Key(flag);
    w.Bool(value);
    w.Key(k1);
    w.String(v1.c_str(), static_cast<rapidjson::SizeType>(v1.size()));
    if (k2 != nullptr) {
        w.Key(k2);
        w.String(v2.c_str(), static_cast<rapidjson::SizeType>(v2.size()));
    }
    w.EndObject();
    std::cout << sb.GetString() << '\n';
}

void Answer(bool threw, const std::string& out, const std::string& error) { Print("threw", threw, "out", out, "error", error); }

void Check(const rapidjson::Document& req) {
    rapidjson::Document payload;
    const rapidjson::Value& text = req["payload"];
    payload.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(text.GetString(),
                                                                                      text.GetStringLength());
    std::string why;
    const bool valid = !payload.HasParseError() &&
                       models::ValidatePayload(req["check"].GetString(), req["request"].GetBool(), payload, &why);
    Print("valid", valid, "why", payload.HasParseError() ? "payload does not parse" : why);
}

}  // namespace

int main() {
    std::ios::sync_with_stdio(false);
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line.empty()) continue;
        rapidjson::Document req;
        req.Parse(line.c_str(), line.size());
        if (!req.HasParseError() && req.IsObject() && req.HasMember("check")) {
            Check(req);
            continue;
        }
        if (req.HasParseError() || !req.IsObject() || !req.HasMember("type") || !req.HasMember("frame")) {
            Answer(true, "", "bad request line");
            continue;
        }
        const auto it = Table().find(req["type"].GetString());
        if (it == Table().end()) {
            Answer(true, "", "unknown type");
            continue;
        }
        const rapidjson::Value& frame = req["frame"];
        try {
            // Written as the station writes its frames: no indent, no step.
            Answer(false, it->second(frame.GetString(), frame.GetStringLength(), "", ""), "");
        } catch (const CustomException& e) {
            Answer(true, "", e.what());
        }
    }
    return 0;
}
