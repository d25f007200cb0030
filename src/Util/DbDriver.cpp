#include "Util/DbDriver.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/types.h>
#include <vector>

#include "Util/Tools.h"

namespace {

bool IsIdentifier(const std::string& v) {
    if (v.empty() || !(isalpha(static_cast<unsigned char>(v[0])) || v[0] == '_')) return false;
    for (char c : v)
        if (!(isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
    return true;
}

bool IsNumber(const std::string& v) { return CTools::IsDecimal(v); }

// A value must never smuggle in a second statement: only blanks may follow the first.
bool OnlyBlanks(const char* tail) {
    if (tail == nullptr) return true;
    for (; *tail; ++tail)
        if (!isspace(static_cast<unsigned char>(*tail)) && *tail != ';') return false;
    return true;
}

// One conversion through SQLite's own printf.
template <typename T>
std::string Mprintf(const std::string& spec, T value) {
    char* text = sqlite3_mprintf(spec.c_str(), value);
    std::string out(text != nullptr ? text : "");
    sqlite3_free(text);
    return out;
}

}  // namespace

CDbDriver::CDbDriver() : m_iLogEnabled(1), m_pDb(nullptr), m_eLogOutLevel(LOGOUTLEVEL_ALL) {}

CDbDriver::~CDbDriver() { CloseDB(); }

int CDbDriver::OpenDB(const std::string& path) {
    CloseDB();
    const int rc = sqlite3_open_v2(path.c_str(), &m_pDb,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        WriteLog(DBLOGLEVEL_ERROR, "open database harbel.db failed:%d", rc);
        CloseDB();
        return 0;
    }
    return 1;
}

void CDbDriver::CloseDB() {
    if (m_pDb != nullptr) {
        sqlite3_close_v2(m_pDb);
        m_pDb = nullptr;
    }
}

int CDbDriver::CreateTable(const std::string& name, const std::map<std::string, std::string>& columns) {
    if (columns.empty()) return 0;
    if (!IsIdentifier(name)) {
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => bad table name", SQLITE_ERROR);
        return 0;
    }
    std::string body;
    for (const auto& c : columns) {
        if (!IsIdentifier(c.first)) {
            WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => bad column %s", SQLITE_ERROR, c.first.c_str());
            return 0;
        }
        if (!body.empty()) body += ",";
        body += c.first + " " + c.second;
    }
    return Execute(StringFormat("create table if not exists %s(%s)", name.c_str(), body.c_str()));
}

bool CDbDriver::VFormatChecked(std::string& out, const char* format, va_list args) {
    out.clear();
    if (format == nullptr) return false;
    bool quoted = false;
    int argNo = 0;
    for (const char* p = format; *p;) {
        if (*p != '%') {
            if (*p == '\'') quoted = !quoted;
            out += *p++;
            continue;
        }
        if (p[1] == '%') {
            out += '%';
            p += 2;
            continue;
        }
        // One conversion: %[flags][width][.precision][l|ll]conversion.
        std::string spec = "%";
        ++p;
        while (*p && strchr("-+ #0", *p)) spec += *p++;
        while (isdigit(static_cast<unsigned char>(*p))) spec += *p++;
        if (*p == '.') {
            spec += *p++;
            while (isdigit(static_cast<unsigned char>(*p))) spec += *p++;
        }
        int longs = 0;
        while (*p == 'l' && longs < 2) {
            spec += *p++;
            ++longs;
        }
        const char conv = *p != '\0' ? *p++ : '\0';
        ++argNo;
        std::string value;
        bool textual = false;
        bool known = true;
        switch (conv) {
            case 'd':
            case 'i':
                spec += conv;
                value = longs == 2 ? Mprintf(spec, va_arg(args, long long))
                                   : longs == 1 ? Mprintf(spec, va_arg(args, long)) : Mprintf(spec, va_arg(args, int));
                break;
            case 'u':
            case 'x':
            case 'X':
            case 'o':
                spec += conv;
                value = longs == 2   ? Mprintf(spec, va_arg(args, unsigned long long))
                        : longs == 1 ? Mprintf(spec, va_arg(args, unsigned long))
                                     : Mprintf(spec, va_arg(args, unsigned int));
                break;
            case 'f':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
                spec.resize(spec.size() - static_cast<size_t>(longs));  // %lf is a double too
                spec += conv;
                value = Mprintf(spec, va_arg(args, double));
                textual = true;  // Inf and NaN are words, not numbers
                break;
            case 's': {
                if (longs != 0) {
                    known = false;
                    break;
                }
                const char* text = va_arg(args, const char*);
                // Inside a literal %q doubles the value's quotes, so it cannot end the literal.
                spec += quoted ? 'q' : 's';
                value = Mprintf(spec, text != nullptr ? text : "(null)");
                textual = !quoted;
                break;
            }
            default:
                known = false;
                break;
        }
        if (!known) {
            // %n, %p, %c and unknown conversions never belong in a statement.
            WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => unsupported conversion in: %s", SQLITE_ERROR, format);
            return false;
        }
        if (!quoted && textual && !IsNumber(value) && !IsIdentifier(value)) {
            // The value itself may be an idToken: name only its position.
            WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => value %d would change the statement: %s", SQLITE_ERROR,
                     argNo, format);
            return false;
        }
        out += value;
    }
    return true;
}

sqlite3_stmt* CDbDriver::Prepare(const std::string& sql, const DbParams& params, int& rc, std::string& why) {
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    rc = sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &stmt, &tail);
    if (rc != SQLITE_OK) {
        why = m_pDb ? sqlite3_errmsg(m_pDb) : sqlite3_errstr(rc);
        return nullptr;
    }
    rc = SQLITE_ERROR;
    if (!OnlyBlanks(tail)) {
        why = "more than one statement";
    } else if (stmt == nullptr) {
        if (params.empty()) rc = SQLITE_OK;  // only blanks: nothing to run
        why = "no statement for the values";
    } else if (static_cast<size_t>(sqlite3_bind_parameter_count(stmt)) != params.size()) {
        why = "placeholders and values differ in number";
    } else {
        for (size_t i = 0; i < params.size(); ++i) {
            const DbParam& v = params[i];
            const int at = static_cast<int>(i) + 1;
            if (v.kind == DbParam::Int) {
                rc = sqlite3_bind_int64(stmt, at, static_cast<sqlite3_int64>(v.i));
            } else if (v.kind == DbParam::Real) {
                rc = sqlite3_bind_double(stmt, at, v.d);
            } else if (v.kind == DbParam::Text) {
                rc = sqlite3_bind_text(stmt, at, v.text.data(), static_cast<int>(v.text.size()), SQLITE_STATIC);
            } else {
                rc = sqlite3_bind_null(stmt, at);
            }
            if (rc != SQLITE_OK) {
                why = sqlite3_errmsg(m_pDb);
                break;
            }
        }
        if (rc == SQLITE_OK || params.empty()) {
            rc = SQLITE_OK;
            return stmt;
        }
    }
    sqlite3_finalize(stmt);
    return nullptr;
}

