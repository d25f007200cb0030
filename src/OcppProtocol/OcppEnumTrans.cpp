#include "OcppProtocol/OcppEnumTrans.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Ocpp20/Process/TransactionManager.h"
#include "Ocpp20/Protocol/Base.h"
#include "models/Models.h"

namespace {

const size_t kPlain = sizeof(MeterItem);
const size_t kSigned = sizeof(SignedMeterItem);
const uint8_t kNoMeasurand = 255;

size_t ItemLength(const unsigned char* item) { return item[offsetof(MeterItem, isSigned)] == 1 ? kSigned : kPlain; }

// SAMPLEDVALUEMEASURAND order.
const char* const kNeutralMeasurands[] = {
    "Current.Export", "Current.Import", "Current.Offered", "Energy.Active.Export.Register",
    "Energy.Active.Import.Register", "Energy.Reactive.Export.Register", "Energy.Reactive.Import.Register",
    "Energy.Active.Export.Interval", "Energy.Active.Import.Interval", "Energy.Active.Net",
    "Energy.Reactive.Export.Interval", "Energy.Reactive.Import.Interval", "Energy.Reactive.Net",
    "Energy.Apparent.Net", "Energy.Apparent.Import", "Energy.Apparent.Export", "Frequency", "Power.Active.Export",
    "Power.Active.Import", "Power.Factor", "Power.Offered", "Power.Reactive.Export", "Power.Reactive.Import", "SoC",
    "Voltage", "RPM", "Temperature"};

const char* const kMeasurands16[] = {
    "Energy.Active.Export.Register", "Energy.Active.Import.Register", "Energy.Reactive.Export.Register",
    "Energy.Reactive.Import.Register", "Energy.Active.Export.Interval", "Energy.Active.Import.Interval",
    "Energy.Reactive.Export.Interval", "Energy.Reactive.Import.Interval", "Power.Active.Export",
    "Power.Active.Import", "Power.Offered", "Power.Reactive.Export", "Power.Reactive.Import", "Power.Factor",
    "Current.Import", "Current.Export", "Current.Offered", "Voltage", "Frequency", "Temperature", "SoC", "RPM"};

const char* const kMeasurands21[] = {
    "Current.Export", "Current.Export.Offered", "Current.Export.Minimum", "Current.Import", "Current.Import.Offered",
    "Current.Import.Minimum", "Current.Offered", "Display.PresentSOC", "Display.MinimumSOC", "Display.TargetSOC",
    "Display.MaximumSOC", "Display.RemainingTimeToMinimumSOC", "Display.RemainingTimeToTargetSOC",
    "Display.RemainingTimeToMaximumSOC", "Display.ChargingComplete", "Display.BatteryEnergyCapacity",
    "Display.InletHot", "Energy.Active.Export.Interval", "Energy.Active.Export.Register",
    "Energy.Active.Import.Interval", "Energy.Active.Import.Register", "Energy.Active.Import.CableLoss",
    "Energy.Active.Import.LocalGeneration.Register", "Energy.Active.Net", "Energy.Active.Setpoint.Interval",
    "Energy.Apparent.Export", "Energy.Apparent.Import", "Energy.Apparent.Net", "Energy.Reactive.Export.Interval",
    "Energy.Reactive.Export.Register", "Energy.Reactive.Import.Interval", "Energy.Reactive.Import.Register",
    "Energy.Reactive.Net", "EnergyRequest.Target", "EnergyRequest.Minimum", "EnergyRequest.Maximum",
    "EnergyRequest.Minimum.V2X", "EnergyRequest.Maximum.V2X", "EnergyRequest.Bulk", "Frequency",
    "Power.Active.Export", "Power.Active.Import", "Power.Active.Setpoint", "Power.Active.Residual",
    "Power.Export.Minimum", "Power.Export.Offered", "Power.Factor", "Power.Import.Offered", "Power.Import.Minimum",
    "Power.Offered", "Power.Reactive.Export", "Power.Reactive.Import", "SoC", "Voltage", "Voltage.Minimum",
    "Voltage.Maximum"};

// TRANSACTIONSTOPREASON (the 2.0.1 ReasonEnumType order).
const char* const kNeutralReasons[] = {"DeAuthorized", "EmergencyStop", "EnergyLimitReached", "EVDisconnected",
                                       "GroundFault", "ImmediateReset", "Local", "LocalOutOfCredit", "MasterPass",
                                       "Other", "OvercurrentFault", "PowerLoss", "PowerQuality", "Reboot", "Remote",
                                       "SOCLimitReached", "StoppedByEV", "TimeLimitReached", "Timeout"};

// 2.1 moved MasterPass ahead of Local.
const char* const kReasons21[] = {"DeAuthorized", "EmergencyStop", "EnergyLimitReached", "EVDisconnected",
                                  "GroundFault", "ImmediateReset", "MasterPass", "Local", "LocalOutOfCredit",
                                  "Other", "OvercurrentFault", "PowerLoss", "PowerQuality", "Reboot", "Remote",
                                  "SOCLimitReached", "StoppedByEV", "TimeLimitReached", "Timeout",
                                  "ReqEnergyTransferRejected"};

// 1.6 Reason: EmergencyStop 0, EVDisconnected 1, HardReset 2, Local 3, Other 4,
// PowerLoss 5, Reboot 6, Remote 7, SoftReset 8, UnlockCommand 9, DeAuthorized 10.
const int kReasons16[] = {10, 0, 4, 1, 4, 2, 3, 3, 4, 4, 4, 5, 4, 6, 7, 4, 4, 4, 4};

const char* const kEnergyModes21[] = {"AC_single_phase", "AC_two_phase", "AC_three_phase", "DC"};

// 1.6 FirmwareStatus: Downloaded 0, DownloadFailed 1, Downloading 2, Idle 3,
// InstallationFailed 4, Installing 5, Installed 6. Scheduled, paused and
// verified states have no 1.6 counterpart; failed checks are failed installs.
const int kFirmwareStatus16[] = {0, 1, 2, -1, -1, 3, 4, 5, 6, 5, -1, 4, 4, -1};

// 1.6 DiagnosticsStatus: Idle 0, Uploaded 1, UploadFailed 2, Uploading 3.
const int kUploadLogStatus16[] = {2, 0, 2, 2, 1, 2, 3, -1};

// 1.6 UnlockStatus: Unlocked 0, UnlockFailed 1, NotSupported 2.
const int kUnlockStatus16[] = {0, 1, 1, 2};

// 1.6 MessageTrigger order; DiagnosticsStatusNotification became LogStatusNotification.
const int kMessageTrigger16[] = {0, 1, 2, 3, 4, 7};

static_assert(sizeof kFirmwareStatus16 / sizeof(int) == FIRMWARESTATUS_SIGNATUREVERIFIED + 1, "one per status");
static_assert(sizeof kUploadLogStatus16 / sizeof(int) == UPLOADLOGSTATUS_ACCEPTEDCANCELED + 1, "one per status");
static_assert(sizeof kUnlockStatus16 / sizeof(int) == UNLOCKSTATUS_UNKNOWNCONNECTOR + 1, "one per status");

template <size_t N>
int At(const int (&table)[N], int index) {
    return index >= 0 && static_cast<size_t>(index) < N ? table[index] : -1;
}

template <size_t N>
int IndexOf(const char* const (&list)[N], const char* name) {
    for (size_t i = 0; i < N; ++i)
        if (std::strcmp(list[i], name) == 0) return static_cast<int>(i);
    return -1;
}

template <size_t N>
const char* NameAt(const char* const (&list)[N], int index) {
    return index >= 0 && static_cast<size_t>(index) < N ? list[index] : nullptr;
}

template <size_t N>
int Translate(const char* const (&from)[N], int value, int (*to)(const char*)) {
    const char* name = NameAt(from, value);
    return name != nullptr ? to(name) : -1;
}

int Measurand16ByName(const char* name) { return IndexOf(kMeasurands16, name); }
int Measurand21ByName(const char* name) { return IndexOf(kMeasurands21, name); }
int Reason21ByName(const char* name) { return IndexOf(kReasons21, name); }
int EnergyMode21ByName(const char* name) { return IndexOf(kEnergyModes21, name); }

void Renumber(void* buffer, int count, int (*translate)(int)) {
    unsigned char* at = static_cast<unsigned char*>(buffer);
    if (at == nullptr) return;
    for (int i = 0; i < count; ++i) {
        unsigned char& measurand = at[offsetof(MeterItem, measurand)];
        const int renumbered = translate(measurand);
        measurand = renumbered >= 0 ? static_cast<unsigned char>(renumbered) : kNoMeasurand;
        at += ItemLength(at);
    }
}

}  // namespace

