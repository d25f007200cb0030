#pragma once
// The host's records turned into what each version's stores and engines
// keep, and back. Pure functions.
#include <json/json.h>

#include <OcppProtocol.h>

#include <cstdint>

#include "Ocpp20/Process/AuthorizeItem.h"
#include "Ocpp20/Process/VariableDataItem20.h"

VariableDataItem20 OcppStructTrans_VariableDataItem20(const VariableDataItem& item);
// The characteristics fields stay zero: they belong to another store.
VariableDataItem OcppStructTrans_VariableDataItem(const VariableDataItem20& item);

// A local-list token as the host reads it, and back.
TokenWhiteItem OcppStructTrans_TokenItem(const AuthorizeItem& item);
AuthorizeItem OcppStructTrans_TokenItem20(const TokenWhiteItem& item);
// The 2.1 IdTokenType object: its type is a text there; a type outside the
// 2.0.1 list leaves "type" out.
Json::Value OcppStructTrans_TokenItem21(const TokenWhiteItem& item);

// The last Energy.Active.Import.Register reading (a sampled value without a
// measurand is one) of a meterValue array or object as JSON text, scaled by
// its multiplier; -1 when the text has none.
double OcppStructTrans_GetEndMeter(const char* meter);

// As OcppStructTrans_TransactionEventParam20: 2.1 carries the same fields.
int32_t OcppStructTrans_TransactionEventParam21(const TransactionInfoItem* items, int count, int32_t param);
