#pragma once
// Version-neutral values and meter buffers turned into what each protocol
// version's engine takes. Pure functions; -1 (or an empty text) means the
// value has no counterpart in that version.
#include <OcppErrorCode.h>
#include <OcppProtocol.h>
#include <OcppSmartCharging.h>
#include <OcppTransaction.h>
#include <OcppVariables.h>

#include <cstdint>
#include <vector>

// ---- meter buffers (a packed run of MeterItem / SignedMeterItem) ----

// Renumbers every item's measurand in place, each item stepped by its own
// length; a measurand the version lacks becomes 255.
void OcppProtocolUtils_ChangeMeterMeasurand16(void* buffer, int count);
void OcppProtocolUtils_ChangeMeterMeasurand21(void* buffer, int count);
// Heap copies of the items. Every item is cut at the length the FIRST item's
// isSigned byte gives: hosts send uniform buffers, and a mixed one is cut
// wrongly here on purpose, as it always has been.
std::vector<void*> OcppProtocolUtils_MeterBufferToVector(int count, const void* buffer);
void OcppProtocolUtils_MeterVectorRelease(std::vector<void*>& items);
// The last item (a pointer into `buffer`), null for an empty buffer.
const void* OcppProtocolUtils_GetLastMeter(const void* buffer, int count);

// ---- enumerations ----

int OcppEnumTrans_TransSampledValueMeasurand16(int measurand);
int OcppEnumTrans_TransSampledValueMeasurand20(int measurand);
int OcppEnumTrans_TransSampledValueMeasurand21(int measurand);
// For `protocol`'s numbering.
int OcppEnumTrans_TransSampledValueMeasurand(OCPPPROTOCOL protocol, int measurand);

int OcppEnumTrans_TransTransactionStopReason16(int stopReason);
int OcppEnumTrans_TransTransactionStopReason20(int stopReason);
int OcppEnumTrans_TransTransactionStopReason21(int stopReason);

// 1.6 AuthorizationStatus -> the AuthorizationStatusEnumType index the transaction entries return.
int OcppEnumTrans_TransAuthorizeStatus16(int status16);
int OcppEnumTrans_TransConfigurationStatus16(VARIABLESTATUS status);
int OcppEnumTrans_TransConnectorStatus16(CONNECTORSTATUS status);
int OcppEnumTrans_TransEnergyTransferMode20(ENERGYTRANSFERMODE mode);
int OcppEnumTrans_TransEnergyTransferMode21(ENERGYTRANSFERMODE mode);
// A 2.1 EnergyTransferMode text the CSMS allows -> ENERGYTRANSFERMODE.
int OcppEnumTrans_TransAllowEnergyTransfer21(const char* mode);

// Neutral statuses -> the 1.6 FirmwareStatus, DiagnosticsStatus and
// UnlockStatus lists; a state 1.6 cannot tell apart goes to its nearest one.
int OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS status);
int OcppEnumTrans_TransUploadLogStatus16(UPLOADLOGSTATUS status);
int OcppEnumTrans_UnlockStatus16(UNLOCKSTATUS status);
// 1.6 MessageTrigger -> the MessageTriggerEnumType index the host's trigger record carries.
int OcppEnumTrans_TransMessageTrigger(int trigger16);

const char* OcppEnumTrans_ResponseErrorCodeToString(RESPONSEERRORCODE code);
const char* OcppEnumTrans_ChargingLimitSource(CHARGINGLIMITSOURCE source);
const char* OcppEnumTrans_ConnectorStatus(CONNECTORSTATUS status);
// MessageFormat / ChargingState texts -> their list index.
int OcppEnumTrans_TransMessageFormat(const char* format);
int OcppEnumTrans_CostUpdateChargingState(const char* chargingState);

// ---- records ----

// The host's optional transaction fields folded into the event parameter the
// next events carry (Ocpp20::TransactionEventParam); values that do not fit
// their bits leave the parameter as it was.
int32_t OcppStructTrans_TransactionEventParam20(const TransactionInfoItem* items, int count, int32_t param);
