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

// Inside a quoted literal a value is harmless as long as it cannot end the
// literal: every quote in it must be doubled, and it must hold no NUL.
bool StaysInsideQuotes(const std::string& v) {
    for (size_t i = 0; i < v.size(); ++i) {
        if (v[i] == '\0') return false;
        if (v[i] == '\'') {
            if (i + 1 >= v.size() || v[i + 1] != '\'') return false;
            ++i;
        }
    }
    return true;
}

// A value must never smuggle in a second statement: only blanks may follow the first.
bool OnlyBlanks(const char* tail) {
    if (tail == nullptr) return true;
    for (; *tail; ++tail)
        if (!isspace(static_cast<unsigned char>(*tail)) && *tail != ';') return false;
    return true;
}

template <typename T>
std::string FormatOne(const std::string& spec, T value) {
    char small[64];
    const int n = snprintf(small, sizeof small, spec.c_str(), value);
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
    std::vector<char> big(static_cast<size_t>(n) + 1);
    snprintf(big.data(), big.size(), spec.c_str(), value);
    return std::string(big.data(), static_cast<size_t>(n));
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
        // One conversion: %[flags][width][.precision][length]conversion.
        std::string spec = "%";
        ++p;
        while (*p && strchr("-+ #0", *p)) spec += *p++;
        if (*p == '*') {
            spec += std::to_string(va_arg(args, int));
            ++p;
        } else {
            while (isdigit(static_cast<unsigned char>(*p))) spec += *p++;
        }
        if (*p == '.') {
            spec += *p++;
            if (*p == '*') {
                spec += std::to_string(va_arg(args, int));
                ++p;
            } else {
                while (isdigit(static_cast<unsigned char>(*p))) spec += *p++;
            }
        }
        std::string length;
        while (*p && strchr("hlLqjzt", *p)) length += *p++;
        const char conv = *p;
        if (conv == '\0') {
            WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => incomplete conversion in: %s", SQLITE_ERROR, format);
            return false;
        }
        ++p;
        ++argNo;
        spec += length;
        spec += conv;
        std::string value;
        bool textual = false;
        switch (conv) {
            case 'd':
            case 'i':
                if (length == "ll" || length == "q" || length == "L")
                    value = FormatOne(spec, va_arg(args, long long));
                else if (length == "l")
                    value = FormatOne(spec, va_arg(args, long));
                else if (length == "j")
                    value = FormatOne(spec, va_arg(args, intmax_t));
                else if (length == "z")
                    value = FormatOne(spec, va_arg(args, ssize_t));
                else if (length == "t")
                    value = FormatOne(spec, va_arg(args, ptrdiff_t));
                else
                    value = FormatOne(spec, va_arg(args, int));
                break;
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                if (length == "ll" || length == "q" || length == "L")
                    value = FormatOne(spec, va_arg(args, unsigned long long));
                else if (length == "l")
                    value = FormatOne(spec, va_arg(args, unsigned long));
                else if (length == "j")
                    value = FormatOne(spec, va_arg(args, uintmax_t));
                else if (length == "z")
                    value = FormatOne(spec, va_arg(args, size_t));
                else if (length == "t")
                    value = FormatOne(spec, va_arg(args, ptrdiff_t));
                else
                    value = FormatOne(spec, va_arg(args, unsigned int));
                break;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                if (length == "L")
                    value = FormatOne(spec, va_arg(args, long double));
                else
                    value = FormatOne(spec, va_arg(args, double));
                textual = true;  // inf / nan are words, not numbers
                break;
            case 'c':
                if (!length.empty()) {
                    WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => unsupported conversion in: %s", SQLITE_ERROR, format);
                    return false;
                }
                value = FormatOne(spec, va_arg(args, int));
                textual = true;
                break;
            case 's': {
                if (!length.empty()) {
                    WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => unsupported conversion in: %s", SQLITE_ERROR, format);
                    return false;
                }
                const char* s = va_arg(args, const char*);
                value = FormatOne(spec, s ? s : "(null)");
                textual = true;
                break;
            }
            default:  // %n, %p and anything unknown never belong in a statement
                WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => unsupported conversion in: %s", SQLITE_ERROR, format);
                return false;
        }
        const bool safe = quoted ? StaysInsideQuotes(value) : (!textual || IsNumber(value) || IsIdentifier(value));
        if (!safe) {
            // The value itself may be an idToken: name only its position.
            WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => value %d would change the statement: %s", SQLITE_ERROR,
                     argNo, format);
            return false;
        }
        out += value;
    }
    return true;
}