int CDbDriver::Execute(const std::string& sql, const DbParams& params) {
    WriteLog(DBLOGLEVEL_TRACE, "ExecuteSQL: %s", sql.c_str());
    int rc = SQLITE_OK;
    std::string why;
    sqlite3_stmt* stmt = Prepare(sql, params, rc, why);
    if (stmt == nullptr) {
        if (rc == SQLITE_OK) return 1;
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => %s", rc, why.c_str());
        return 0;
    }
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        const int n = sqlite3_column_count(stmt);
        for (int i = 0; i < n; ++i) {
            const char* name = sqlite3_column_name(stmt, i);
            const unsigned char* text = sqlite3_column_text(stmt, i);
            WriteLog(DBLOGLEVEL_TRACE, "%s = %s", name ? name : "", text ? reinterpret_cast<const char*>(text) : "NULL");
        }
    }
    sqlite3_finalize(stmt);
    if (rc != SQLITE_DONE) {
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => %s", rc, sqlite3_errmsg(m_pDb));
        return 0;
    }
    return 1;
}

void CDbDriver::ForEachRow(const std::string& sql, const char* traceName, const DbParams& params,
                           const std::function<void(sqlite3_stmt*)>& onRow) {
    WriteLog(DBLOGLEVEL_TRACE, "%s: %s", traceName, sql.c_str());
    int rc = SQLITE_OK;
    std::string why;
    sqlite3_stmt* stmt = Prepare(sql, params, rc, why);
    if (stmt == nullptr) {
        WriteLog(DBLOGLEVEL_ERROR, "sqlite3_prepare_v2 error: %s",
                 rc == SQLITE_OK ? sqlite3_errstr(SQLITE_MISUSE) : why.c_str());
        return;
    }
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) onRow(stmt);
    if (rc != SQLITE_DONE) WriteLog(DBLOGLEVEL_ERROR, "sqlite3_step error: %s", sqlite3_errmsg(m_pDb));
    sqlite3_finalize(stmt);
}

