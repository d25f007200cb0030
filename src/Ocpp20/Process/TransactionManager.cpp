// stand-in until the real one lands
#include "Ocpp20/Process/TransactionManager.h"

CTransactionManager::CTransactionManager() { pthread_mutex_init(&m_mutex, nullptr); }
CTransactionManager::~CTransactionManager() { pthread_mutex_destroy(&m_mutex); }
void CTransactionManager::ResetInPlace() {}
void CTransactionManager::Resume() {}

int CTransactionManager::TransactionStart(int, int, const char*, int, int, int, int, int, const char*, const Meter&,
                                          std::string*, int*) {
    return 0;
}
int CTransactionManager::TransactionUpdate(const std::string&, int, int, const Meter&, int) { return 0; }
int CTransactionManager::TransactionEnd(const std::string&, int, int, int, const Meter&) { return 0; }
int CTransactionManager::TransactionEndWithToken(const std::string&, int, int, int, const char*, int, const Meter&) {
    return 0;
}
int CTransactionManager::UpdateTransactionInfo(const std::string&, const TransactionInfoItem*, int) { return 0; }
bool CTransactionManager::TransactionIDFromEvseID(int, std::string*) { return false; }
std::vector<TransactionDetail> CTransactionManager::GetTransactionItemsDetail(const std::string&) { return {}; }
int CTransactionManager::AddTransactionRemoteID(const std::string&, int) { return 0; }
int CTransactionManager::GetTransactionErrorCode(const std::string&) { return 0; }
int CTransactionManager::GetTransactionCount() { return 0; }
int CTransactionManager::UpdateTotalCostByTransactionID(float, const std::string&) { return 0; }
void CTransactionManager::NotifyNotAcceptedTransaction(const std::string&) {}
