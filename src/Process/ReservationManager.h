#pragma once
#include <pthread.h>

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "Util/JsonStore.h"
#include "Util/Singleton.h"

struct ReservationItem {
    uint32_t id;
    int32_t tokenType;       // IdTokenEnumType index
    char token[37];
    int32_t groupTokenType;
    char groupToken[37];     // empty: no group
    uint32_t expiryTimeSec;  // Unix seconds
};

// Reservations made by the CSMS, kept until used, cancelled or expired.
// Shared by the transaction managers of every protocol version.
class CReservationManager : public CJsonStore, public CSingleton<CReservationManager> {
public:
    static const int kMaxReservations = 1000;

    int AddReservationItem(const ReservationItem& item);
    // 1 and a copy when stored and not expired; an expired one is removed.
    int GetReservationItem(uint32_t id, ReservationItem* item);
    int RemoveReservation(uint32_t id);
    void RemoveAll();
    int SyncFromFile() override;
    size_t Count();

    // ReserveNow: stored at once, before the host decides; a refused
    // reservation stays until it expires or is removed.
    int StoreReservation(uint32_t id, const char* idToken, int32_t tokenType, const char* groupToken,
                         int32_t groupTokenType, uint32_t expiryTimeSec);

    // CancelReservation: the reservation a CALL named, until the host answers it.
    // Bounded: the oldest unanswered requests fall off, their CALLs long timed out.
    static const size_t kMaxPendingCancels = 16;
    void NoteCancelRequest(const char* messageId, uint32_t id);
    // The host's answer: Accepted forgets the reservation the CALL named, Rejected keeps it.
    // 1 when a reservation was removed.
    int SettleCancelRequest(const char* messageId, bool accepted);

    enum { RESERVATION_ABSENT = -1, RESERVATION_REFUSED = 0, RESERVATION_ACCEPTED = 1 };
    // Reserved start: the reserved token, or with a group any token of that group.
    int CheckReservedStart(uint32_t id, const char* idToken, const char* groupToken);

private:
    friend class CSingleton<CReservationManager>;
    CReservationManager();
    ~CReservationManager() override;
    std::string BuildImage() override;
    void ResetInPlace();
    void DropExpired();

    pthread_mutex_t m_mutex;  // the list; taken inside the store's write lock
    std::vector<ReservationItem> m_items;
    std::deque<std::pair<std::string, uint32_t>> m_pendingCancels;  // CALL id, reservation id
};
