#include <gtest/gtest.h>

#include "TestSupport.h"
#include "Util/DbDriver.h"

using namespace ocpptest;

namespace {
// A store-like table with a few tokens in it.
struct TokenDb {
    TempDir dir;
    CDbDriver db;
    TokenDb() {
        EXPECT_EQ(db.OpenDB(dir.file("auth.db")), 1);
        db.CreateTable("auth", {{"idtoken", "text"}, {"status", "integer"}, {"note", "text"}});
        for (const char* t : {"AAA111", "BBB222", "CCC333"})
            db.ExecuteSQL("insert into auth(idtoken,status)values('%s','%d')", t, 1);
    }
    size_t Count() { return db.QuerySQL2("select idtoken from auth").size(); }
};
}  // namespace

TEST(DbDriver, TablesAreLaidOutInColumnNameOrder) {
    TokenDb t;
    ASSERT_EQ(t.db.CreateTable("t", {{"b", "text"}, {"a", "integer"}}), 1);
    const auto names = t.db.QuerySQL2("select name from pragma_table_info('t') order by cid");
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(t.db.CreateTable("empty", {}), 0) << "an empty column map creates nothing";
}

TEST(DbDriver, LogOutputLevelControlsTraceAndErrorLines) {
    TokenDb t;
    CDbDriver& db = t.db;
    LogCapture log;
    db.CreateTable("t", {{"a", "integer"}});

    db.ExecuteSQL("insert into t(a)values('%d')", 7);
    EXPECT_TRUE(log.Contains("ExecuteSQL: insert into t(a)values('7')", 0)) << "level 2 traces every statement";

    log.Clear();
    db.SetLogOutLevel(LOGOUTLEVEL_ERROR);
    db.ExecuteSQL("insert into t(a)values('%d')", 8);
    db.QuerySQL("select * from t");
    EXPECT_TRUE(log.Lines().empty()) << "level 1 must not trace successful statements";
    EXPECT_EQ(db.ExecuteSQL("insert into nosuch(a)values(1)"), 0);
    EXPECT_TRUE(log.Contains("SQL error: 1 => no such table: nosuch", 2));
    for (const auto& l : log.Lines()) {
        EXPECT_EQ(l.function, "WriteLog");
        EXPECT_EQ(l.file, "Util/DbDriver.cpp");
    }

    log.Clear();
    db.SetLogOutLevel(LOGOUTLEVEL_NONE);
    db.ExecuteSQL("insert into nosuch(a)values(1)");
    db.QuerySQL("select from");
    EXPECT_TRUE(log.Lines().empty()) << "level 0 logs nothing, errors included";

    db.SetLogOutLevel(LOGOUTLEVEL_ALL);
    db.EnableLog(0);
    db.ExecuteSQL("insert into nosuch(a)values(1)");
    EXPECT_TRUE(log.Lines().empty()) << "a disabled driver logs nothing";
}

TEST(DbDriver, QueriesReturnRowsAndNullAsEmptyText) {
    TokenDb t;
    EXPECT_EQ(t.db.ExecuteSQL("update auth set note=NULL where idtoken='%s'", "BBB222"), 1);
    const DbRows rows = t.db.QuerySQL("select * from auth where idtoken='%s'", "BBB222");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows.front().at("note"), "");
    EXPECT_EQ(rows.front().at("status"), "1");
    const auto first = t.db.QuerySQL2("select idtoken, status from auth order by idtoken desc");
    EXPECT_EQ(std::vector<std::string>(first.begin(), first.end()),
              (std::vector<std::string>{"CCC333", "BBB222", "AAA111"}));
}

TEST(DbDriver, BrokenQueriesReturnEmptyOrPartialResultsAndLog) {
    TokenDb t;
    LogCapture log;
    EXPECT_TRUE(t.db.QuerySQL("select * frm auth").empty());
    EXPECT_TRUE(log.Contains("sqlite3_prepare_v2 error: ", 2));
    EXPECT_TRUE(t.db.QuerySQL2("select idtoken frm auth").empty());

    // The third row fails while stepping (integer overflow): the first two are kept.
    log.Clear();
    const DbRows rows = t.db.QuerySQL(
        "select case when idtoken='CCC333' then abs(-9223372036854775807 - 1) else idtoken end as v "
        "from auth");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows.front().at("v"), "AAA111");
    EXPECT_TRUE(log.Contains("sqlite3_step error: ", 2));
}

