// stand-in until the real one lands
#include "Ocpp20/Ocpp20Transaction.h"

int Ocpp20ProtocolPrivate_OnTransactionEventAnswer(const char*, size_t, const char*, size_t, bool) { return 0; }