int OcppProtocolUtils_GetMeterLength(const void* buffer, int count) {
    const unsigned char* at = static_cast<const unsigned char*>(buffer);
    if (at == nullptr || count <= 0) return 0;
    size_t total = 0;
    for (int i = 0; i < count; ++i) total += ItemLength(at + total);
    return static_cast<int>(total);
}

void* OcppProtocolUtils_GetMeterCopy(const void* buffer, int count) {
    const int length = OcppProtocolUtils_GetMeterLength(buffer, count);
    if (length <= 0) return nullptr;
    void* copy = std::malloc(static_cast<size_t>(length));
    if (copy != nullptr) std::memcpy(copy, buffer, static_cast<size_t>(length));
    return copy;
}

void OcppProtocolUtils_ChangeMeterMeasurand16(void* buffer, int count) {
    Renumber(buffer, count, &OcppEnumTrans_TransSampledValueMeasurand16);
}

void OcppProtocolUtils_ChangeMeterMeasurand21(void* buffer, int count) {
    Renumber(buffer, count, &OcppEnumTrans_TransSampledValueMeasurand21);
}

std::vector<void*> OcppProtocolUtils_MeterBufferToVector(int count, const void* buffer) {
    std::vector<void*> items;
    const unsigned char* at = static_cast<const unsigned char*>(buffer);
    if (at == nullptr || count <= 0) return items;
    const size_t length = ItemLength(at);
    for (int i = 0; i < count; ++i, at += length) {
        void* item = std::malloc(length);
        if (item == nullptr) break;
        std::memcpy(item, at, length);
        items.push_back(item);
    }
    return items;
}