int CDbDriver::Execute(const std::string& sql) {
    WriteLog(DBLOGLEVEL_TRACE, "ExecuteSQL: %s", sql.c_str());
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    int rc = sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &stmt, &tail);
    if (rc != SQLITE_OK) {
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => %s", rc, m_pDb ? sqlite3_errmsg(m_pDb) : sqlite3_errstr(rc));
        return 0;
    }
    if (!OnlyBlanks(tail)) {
        sqlite3_finalize(stmt);
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => more than one statement", SQLITE_ERROR);
        return 0;
    }
    if (stmt == nullptr) return 1;  // only blanks: nothing to run
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        const int n = sqlite3_column_count(stmt);
        for (int i = 0; i < n; ++i) {
            const char* name = sqlite3_column_name(stmt, i);
            const unsigned char* text = sqlite3_column_text(stmt, i);
            WriteLog(DBLOGLEVEL_TRACE, "%s = %s", name ? name : "", text ? reinterpret_cast<const char*>(text) : "NULL");
        }
    }
    if (rc != SQLITE_DONE) {
        WriteLog(DBLOGLEVEL_ERROR, "SQL error: %d => %s", rc, sqlite3_errmsg(m_pDb));
        sqlite3_finalize(stmt);
        return 0;
    }
    sqlite3_finalize(stmt);
    return 1;
}

void CDbDriver::ForEachRow(const std::string& sql, const char* traceName,
                           const std::function<void(sqlite3_stmt*)>& onRow) {
    WriteLog(DBLOGLEVEL_TRACE, "%s: %s", traceName, sql.c_str());
    sqlite3_stmt* stmt = nullptr;
    const char* tail = nullptr;
    const int prc = sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &stmt, &tail);
    if (prc != SQLITE_OK || stmt == nullptr) {
        WriteLog(DBLOGLEVEL_ERROR, "sqlite3_prepare_v2 error: %s",
                 m_pDb ? sqlite3_errmsg(m_pDb) : sqlite3_errstr(prc == SQLITE_OK ? SQLITE_MISUSE : prc));
        if (stmt) sqlite3_finalize(stmt);
        return;
    }
    if (!OnlyBlanks(tail)) {
        sqlite3_finalize(stmt);
        WriteLog(DBLOGLEVEL_ERROR, "sqlite3_prepare_v2 error: %s", "more than one statement");
        return;
    }
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) onRow(stmt);
    if (rc != SQLITE_DONE) WriteLog(DBLOGLEVEL_ERROR, "sqlite3_step error: %s", sqlite3_errmsg(m_pDb));
    sqlite3_finalize(stmt);
}

DbRows CDbDriver::Query(const std::string& sql, const char* traceName) {
    DbRows rows;
    ForEachRow(sql, traceName, [&rows](sqlite3_stmt* stmt) {
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

std::list<std::string> CDbDriver::QuerySQL2Text(const std::string& sql) {
    std::list<std::string> out;
    ForEachRow(sql, "QuerySQL2", [&out](sqlite3_stmt* stmt) {
        const unsigned char* text = sqlite3_column_count(stmt) > 0 ? sqlite3_column_text(stmt, 0) : nullptr;
        out.push_back(text ? reinterpret_cast<const char*>(text) : "");
    });
    return out;
}

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
