#pragma once
// The station's own decisions that other blocks call: authorization and the
// personal message an answer may carry.
#include <Ocpp20Protocol.h>
#include <OcppRecords.h>

namespace models {
struct idTokenInfo_t;
}

// Keeps what the CSMS said of a token in the authorization cache, the same
// way for every answer that carries an idTokenInfo.
void Ocpp20ProtocolPrivate_CacheIdTokenInfo(const char* idToken, int tokenType, int status,
                                            const models::idTokenInfo_t& info);

// Posts a PersonalMsg record to the host; the base is filled here.
void Ocpp20ProtocolPrivate_PersonalMsgUpdated(PersonalMsg& record);
