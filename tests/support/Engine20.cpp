#include "Engine20.h"

#include "Ocpp20/Ocpp20ProtocolRecv.h"
#include "OcppProtocol/MessageCallBack.h"
#include "OcppProtocol/OcppProtocol.h"
#include "Process/BootHeartbeat.h"

namespace ocpptest {

void Engine20::SetUp() {
    ResetSdkState();
    CBootHeartbeat::Release();
    Ocpp20Protocol_ClearPendingSetVariables();
    OcppProtocol_InitOcppProtocol(OCPPPROTOCOL_201);
    ASSERT_NO_FATAL_FAILURE(OpenDeviceModel(dir));
}

void Engine20::TearDown() {
    CloseDeviceModel();
    CBootHeartbeat::Release();
    Ocpp20Protocol_ClearPendingSetVariables();
    ResetSdkState();
}

void Engine20::Drain() { ASSERT_TRUE(WaitFor([] { return CMessageCallBack::GetInstance()->Pending() == 0; })); }

}  // namespace ocpptest
