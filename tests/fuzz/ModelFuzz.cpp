// Every 2.0.1 message record's reader and writer: the first byte picks the
// message, the rest is the frame it reads.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Ocpp20/Protocol/CustomException.h"
#include "models/Models.h"

namespace {

typedef std::function<std::string(const char*, unsigned int, const std::string&, const std::string&)> RoundTrip;

const std::vector<std::pair<std::string, RoundTrip>>& Table() {
    static const std::vector<std::pair<std::string, RoundTrip>> table = {
#include "models/ModelTable.inc"
    };
    return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const auto& table = Table();
    const RoundTrip& record = table[data[0] % table.size()].second;
    const std::string frame(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        const std::string out = record(frame.c_str(), static_cast<unsigned int>(frame.size()), "", "  ");
        // What a record writes it must be able to read back.
        rapidjson::Document doc;
        doc.Parse(out.c_str(), out.size());
        if (doc.HasParseError()) __builtin_trap();
    } catch (const CustomException&) {
    }
    return 0;
}