DbRows CDbDriver::Query(const std::string& sql, const char* traceName, const DbParams& params) {
    DbRows rows;
    ForEachRow(sql, traceName, params, [&rows](sqlite3_stmt* stmt) {
        DbRow row;
        const int n = sqlite3_column_count(stmt);
        for (int i = 0; i < n; ++i) {
            const char* name = sqlite3_column_name(stmt, i);
            const unsigned char* text = sqlite3_column_text(stmt, i);
            row[name ? name : ""] = text ? reinterpret_cast<const char*>(text) : "";
        }
        rows.push_back(std::move(row));
    });
    return rows;
}

std::list<std::string> CDbDriver::QueryFirstColumn(const std::string& sql, const DbParams& params) {
    std::list<std::string> out;
    ForEachRow(sql, "QuerySQL2", params, [&out](sqlite3_stmt* stmt) {
        const unsigned char* text = sqlite3_column_count(stmt) > 0 ? sqlite3_column_text(stmt, 0) : nullptr;
        out.push_back(text ? reinterpret_cast<const char*>(text) : "");
    });
    return out;
}

int CDbDriver::ExecuteSQLBind(const std::string& sql, const DbParams& params) { return Execute(sql, params); }

DbRows CDbDriver::QuerySQLBind(const std::string& sql, const DbParams& params) {
    return Query(sql, "QuerySQL", params);
}

std::list<std::string> CDbDriver::QuerySQL2Bind(const std::string& sql, const DbParams& params) {
    return QueryFirstColumn(sql, params);
}

int CDbDriver::Changes() const { return m_pDb != nullptr ? sqlite3_changes(m_pDb) : 0; }

int64_t CDbDriver::LastInsertId() const { return m_pDb != nullptr ? sqlite3_last_insert_rowid(m_pDb) : 0; }

int CDbDriver::ExecuteSQL(const char* format, ...) {
    std::string sql;
    va_list args;
    va_start(args, format);
    const bool ok = VFormatChecked(sql, format, args);
    va_end(args);
    return ok ? Execute(sql) : 0;
}

DbRows CDbDriver::QuerySQL(const char* format, ...) {
    std::string sql;
    va_list args;
    va_start(args, format);
    const bool ok = VFormatChecked(sql, format, args);
    va_end(args);
    return ok ? Query(sql, "QuerySQL") : DbRows();
}

std::list<std::string> CDbDriver::QuerySQL2(const char* format, ...) {
    std::string sql;
    va_list args;
    va_start(args, format);
    const bool ok = VFormatChecked(sql, format, args);
    va_end(args);
    if (!ok) return std::list<std::string>();
    return QuerySQL2Text(sql);
}

int CDbDriver::FormatSQL(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const bool ok = VFormatChecked(out, format, args);
    va_end(args);
    if (!ok) out.clear();
    return ok ? 1 : 0;
}

int CDbDriver::ExecuteSQLText(const std::string& sql) { return Execute(sql); }

DbRows CDbDriver::QuerySQLText(const std::string& sql) { return Query(sql, "QuerySQL"); }

std::list<std::string> CDbDriver::QuerySQL2Text(const std::string& sql) { return QueryFirstColumn(sql, DbParams()); }

std::string CDbDriver::StringFormat(const char* format, ...) {
    if (format == nullptr) return std::string();
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int n = vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string out;
    if (n > 0) {
        std::vector<char> buf(static_cast<size_t>(n) + 1);
        vsnprintf(buf.data(), buf.size(), format, args);
        out.assign(buf.data(), static_cast<size_t>(n));
    }
    va_end(args);
    return out;
}

void CDbDriver::WriteLog(int level, const char* format, ...) {
    if (!m_iLogEnabled || m_eLogOutLevel == LOGOUTLEVEL_NONE || format == nullptr) return;
    if (level == DBLOGLEVEL_TRACE && m_eLogOutLevel == LOGOUTLEVEL_ERROR) return;
    va_list args;
    va_start(args, format);
    const std::string text = CTools::VStringFormat(format, args);
    va_end(args);
    CTools::Log(level == DBLOGLEVEL_ERROR ? OCPP_LOG_ERROR : OCPP_LOG_DEBUG, "WriteLog", "Util/DbDriver.cpp", __LINE__,
                "%s", text.c_str());
}
