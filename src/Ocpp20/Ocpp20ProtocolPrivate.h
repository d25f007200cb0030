#pragma once
// The station's own decisions that other blocks call: authorization and the
// personal message an answer may carry.
#include <Ocpp20Protocol.h>
#include <OcppRecords.h>

// Posts a PersonalMsg record to the host; the base is filled here.
void Ocpp20ProtocolPrivate_PersonalMsgUpdated(PersonalMsg& record);
