#pragma once
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "Util/DbDriver.h"

namespace Json {
class Value;
}

// One stored profile as the calculation reads it back.
struct ProfileItem {
    int32_t profileId;
    std::string content;  // the chargingProfile object, compact JSON
};

// Where the store learns about transactions: the transaction manager of the
// running version installs these. Without them no transaction is known.
typedef std::string (*ProfileTransactionOfEvse)(int evseId);  // empty: none on that EVSE
typedef int (*ProfileTransactionCount)();                     // transactions on the station

// The charging profile database both protocol generations share: one table of
// indexing columns plus the profile's JSON. The generations differ only in their
// columns and in what a stored row carries besides the common fields; that part
// lives in the derived managers.
//
// Every statement runs under the store lock, so a reader sees a replaced profile
// either before or after its replacement, never between delete and insert.
// Values reach SQLite bound; a text value holding an apostrophe is still refused
// where a write would have failed with it spliced into the statement.
class CProfileStore {
public:
    int SetStoreFile(const std::string& path);
    std::string GetStoreFile();

    // Host entry shape {evseId, chargingProfile}; source from chargingLimitSource.
    int AddChargingProfile(const char* requestJson);
    // From the CSMS: source "CSO", no selected schedules.
    int AddChargingProfile(int evseId, const char* profileJson);
    int AddChargingProfile(int evseId, const char* profileJson, const char* scheduleIds, const char* source);

    int RemoveChargingProfile(int profileId);
    int RemoveChargingProfile(const std::vector<int>& profileIds);  // empty: 0, nothing done
    int RemoveChargingProfile(const char* source);

    std::string GetChargingProfile(int profileId);
    std::list<std::string> GetChargingProfile(const std::vector<int>& profileIds);
    std::string GetScheduleIDs(int profileId);
    std::string GetChargingProfileSource(int profileId);
    int64_t GetProfileStartTime(int profileId);
    std::list<int> GetEvseIDList();
    int GetLocalChargingProfileCount();
    std::list<int> GetProfieIDsFromPurpose(const char* purpose);
    int UpdateChargingProfileContent(int profileId, const char* json);

    // Binds profiles installed before their transaction had an id ("-1").
    int AddTransactionID(int evseId, const char* transactionId);
    // Removes the first TxProfile of the transaction only.
    int RemoveTransactionProfile(const char* transactionId);
    // Removes profiles that ended before `now`; 1 when any was removed.
    int RemoveTimeOutProfile(uint64_t now);

    // Candidates of one calculation; negative ids last.
    std::list<ProfileItem> GetProfileItemList(int evseId);
    std::string GetCurVaildTxDefaultProfile(int evseId);

    // GetChargingProfiles / ClearChargingProfile search: EVSE id -> profile ids.
    // Ids, when given, are the only criterion; negative numbers and empty texts are absent.
    std::map<int, std::vector<int>> FilterChargingProfileIDs(int evseId, int stackLevel, const char* purpose,
                                                             const std::vector<int>& profileIds,
                                                             const std::vector<std::string>& sources);
    std::vector<int> FilterChargingProfileIDs(int evseId, int stackLevel, const char* purpose);

    // Seconds of the last write; the calculation recalculates when it moves.
    int64_t GetChangeStamp() const { return m_changeStamp.load(); }
    void SetChangeStamp(int64_t sec) { m_changeStamp = sec; }

    void SetTransactionLookup(ProfileTransactionOfEvse ofEvse, ProfileTransactionCount count);

    // Writes the row count to SmartChargingCtrlr.Entries[ChargingProfiles] from a
    // thread of its own, so no device-model lock is ever taken under the store lock.
    void UpdateChargingProfileEntries();
    // Waits for those writers; for shutdown and tests.
    bool WaitEntriesWriters(int timeoutMs);

    static const int64_t kNoEnd = 2147483647;

    // What differs between generations.
    struct StoreShape {
        const char* storeName;                 // "ChargingProfile20"
        const char* entriesPrefix;             // "20"
        const char* bindTransactionLog;        // AddTransactionID's log line
        const char* validFromColumn;           // validFrom, install time when absent
        const char* endColumn;                 // validTo
        const char* startColumn;               // start read by GetProfileStartTime
        const char* stationPurposes;           // where-term for EVSE 0 candidates
        std::vector<std::pair<std::string, std::map<std::string, std::string>>> tables;  // creation order
    };

protected:
    // One row about to be written; the generation adds its own columns.
    struct ProfileRow {
        int profileId = 0;
        int evseId = 0;
        int stackLevel = 0;
        std::string purpose;
        std::string transactionId;
        std::string scheduleIds;
        std::string source;
        std::string content;
        int64_t validFrom = 0;
        int64_t validTo = kNoEnd;
        int64_t now = 0;
        // Extra columns of a generation, in its insert order.
        std::vector<std::pair<std::string, DbParam>> extra;
    };

    explicit CProfileStore(StoreShape shape);
    virtual ~CProfileStore();

    // Fills the generation's part of `row` from the parsed profile.
    virtual void CompleteRow(ProfileRow& row, const Json::Value& profile) = 0;
    // Refreshes what an update of the content refreshes besides it.
    virtual void ContentUpdateColumns(std::string& set, DbParams& params, int64_t now);

    // Back to the state of a fresh object; the database is closed under its lock.
    void ResetStore();

    // Statement helpers, each taking the store lock.
    int Execute(const std::string& sql, const DbParams& params);
    DbRows Query(const std::string& sql, const DbParams& params);
    std::list<std::string> QueryColumn(const std::string& sql, const DbParams& params);
    // Both under the store lock already held.
    int ExecuteLocked(const std::string& sql, const DbParams& params);
    std::list<std::string> QueryColumnLocked(const std::string& sql, const DbParams& params);

    // False, with the driver's error line, when a value would have broken the statement.
    bool TextsStorable(const std::vector<const std::string*>& texts);
    std::string TransactionOfEvse(int evseId);
    int TransactionCount();
    void Touch(int64_t now) { m_changeStamp = now; }

    static std::string WriteCompact(const Json::Value& value);
    static std::string IdList(const std::vector<int>& ids);

    const StoreShape m_shape;
    pthread_mutex_t m_storeMutex;
    CDbDriver m_db;  // guarded by m_storeMutex

private:
    bool HasStoreFileLocked() const { return !m_strPath.empty(); }

    std::string m_strPath;  // guarded by m_storeMutex
    std::atomic<int64_t> m_changeStamp{0};
    std::atomic<ProfileTransactionOfEvse> m_transactionOfEvse{nullptr};
    std::atomic<ProfileTransactionCount> m_transactionCount{nullptr};
    std::atomic<int> m_entriesWriters{0};
};
