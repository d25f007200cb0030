#pragma once
#include <pthread.h>

#include <cstdint>
#include <string>
#include <vector>

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
class CReservationManager {
public:
    static CReservationManager* GetInstance();
    static void Release();

    static const int kMaxReservations = 1000;

    int SetStoreFile(const std::string& path);
    int AddReservationItem(const ReservationItem& item);
    // 1 and a copy when stored and not expired; an expired one is removed.
    int GetReservationItem(uint32_t id, ReservationItem* item);
    int RemoveReservation(uint32_t id);
    void RemoveAll();
    int SyncFromFile();
    int SyncToFile();
    size_t Count();

    // ---- Calls for the request handlers; one each. ----
    // ReserveNow: stores at once (before the host decides) and posts the
    // host record. 0 when the expiry text is not a valid time.
    int OnReserveNowRequest(const char* messageId, uint32_t id, int32_t evseId, const char* idToken,
                            int32_t tokenType, const char* groupToken, int32_t groupTokenType,
                            const std::string& expiryDateTime);
    // CancelReservation: posts the host record; 1 when the reservation is stored.
    int OnCancelReservationRequest(const char* messageId, uint32_t id);
    // The host reported the reservation expired or removed.
    int OnReservationStatusUpdate(uint32_t id);

    enum { RESERVATION_ABSENT = -1, RESERVATION_REFUSED = 0, RESERVATION_ACCEPTED = 1 };
    // Reserved start: the reserved token, or with a group any token of that group.
    int CheckReservedStart(uint32_t id, const char* idToken, const char* groupToken);

private:
    CReservationManager();
    ~CReservationManager();
    int WriteImage(const std::string& text, const std::string& path);

    static CReservationManager* s_instance;
    pthread_mutex_t m_mutex;      // the list
    pthread_mutex_t m_fileMutex;  // the file; never taken before m_mutex
    std::vector<ReservationItem> m_items;
    std::string m_path;
    uint64_t m_snapshotSeq = 0;
    uint64_t m_writtenSeq = 0;
};