TEST(DbDriver, FailedOpenLogsFixedTextAndLaterStatementsFail) {
    TempDir dir;
    LogCapture log;
    CDbDriver db;
    EXPECT_EQ(db.OpenDB(dir.file("missing/folder/x.db")), 0);
    EXPECT_TRUE(log.Contains("open database harbel.db failed:14", 2));
    EXPECT_FALSE(db.IsOpen());
    EXPECT_EQ(db.ExecuteSQL("create table t(a)"), 0);
    EXPECT_TRUE(db.QuerySQL("select 1").empty());
}

TEST(DbDriver, TokenWithQuotesIsStoredIntactAndCannotReadOrChangeOtherRows) {
    TokenDb t;
    const char* evil = "x' OR '1'='1";
    EXPECT_TRUE(t.db.QuerySQL("select * from auth where idtoken='%s'", evil).empty());
    EXPECT_TRUE(t.db.QuerySQLBind("select * from auth where idtoken=?", {evil}).empty());
    EXPECT_EQ(t.db.ExecuteSQL("delete from auth where idtoken='%s'", evil), 1);
    EXPECT_EQ(t.db.ExecuteSQL("update auth set status='%d' where idtoken='%s'", 9, evil), 1);
    EXPECT_EQ(t.db.ExecuteSQL("delete from auth where idtoken='%s'", "x'; drop table auth; --"), 1);
    EXPECT_EQ(t.Count(), 3u);
    EXPECT_EQ(t.db.QuerySQL2("select idtoken from auth where status=9").size(), 0u);
    // A second statement cannot ride in the text itself either.
    EXPECT_EQ(t.db.ExecuteSQLText("delete from auth where idtoken='none'; drop table auth"), 0);
    EXPECT_EQ(t.Count(), 3u);

    // A legal token with apostrophes is stored, found and removed by either kind of statement.
    EXPECT_EQ(t.db.ExecuteSQL("insert into auth(idtoken,note)values('%s','%s')", "D'Arcy", "50% off"), 1);
    EXPECT_EQ(t.db.ExecuteSQLBind("insert into auth(idtoken,status)values(?,?)", {"O''Neil'", 2}), 1);
    const DbRows rows = t.db.QuerySQLBind("select note from auth where idtoken=?", {"D'Arcy"});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows.front().at("note"), "50% off") << "a value's own percent signs are not formats";
    EXPECT_EQ(t.db.QuerySQL2("select status from auth where idtoken='%s'", "O''Neil'").front(), "2");
    EXPECT_EQ(t.db.QuerySQL("select * from auth where idtoken like '%%%s%%'", "Arc").size(), 1u);
    EXPECT_EQ(t.db.ExecuteSQLBind("delete from auth where idtoken=?", {"D'Arcy"}), 1);
    EXPECT_EQ(t.db.Changes(), 1);
    EXPECT_EQ(t.Count(), 4u);
}

TEST(DbDriver, BoundStatementsTraceTheirTextButNeverTheValues) {
    TokenDb t;
    LogCapture log;
    EXPECT_EQ(t.db.ExecuteSQLBind("update auth set note=? where idtoken=?", {DbParam(), "SECRET1"}), 1);
    EXPECT_TRUE(log.Contains("ExecuteSQL: update auth set note=? where idtoken=?", 0));
    EXPECT_FALSE(log.Contains("SECRET1"));
    EXPECT_EQ(t.db.ExecuteSQLBind("delete from auth where idtoken=?", {}), 0) << "a missing value fails";
    EXPECT_EQ(t.db.ExecuteSQLBind("delete from auth where status=?", {1, 2}), 0) << "an extra value fails";
    EXPECT_EQ(t.Count(), 3u);
}

TEST(DbDriver, UnquotedValuesMustBeNumbersOrNames) {
    TokenDb t;
    LogCapture log;
    EXPECT_EQ(t.db.QuerySQL("select * from %s order by idtoken limit %d, 100", "auth", 1).size(), 2u);
    EXPECT_TRUE(t.db.QuerySQL("select * from auth limit %s", "1 union select 1,2,3").empty());
    EXPECT_TRUE(t.db.QuerySQL("select * from %s", "auth where 1=1").empty());
    EXPECT_EQ(t.db.ExecuteSQL("delete from auth where status=%s", "1 or 1=1"), 0);
    EXPECT_EQ(t.Count(), 3u);
    EXPECT_TRUE(log.Contains("SQL error: ", 2));
    EXPECT_FALSE(log.Contains("1 or 1=1")) << "the refused value itself may be a token and is never logged";
}
