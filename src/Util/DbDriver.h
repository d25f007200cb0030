#pragma once
#include <sqlite3.h>

#include <cstdarg>
#include <functional>
#include <list>
#include <map>
#include <string>

// Level of one driver message.
enum DBLOGLEVEL { DBLOGLEVEL_TRACE = 0, DBLOGLEVEL_ERROR = 1 };
// How much the driver logs: 0 nothing, 1 errors only, 2 errors and every statement.
enum LOGOUTLEVEL { LOGOUTLEVEL_NONE = 0, LOGOUTLEVEL_ERROR = 1, LOGOUTLEVEL_ALL = 2 };

typedef std::map<std::string, std::string> DbRow;
typedef std::list<DbRow> DbRows;

// Thin synchronous wrapper around one SQLite connection. No lock of its own:
// every owner serialises its calls.
//
// Statements are printf-formatted. A value that would change a statement's
// structure fails the statement before anything runs: a conversion inside
// single quotes in the format must not end the quoted literal (quotes in it
// must come doubled), and a conversion outside quotes must give a number or a
// plain identifier. Only one statement is ever run per call.
class CDbDriver {
public:
    CDbDriver();
    ~CDbDriver();
    CDbDriver(const CDbDriver&) = delete;
    CDbDriver& operator=(const CDbDriver&) = delete;

    int OpenDB(const std::string& path);
    void CloseDB();
    bool IsOpen() const { return m_pDb != nullptr; }

    // Column name -> declaration; the map's order is the physical column order.
    int CreateTable(const std::string& name, const std::map<std::string, std::string>& columns);

    int ExecuteSQL(const char* format, ...) __attribute__((format(printf, 2, 3)));
    DbRows QuerySQL(const char* format, ...) __attribute__((format(printf, 2, 3)));
    std::list<std::string> QuerySQL2(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Checked formatting for statement fragments (a where clause built in
    // steps). 1 on success; 0 and an error log when a value is unsafe.
    int FormatSQL(std::string& out, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // Run whole statements built with FormatSQL.
    int ExecuteSQLText(const std::string& sql);
    DbRows QuerySQLText(const std::string& sql);
    std::list<std::string> QuerySQL2Text(const std::string& sql);

    // Plain printf into a string of exactly the needed length; no checks.
    static std::string StringFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

    void EnableLog(int on) { m_iLogEnabled = on; }
    void SetLogOutLevel(int level) { m_eLogOutLevel = level; }
    void WriteLog(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

private:
    bool VFormatChecked(std::string& out, const char* format, va_list args);
    int Execute(const std::string& sql);
    DbRows Query(const std::string& sql, const char* traceName);
    // Prepares one statement and hands each result row to `onRow`; errors are logged.
    void ForEachRow(const std::string& sql, const char* traceName, const std::function<void(sqlite3_stmt*)>& onRow);

    int m_iLogEnabled;
    sqlite3* m_pDb;
    int m_eLogOutLevel;
};
