#include "Ocpp20/Ocpp20Transaction.h"

// stand-in until the real one lands
int Ocpp20ProtocolPrivate_TransactionStart(const TransactionEventArgs& args, int32_t* eventParam) {
    if (eventParam != nullptr) *eventParam = args.eventParam;
    return 0;
}

// stand-in until the real one lands
int Ocpp20ProtocolPrivate_TransactionUpate(const TransactionEventArgs& args, int32_t* eventParam) {
    if (eventParam != nullptr) *eventParam = args.eventParam;
    return 0;
}

// stand-in until the real one lands
int Ocpp20ProtocolPrivate_TransactionEnd(const TransactionEventArgs& args, int32_t* eventParam) {
    if (eventParam != nullptr) *eventParam = args.eventParam;
    return 0;
}

// stand-in until the real one lands
int Ocpp20ProtocolPrivate_OnTransactionEventAnswer(const char*, size_t, const char*, size_t, bool) { return 0; }
