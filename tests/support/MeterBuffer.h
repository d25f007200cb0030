#pragma once
// Meter items packed as a host packs them: no padding, each item its own length.
#include <OcppTransaction.h>

#include <functional>
#include <string>
#include <vector>

#include "Util/Tools.h"

namespace ocpptest {

class MeterBuffer {
public:
    // `more` fills the head's other fields.
    MeterBuffer& Add(uint32_t timestamp, double value, uint8_t measurand,
                     const std::function<void(MeterItem&)>& more = nullptr) {
        MeterItem item{};
        Head(item, timestamp, value, measurand);
        if (more) more(item);
        return Append(&item, sizeof item);
    }
    MeterBuffer& AddSigned(uint32_t timestamp, double value, uint8_t measurand, const std::string& data) {
        SignedMeterItem item{};
        Head(item.head, timestamp, value, measurand);
        item.head.isSigned = 1;
        CTools::CopyField(item.signedMeterData, data);
        CTools::CopyField(item.signingMethod, "ECDSA-secp256r1-SHA256");
        CTools::CopyField(item.encodingMethod, "OCMF");
        CTools::CopyField(item.publicKey, "PUBKEY");
        return Append(&item, sizeof item);
    }
    const unsigned char* data() const { return bytes.data(); }
    int count() const { return m_count; }

    std::vector<unsigned char> bytes;

private:
    static void Head(MeterItem& item, uint32_t timestamp, double value, uint8_t measurand) {
        item.timestamp = timestamp;
        item.value = value;
        item.measurand = measurand;
    }
    MeterBuffer& Append(const void* item, size_t length) {
        const unsigned char* at = static_cast<const unsigned char*>(item);
        bytes.insert(bytes.end(), at, at + length);
        ++m_count;
        return *this;
    }
    int m_count = 0;
};

}  // namespace ocpptest
