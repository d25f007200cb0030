#pragma once
#include <sqlite3.h>

#include <cstdarg>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Level of one driver message.
enum DBLOGLEVEL { DBLOGLEVEL_TRACE = 0, DBLOGLEVEL_ERROR = 1 };
// How much the driver logs: 0 nothing, 1 errors only, 2 errors and every statement.
enum LOGOUTLEVEL { LOGOUTLEVEL_NONE = 0, LOGOUTLEVEL_ERROR = 1, LOGOUTLEVEL_ALL = 2 };

typedef std::map<std::string, std::string> DbRow;
typedef std::list<DbRow> DbRows;

// One value bound to a `?` of a statement.
struct DbParam {
    enum Kind { Null, Int, Real, Text };
    Kind kind;
    int64_t i;
    double d;
    std::string text;

    DbParam() : kind(Null), i(0), d(0) {}
    // Every integer type once, so int64_t picks one on 32- and 64-bit targets alike.
    DbParam(int v) : kind(Int), i(v), d(0) {}
    DbParam(unsigned v) : kind(Int), i(v), d(0) {}
    DbParam(long v) : kind(Int), i(v), d(0) {}
    DbParam(long long v) : kind(Int), i(static_cast<int64_t>(v)), d(0) {}
    DbParam(double v) : kind(Real), i(0), d(v) {}
    DbParam(const char* v) : kind(v != nullptr ? Text : Null), i(0), d(0), text(v != nullptr ? v : "") {}
    DbParam(std::string v) : kind(Text), i(0), d(0), text(std::move(v)) {}
};
typedef std::vector<DbParam> DbParams;

// Thin synchronous wrapper around one SQLite connection. No lock of its own:
// every owner serialises its calls.
//
// Statements are printf-formatted with SQLite's own printf, so a text value
// inside a quoted literal is written as %q writes it (its quotes doubled) and
// is stored and read back intact. A text value outside quotes must be a
// number or a plain identifier (a table name), or the statement fails before
// anything runs. The ...Bind calls take statements with `?` and bind their
// values instead; their trace shows the statement text, never the values
// (which may be idTokens). Only one statement is ever run per call.
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

    // Statements with `?` placeholders and their values, in order.
    int ExecuteSQLBind(const std::string& sql, const DbParams& params);
    DbRows QuerySQLBind(const std::string& sql, const DbParams& params);
    std::list<std::string> QuerySQL2Bind(const std::string& sql, const DbParams& params);
    // Rows changed by the last statement that ran.
    int Changes() const;
    // Row id of the last row inserted through this connection; 0 before any.
    int64_t LastInsertId() const;

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
    // Prepares exactly one statement and binds `params`. Null with rc and why
    // set when it cannot; null with rc SQLITE_OK for a blank statement.
    sqlite3_stmt* Prepare(const std::string& sql, const DbParams& params, int& rc, std::string& why);
    int Execute(const std::string& sql, const DbParams& params = DbParams());
    DbRows Query(const std::string& sql, const char* traceName, const DbParams& params = DbParams());
    std::list<std::string> QueryFirstColumn(const std::string& sql, const DbParams& params);
    // Hands each result row of one statement to `onRow`; errors are logged.
    void ForEachRow(const std::string& sql, const char* traceName, const DbParams& params,
                    const std::function<void(sqlite3_stmt*)>& onRow);

    int m_iLogEnabled;
    sqlite3* m_pDb;
    int m_eLogOutLevel;
};
