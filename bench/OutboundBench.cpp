// A station request and its answer through the outbound sender; the link is a
// seam that answers at once, so the figure is the library's own share.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "LinkSeam.h"
#include "Ocpp20/OcppProtocol20.h"
#include "OcppProtocol/OcppProtocol.h"
#include "OcppProtocol/OcppSendSeam.h"
#include "OcppProtocol/OutboundSender.h"

namespace {

using benchlink::DropSend;
using benchlink::EchoRequest;

void BM_StatusNotificationRoundTrip(benchmark::State& state) {
    const OCPPPROTOCOL protocol = g_eOcppProtocol.load();
    const SDKSTATUS status = g_eSdkStatus.load();
    g_eOcppProtocol = OCPPPROTOCOL_201;
    g_eSdkStatus = SDKSTATUS_OK;
    COcppSendSeam::Set(&DropSend, &EchoRequest);
    const std::string frame = COcppProtocol20::StatusNotificationReq(1, 1, 0, 1700000000);
    for (auto _ : state) {
        const OutboundResult out = COutboundSender::Send(OUTBOUNDKIND_STATUSNOTIFICATION, frame);
        benchmark::DoNotOptimize(COcppProtocol20::StatusNotificationResp(out.answer));
    }
    COcppSendSeam::Reset();
    g_eSdkStatus = status;
    g_eOcppProtocol = protocol;
}
BENCHMARK(BM_StatusNotificationRoundTrip)->Unit(benchmark::kMicrosecond);

}  // namespace
