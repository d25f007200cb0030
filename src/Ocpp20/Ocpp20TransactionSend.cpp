// stand-in until the real one lands
#include <OcppTransaction.h>

int OcppProtocol_TransactionStart(int, int, const char*, int, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, int, int,
                                  const char*, const void*, int, char*, int*) {
    return 255;
}
int OcppProtocol_TransactionUpate(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, const void*, int, int) {
    return 255;
}
int OcppProtocol_TransactionEnd(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, TRANSACTIONSTOPREASON,
                                const void*, int) {
    return 255;
}
int OcppProtocol_TransactionEndWithToken(const char*, TRANSACTIONREASON, TRANSACTIONCHARGINGSTATE, TRANSACTIONSTOPREASON,
                                         const char*, int, const void*, int) {
    return 255;
}
int OcppProtocol_TransactionIDFromEvseID(int, char*) { return 0; }
int OcppProtocol_GetTransactionItemsDetail(const char*, TransactionDetail*, int* count) {
    if (count != nullptr) *count = 0;
    return 0;
}
int OcppProtocol_AddTransactionRemoteID(const char*, int) { return 0; }
int OcppProtocol_GetTransactionCount(void) { return 0; }
