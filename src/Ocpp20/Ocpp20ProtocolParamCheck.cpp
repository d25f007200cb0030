#include <memory>

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/InboundFrame.h"
#include "Util/Tools.h"

// The check of the action table's row, on a frame given as text. The
// dispatcher runs the same check on the frame it already holds.
int COcppProtocol20::OnParamCheck(const char* action, const char* frame, int len) {
    const Ocpp20InboundAction* row = Ocpp20Protocol_FindInboundAction(action);
    if (row == nullptr) return 1;
    const std::unique_ptr<CInboundFrame> read = CInboundFrame::Copy(frame, len > 0 ? static_cast<size_t>(len) : 0u);
    static const rapidjson::Value kNotAFrame;
    try {
        (void)Ocpp20Protocol_CheckRequest(*row, read && read->Parsed() ? read->Document() : kNotAFrame);
    } catch (const CustomException& e) {
        LOG_INFO("CustomException: %s", e.what());
        return 0;
    }
    return 1;
}
