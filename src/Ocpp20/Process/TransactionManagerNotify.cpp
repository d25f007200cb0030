// What the transaction manager tells the host: records 33, 34, 35 and 39.
#include <OcppRecords.h>

#include <cstring>

#include "Ocpp20/Process/TransactionManager.h"
#include "OcppProtocol/MessageCallBack.h"
#include "Util/Tools.h"

namespace {
template <class Record>
void Post(Record& record, int32_t type) {
    record.base.type = type;
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof(record), 0);
}
}  // namespace

void CTransactionManager::PostStartRecord(const std::string& txId, int type) {
    TransactionItem item;
    if (!GetTransactionItem(txId, &item)) return;
    NotifyTransactionStart record;
    std::memset(&record, 0, sizeof record);
    record.evseId = item.evseId;
    record.connectorId = item.connectorId;
    CTools::CopyField(record.transactionId, txId);
    if (item.tokenType != 255) CTools::CopyField(record.idToken, item.idToken);
    record.idTokenType = item.tokenType;
    record.authorizationStatus = 0;
    record.remoteStartId = item.remoteStartId != 0 ? item.remoteStartId : -1;
    record.reservationId = item.reservationId != 0 ? item.reservationId : -1;
    record.startTime = static_cast<uint32_t>(item.startedTime);
    Post(record, type);
}

void CTransactionManager::NotifyStartTransaction(const std::string& txId) {
    LOG_INFO("==============Notify transaction start\n");
    PostStartRecord(txId, SERVERRECVTYPE_NOTIFYTRANSACTIONSTART);
}

void CTransactionManager::NotifyPauseTransaction(const std::string& txId) {
    LOG_INFO("==============Notify transaction pause\n");
    PostStartRecord(txId, SERVERRECVTYPE_NOTIFYTRANSACTIONPAUSE);
}

void CTransactionManager::NotifyStopTransaction(const std::string& txId, int reason) {
    LOG_INFO("==============Notify transaction stop\n");
    NotifyTransactionStop record;
    std::memset(&record, 0, sizeof record);
    CTools::CopyField(record.transactionId, txId);
    record.stopReason = reason;
    Post(record, SERVERRECVTYPE_NOTIFYTRANSACTIONSTOP);
}

void CTransactionManager::NotifyNotAcceptedTransaction(const std::string& txId) {
    LOG_INFO("==============Notify transaction20 not accepted<%s>============================", txId.c_str());
    TransactionNotAccepted record;
    std::memset(&record, 0, sizeof record);
    CTools::CopyField(record.transactionId, txId);
    Post(record, SERVERRECVTYPE_TRANSACTIONNOTACCEPTED);
}