void OcppProtocolUtils_MeterVectorRelease(std::vector<void*>& items) {
    for (void* item : items) std::free(item);
    items.clear();
}

const void* OcppProtocolUtils_GetLastMeter(const void* buffer, int count) {
    const unsigned char* at = static_cast<const unsigned char*>(buffer);
    if (at == nullptr || count <= 0) return nullptr;
    for (int i = 1; i < count; ++i) at += ItemLength(at);
    return at;
}

uint32_t OcppProtocolUtils_GetMeterMaxValue(int count, const void* buffer) {
    // The last value, not the largest: a register's last reading is its total.
    std::vector<void*> items = OcppProtocolUtils_MeterBufferToVector(count, buffer);
    uint32_t value = 0;
    if (!items.empty()) {
        MeterItem last;
        std::memcpy(&last, items.back(), sizeof last);
        value = last.value > 0 ? static_cast<uint32_t>(last.value) : 0;
    }
    OcppProtocolUtils_MeterVectorRelease(items);
    return value;
}

int OcppEnumTrans_TransSampledValueMeasurand16(int measurand) {
    return Translate(kNeutralMeasurands, measurand, &Measurand16ByName);
}

int OcppEnumTrans_TransSampledValueMeasurand20(int measurand) {
    return models::GetMeasurandInString(measurand).empty() ? -1 : measurand;
}

int OcppEnumTrans_TransSampledValueMeasurand21(int measurand) {
    return Translate(kNeutralMeasurands, measurand, &Measurand21ByName);
}

int OcppEnumTrans_TransSampledValueMeasurand(OCPPPROTOCOL protocol, int measurand) {
    switch (protocol) {
        case OCPPPROTOCOL_16:
            return OcppEnumTrans_TransSampledValueMeasurand16(measurand);
        case OCPPPROTOCOL_201:
            return OcppEnumTrans_TransSampledValueMeasurand20(measurand);
        case OCPPPROTOCOL_21:
            return OcppEnumTrans_TransSampledValueMeasurand21(measurand);
        default:
            return -1;
    }
}

int OcppEnumTrans_TransTransactionStopReason16(int stopReason) {
    const size_t count = sizeof kReasons16 / sizeof kReasons16[0];
    return stopReason >= 0 && static_cast<size_t>(stopReason) < count ? kReasons16[stopReason] : -1;
}

int OcppEnumTrans_TransTransactionStopReason20(int stopReason) {
    return NameAt(kNeutralReasons, stopReason) != nullptr ? stopReason : -1;
}

int OcppEnumTrans_TransTransactionStopReason21(int stopReason) {
    return Translate(kNeutralReasons, stopReason, &Reason21ByName);
}

int OcppEnumTrans_TransAuthorizeStatus16(int status16) {
    // 1.6: Accepted, Blocked, Expired, Invalid, ConcurrentTx.
    static const int kStatus[] = {0, 1, 3, 4, 2};
    return status16 >= 0 && status16 < 5 ? kStatus[status16] : 4;
}

