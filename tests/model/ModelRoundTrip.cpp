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

void Answer(bool threw, const std::string& out, const std::string& error) {
    rapidjson::StringBuffer sb;
    rapidjson::Writer<rapidjson::StringBuffer> w(sb);
    w.StartObject();
    w.Key("threw");
    w.Bool(threw);
    w.Key("out");
    w.String(out.c_str(), static_cast<rapidjson::SizeType>(out.size()));
    w.Key("error");
    w.String(error.c_str(), static_cast<rapidjson::SizeType>(error.size()));
    w.EndObject();
    std::cout << sb.GetString() << '\n';
}

void Check(const rapidjson::Document& req) {
    rapidjson::Document payload;
    const rapidjson::Value& text = req["payload"];
    payload.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseFullPrecisionFlag>(text.GetString(),
                                                                                      text.GetStringLength());
    std::string why;
    const bool valid = !payload.HasParseError() &&
                       models::ValidatePayload(req["check"].GetString(), req["request"].GetBool(), payload, &why);
    rapidjson::StringBuffer sb;
    rapidjson::Writer<rapidjson::StringBuffer> w(sb);
    w.StartObject();
    w.Key("valid");
    w.Bool(valid);
    w.Key("why");
    w.String(payload.HasParseError() ? "payload does not parse" : why.c_str());
    w.EndObject();
    std::cout << sb.GetString() << '\n';
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
