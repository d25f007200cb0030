// One CSMS frame through the station's receive path: read once, the size cap,
// the dispatcher, the parameter checks and every handler, with the stores in a
// cache folder of the target's own. No host is attached, so nothing answers a
// record; the station's answers go to a link that is not connected.
#include <OcppProtocol.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "FuzzSupport.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/InboundFrame.h"
#include "OcppProtocol/OcppProtocol.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::SilenceLog();
    OcppProtocol_Init(0, nullptr);
    OcppProtocol_SetCacheDir(fuzzsupport::CacheDir().c_str());
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    OcppProtocol_InitCache("ws://127.0.0.1:9/ocpp/FUZZ");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // What the transport refuses never reaches the engine.
    if (size > CInboundFrame::MaxReceiveBytes()) return 0;
    char* text = static_cast<char*>(malloc(size + 1));
    if (text == nullptr) return 0;
    if (size > 0) memcpy(text, data, size);
    text[size] = '\0';
    const std::unique_ptr<CInboundFrame> frame = CInboundFrame::Adopt(text, size);
    if (!frame) return 0;
    // The log line and the head, as the transport looks at them.
    if (frame->HasIdToken()) (void)frame->MaskedText();
    if (frame->HasHead()) (void)frame->Id();
    COcppProtocol20::OnMessage(*frame);
    return 0;
}