int OcppEnumTrans_TransConfigurationStatus16(VARIABLESTATUS status) {
    // 1.6: Accepted 0, Rejected 1, RebootRequired 2, NotSupported 3.
    switch (status) {
        case VARIABLESTATUS_ACCEPTED:
            return 0;
        case VARIABLESTATUS_REBOOTREQUIRED:
            return 2;
        case VARIABLESTATUS_UNKNOWNCOMPONENT:
        case VARIABLESTATUS_UNKNOWNVARIABLE:
        case VARIABLESTATUS_NOTSUPPORTEDATTRIBUTETYPE:
            return 3;
        default:
            return 1;
    }
}

int OcppEnumTrans_TransConnectorStatus16(CONNECTORSTATUS status) {
    // 1.6: Available 0, Preparing 1, ..., Reserved 6, Unavailable 7, Faulted 8.
    switch (status) {
        case CONNECTORSTATUS_AVAILABLE:
            return 0;
        case CONNECTORSTATUS_OCCUPIED:
            return 1;
        case CONNECTORSTATUS_RESERVED:
            return 6;
        case CONNECTORSTATUS_UNAVAILABLE:
            return 7;
        case CONNECTORSTATUS_FAULTED:
            return 8;
    }
    return -1;
}

int OcppEnumTrans_TransEnergyTransferMode20(ENERGYTRANSFERMODE mode) {
    return models::GetEnergyTransferModeInString(static_cast<int>(mode)).empty() ? -1 : static_cast<int>(mode);
}

int OcppEnumTrans_TransEnergyTransferMode21(ENERGYTRANSFERMODE mode) {
    const std::string name = models::GetEnergyTransferModeInString(static_cast<int>(mode));
    return name.empty() ? -1 : EnergyMode21ByName(name.c_str());
}

int OcppEnumTrans_TransAllowEnergyTransfer21(const char* mode) {
    // The neutral list is the 2.0.1 one; 2.1's bidirectional modes have no place in it.
    return mode != nullptr && IndexOf(kEnergyModes21, mode) >= 0 ? models::GetEnergyTransferModeInInt(mode) : -1;
}

int OcppEnumTrans_TransFirmwareStatus16(FIRMWARESTATUS status) { return At(kFirmwareStatus16, status); }

int OcppEnumTrans_TransUploadLogStatus16(UPLOADLOGSTATUS status) { return At(kUploadLogStatus16, status); }

int OcppEnumTrans_UnlockStatus16(UNLOCKSTATUS status) { return At(kUnlockStatus16, status); }

int OcppEnumTrans_TransMessageTrigger(int trigger16) { return At(kMessageTrigger16, trigger16); }

const char* OcppEnumTrans_ResponseErrorCodeToString(RESPONSEERRORCODE code) {
    return Base::ErrorCodeText(static_cast<int>(code));
}

const char* OcppEnumTrans_ChargingLimitSource(CHARGINGLIMITSOURCE source) {
    static const char* const kSources[] = {"EMS", "Other", "SO", "CSO"};
    const char* name = NameAt(kSources, static_cast<int>(source));
    return name != nullptr ? name : "";
}

const char* OcppEnumTrans_ConnectorStatus(CONNECTORSTATUS status) {
    static const char* const kStatuses[] = {"Available", "Occupied", "Reserved", "Unavailable", "Faulted"};
    const char* name = NameAt(kStatuses, static_cast<int>(status));
    return name != nullptr ? name : "";
}

int OcppEnumTrans_TransMessageFormat(const char* format) {
    return format != nullptr ? models::GetMessageFormatInInt(format) : -1;
}

int OcppEnumTrans_CostUpdateChargingState(const char* chargingState) {
    return chargingState != nullptr ? models::GetChargingStateInInt(chargingState) : -1;
}

int32_t OcppStructTrans_TransactionEventParam20(const TransactionInfoItem* items, int count, int32_t param) {
    for (int i = 0; items != nullptr && i < count; ++i) {
        const int32_t value = items[i].value;
        if (items[i].type == TRANSACTIONINFO_NUMBEROFPHASESUSED && value >= 0 && value <= 3) {
            param = (param & ~Ocpp20::TRANSACTIONEVENTPARAM_PHASES_MASK) |
                    (value << Ocpp20::TRANSACTIONEVENTPARAM_PHASES_SHIFT);
        } else if (items[i].type == TRANSACTIONINFO_CABLEMAXCURRENT && value >= 0 && value <= 0xFFFF) {
            param = (param & ~Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_MASK) |
                    (value << Ocpp20::TRANSACTIONEVENTPARAM_CABLEMAX_SHIFT);
        }
    }
    return param;
}
