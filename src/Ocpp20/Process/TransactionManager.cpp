// stand-in until the real one lands
#include "Ocpp20/Process/TransactionManager.h"

CTransactionManager::CTransactionManager() { pthread_mutex_init(&m_mutex, nullptr); }
CTransactionManager::~CTransactionManager() { pthread_mutex_destroy(&m_mutex); }
void CTransactionManager::ResetInPlace() {}
void CTransactionManager::Resume() {}
bool CTransactionManager::IsTransactionExist(const std::string&) { return false; }
void CTransactionManager::NotifyStartTransaction(const std::string&) {}
int CTransactionManager::TransactionEnd(const std::string&, int, int, int, const Meter&) { return 0; }
