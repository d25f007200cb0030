#pragma once
#include <pthread.h>

#include <memory>
#include <string>
#include <vector>

#include "Ocpp20/Process/AuthorizeItem.h"
#include "Util/DbDriver.h"
#include "Util/Singleton.h"

// The authorization cache and the local authorization list, both in
// authorizecache.db. Every token is bound as a statement value, never written
// into the statement text: a token may hold any character, apostrophes included.
class CAuthorizeCache : public CSingleton<CAuthorizeCache> {
public:
    // The local list's version is a row of locallist with this token type.
    static const int kVersionTokenType = 5000;

    int SetStoreFile(const std::string& path);

    int UpdateAuthorizeCache(const AuthorizeItem& item);
    int ClearAuthorizeCache();
    int DeleteAuthorizeCacheItem(const AuthorizeItem& item);
    std::unique_ptr<AuthorizeItem> GetAuthorizeCacheItem(const char* token, int tokenType);

    int UpdateLocalList(int version, const std::vector<AuthorizeItem>& items, int full);
    int GetLocalListVersion();
    std::unique_ptr<AuthorizeItem> GetLocalListItem(const char* token, int tokenType);

    // 1 when Accepted; *status is the row's status after expiry, 255 when absent.
    int IsTokenAcceptFromLocalList(const char* token, int tokenType, int* status);
    int IsTokenAcceptFromAuthorizeCache(const char* token, int tokenType, int* status);
    int IsTokenAccept(const char* token, int tokenType, int* status, int* fromLocalList);
    std::string GetGroupToken(const char* token);

    // The host's view of the local list: every row but the version row.
    std::vector<AuthorizeItem> GetTokenWhiteItems();
    int SetTokenWhiteItems(const std::vector<AuthorizeItem>& items);

    // Rows of locallist, the version row included.
    int GetCurLocalListEntries();
    void UpdateLocalAuthListEntries();

private:
    friend class CSingleton<CAuthorizeCache>;
    CAuthorizeCache();
    ~CAuthorizeCache();
    CAuthorizeCache(const CAuthorizeCache&) = delete;
    CAuthorizeCache& operator=(const CAuthorizeCache&) = delete;
    void ResetInPlace();

    void CreateTables();
    // Callers hold m_mutex. `table` is one of the two table names.
    bool ObtainItem(const char* table, const char* token, int tokenType, AuthorizeItem* item);
    bool ObtainAuthorizeCacheItem(const char* token, int tokenType, AuthorizeItem* item) {
        return ObtainItem("authorizecache", token, tokenType, item);
    }
    bool ObtainLocalListItem(const char* token, int tokenType, AuthorizeItem* item) {
        return ObtainItem("locallist", token, tokenType, item);
    }
    int IsTokenAcceptFrom(const char* table, const char* token, int tokenType, int* status);
    int InsertItem(const char* table, const AuthorizeItem& item);
    int UpdateItem(const char* table, const AuthorizeItem& item);
    int CountLocalList();

    pthread_mutex_t m_mutex;  // the database and the path
    CDbDriver m_db;
    std::string m_path;
};
