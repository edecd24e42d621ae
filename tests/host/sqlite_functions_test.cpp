#include <csignal>
#include <cstring>

#include <gmock/gmock.h>
#include <sqlite3.h>

#include "host/library.h"
#include "host/sqlite/functions.h"
#include "tests/scratch.h"

using host::Library;

namespace {

// A connection with the functions of a library.
class Database {
  public:
    explicit Database(const char* library_path = PRODUCT_LIBRARY,
                      const std::string& file = ":memory:") {
        std::string error;
        auto library = std::make_shared<Library>(Library::load(library_path, error));
        EXPECT_EQ("", error);
        sqlite3_open(file.c_str(), &_db);
        EXPECT_EQ(SQLITE_OK,
                  quorel_sqlite_register(_db, std::move(library), quorel_sqlite_next_connection()));
    }
    ~Database() { EXPECT_EQ(SQLITE_OK, sqlite3_close(_db)) << "no statement is left behind"; }
    Database(const Database&) = delete;

    // The rows, fields joined with "|", rows ended with ";"; or the error's message.
    std::string run(const std::string& sql) {
        std::string text;
        const auto add_row = [](void* to, int count, char** fields, char**) {
            auto& row = *static_cast<std::string*>(to);
            for (int i = 0; i < count; ++i)
                row.append(i > 0 ? "|" : "").append(fields[i] != nullptr ? fields[i] : "NULL");
            row += ";";
            return 0;
        };
        const int code = sqlite3_exec(_db, sql.c_str(), add_row, &text, nullptr);
        return code == SQLITE_OK ? text : sqlite3_errmsg(_db);
    }

    [[nodiscard]] sqlite3* handle() const { return _db; }

  private:
    sqlite3* _db = nullptr;
};

struct Row {
    const char* sql;
    const char* answer;
};

TEST(SqlFunctions, give_results_of_the_procedures_kind_or_say_how_they_are_called) {
    const ScratchFolder folder;
    Database db;
    db.run("CREATE TABLE f AS SELECT '" + folder.file("f") + "' AS name");
    for (const Row& row : {
             Row{"SELECT xp_write_file(name, x'00ff0a') FROM f", "0;"},
             {"SELECT typeof(xp_read_file(name)), hex(xp_read_file(name)) FROM f", "blob|00FF0A;"},
             {"SELECT xp_write_file(name, -9000000000) FROM f", "0;"},
             {"SELECT CAST(xp_read_file(name) AS TEXT) FROM f", "-9000000000;"},
             {"SELECT xp_read_file('/nowhere'), xp_read_file(NULL)", "NULL|NULL;"},
             {"SELECT typeof(xp_read_file('/dev/null'))", "blob;"},
             {"SELECT xp_sprintf('%s-%s-%s', 'a', 1.5, x'62')", "a-1.5-b;"},
             {"SELECT xp_sprintf(NULL), xp_sprintf('%d', 1)", "NULL|NULL;"},
             {"SELECT hex(xp_sprintf('%s', x'61e282')), hex(xp_sprintf('%s', x'e28261')),"
              " hex(xp_sprintf('%s', x'80'))",
              "61|E28261|80;"},
             {"SELECT hex(value) FROM xp_scanf(x'f09f9820c3a4', '%s %s')", ";C3A4;"},
             {"SELECT xp_cmdshell('exit 3'), xp_cmdshell('exit 4', 'no_output')", "3|4;"},
             {"SELECT rowid, value, input FROM xp_scanf('12 abc', '%s %s %s')",
              "1|12|12 abc;2|abc|12 abc;"},
             {"SELECT value FROM xp_scanf WHERE format = '%s' AND input = 'x'", "x;"},
             {"SELECT value FROM xp_scanf('x', '%s') WHERE input IN ('x') AND input = 'y'", ""},
             {"SELECT a || value FROM (SELECT 'p q' AS a UNION SELECT 'r'), xp_scanf(a, '%s %s')",
              "p qp;p qq;rr;"},
             // How they are called.
             {"SELECT xp_cmdshell(1, 2, 3)",
              "wrong number of arguments (3); use xp_cmdshell(command [, output])"},
             {"SELECT xp_sprintf()",
              "wrong number of arguments (0); use xp_sprintf(format [, value, …])"},
             {"SELECT * FROM xp_scanf('a')",
              "wrong number of arguments (1); use xp_scanf(input, format)"},
             {"SELECT xp_read_file('/dev/null' || char(0) || 'x')",
              "xp_read_file: parameter 1 (name) is text and takes no zero byte"},
         })
        EXPECT_EQ(row.answer, db.run(row.sql)) << row.sql;
}

TEST(SqlFunctions, leave_open_databases_alone) {
    const ScratchFolder folder;
    Database db(PRODUCT_LIBRARY, folder.file("db"));
    db.run("PRAGMA journal_mode = WAL; CREATE TABLE t(a); ATTACH '" + folder.file("other") +
           "' AS other; CREATE TABLE other.t(a)");
    // Another connection of the program's, which knows nothing of the procedures.
    sqlite3* stranger = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(folder.file("strange").c_str(), &stranger));
    sqlite3_exec(stranger, "CREATE TABLE t(a)", nullptr, nullptr, nullptr);
    const auto link = [&folder](const std::string& target, const char* name) {
        std::filesystem::create_symlink(target, folder.file(name));
    };
    link("db", "alias");
    link(folder.file("strange-journal"), "journal to be");
    link("strange-shm", "memory to be");
    link(".", "way");
    const std::string refusal = "this program has that file in use, as it has an open database's; "
                                "copy a database with VACUUM INTO";
    for (const char* name :
         {"db", "db-wal", "db-shm", "db-journal", "other", "other-wal", "alias", "strange",
          "strange-journal", "journal to be", "memory to be", "way/strange-wal"}) {
        EXPECT_EQ(refusal, db.run("SELECT xp_read_file('" + folder.file(name) + "')")) << name;
        EXPECT_EQ(refusal, db.run("SELECT xp_write_file('" + folder.file(name) + "', 'x')"));
    }
    sqlite3_close(stranger);
    // A file that the program reads or writes for itself is none.
    std::ofstream writer(folder.file("plain"));
    std::ifstream reader(folder.file("plain"));
    for (const char* name : {"plain", "strange", "strange-journal", "plain-journal"})
        EXPECT_EQ("0;", db.run("SELECT xp_write_file('" + folder.file(name) + "', 'x')")) << name;
    const std::string copy = "'" + folder.file("copy") + "'";
    EXPECT_EQ("1;", db.run("VACUUM INTO " + copy + "; SELECT xp_read_file(" + copy + ") <> ''"));
}

TEST(SqlFunctions, are_refused_while_a_schema_may_call_them) {
    struct Case {
        const char* before;
        const char* sql;
        const char* answer;
    };
    for (const Case& c : {
             Case{"CREATE TABLE my_xp_sprintf(xp_sprintfs)", "SELECT xp_sprintf('a')", "a;"},
             {"CREATE TABLE \"a\nb\"(a /* XP_sprintf */); CREATE INDEX i ON \"a\nb\"(a)",
              "SELECT xp_sprintf('a')",
              "xp_sprintf is refused while table \"a?b\" of database main names it: what a schema "
              "says must not run; drop or rename what names it, or leave that database out"},
             {"CREATE TABLE t(a /* xp_sprintf */)",
              "SELECT value, xp_cmdshell('exit 3') FROM xp_scanf('b', '%s')", "b|3;"},
             {"CREATE TABLE t(a /* xp_sprintf */); DROP TABLE t", "SELECT xp_sprintf('a')", "a;"},
             {"CREATE TEMP VIEW v AS SELECT xp_sprintf('a')", "SELECT * FROM v",
              "xp_sprintf is refused while view \"v\" of database temp"},
             {"CREATE TEMP VIEW v AS SELECT * FROM xp_scanf('a', '%s')", "SELECT * FROM v",
              "xp_scanf is refused while view \"v\" of database temp"},
             // The text on file is another than that in memory.
             {"CREATE TABLE t(a, CHECK(xp_sprintf('x') = 'x')); PRAGMA writable_schema = ON;"
              "UPDATE sqlite_master SET sql = 'CREATE TABLE t(a)'",
              "INSERT INTO t VALUES(xp_sprintf('a'))",
              "xp_sprintf is refused since the schema in memory calls it"},
             {"CREATE TABLE t(a, CHECK(xp_sprintf('x') = 'x')); PRAGMA writable_schema = ON;"
              "UPDATE sqlite_master SET sql = 'CREATE TABLE t(a)'",
              "INSERT INTO t VALUES('a')",
              "xp_sprintf is refused since the statement does not name it"},
             // An empty index over what is searched.
             {"CREATE VIEW v AS SELECT 1 AS xp_sprintf; CREATE TABLE t(a, b, c);"
              "CREATE INDEX i ON t(a, b, c); PRAGMA writable_schema = ON;"
              "UPDATE sqlite_master SET tbl_name = 'sqlite_master',"
              " sql = 'CREATE INDEX i ON sqlite_master(sql, type, name)' WHERE name = 'i';"
              "PRAGMA writable_schema = RESET",
              "SELECT xp_sprintf('a')", "xp_sprintf is refused while view \"v\""},
         }) {
        Database db;
        ASSERT_EQ(db.run(c.before), "") << c.before;
        EXPECT_THAT(db.run(c.sql), testing::StartsWith(c.answer)) << c.before;
    }
}

TEST(SqlFunctions, want_a_statement_of_their_own) {
    Database db;
    db.run("CREATE TABLE t(a); INSERT INTO t VALUES('x')");
    // A function that runs what it is given, as SQLite's own programs have them.
    const auto eval = [](sqlite3_context* context, int, sqlite3_value** values) {
        const auto* sql = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
        char* message = nullptr;
        sqlite3_exec(sqlite3_context_db_handle(context), sql, nullptr, nullptr, &message);
        sqlite3_result_text(context, message, -1, SQLITE_TRANSIENT);
        sqlite3_free(message);
    };
    sqlite3_create_function(db.handle(), "eval", 1, SQLITE_UTF8, nullptr, eval, nullptr, nullptr);
    EXPECT_EQ("xp_sprintf is refused inside another statement, whose text may be a stranger's; "
              "call it in a statement of its own;",
              db.run("SELECT eval('SELECT xp_sprintf(1)')"));

    // What rests between two rows, and an open BLOB, are nobody's callers.
    sqlite3_blob* blob = nullptr;
    sqlite3_stmt* resting = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_blob_open(db.handle(), "main", "t", "a", 1, 0, &blob));
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db.handle(), "SELECT a FROM t", -1, &resting, nullptr));
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(resting));
    EXPECT_EQ("a;", db.run("SELECT xp_sprintf('a')"));
    sqlite3_blob_close(blob);
    sqlite3_finalize(resting);

    const auto deny = [](void*, int, const char* table, const char*, const char*, const char*) {
        return table != nullptr && strcmp(table, "sqlite_master") == 0 ? SQLITE_DENY : SQLITE_OK;
    };
    sqlite3_set_authorizer(db.handle(), deny, nullptr);
    EXPECT_EQ("xp_sprintf is refused since SQLite does not tell the schema of database main: "
              "access to sqlite_master.sql is prohibited",
              db.run("SELECT xp_sprintf('a')"));
}

TEST(SqlFunctions, keep_within_the_connections_length_limit) {
    const ScratchFolder folder;
    Database db;
    sqlite3_limit(db.handle(), SQLITE_LIMIT_LENGTH, 100000);
    const std::string fits = folder.file_with("fits", pattern(99999));
    const std::string exceeds = folder.file_with("exceeds", pattern(100001));
    EXPECT_EQ("99999;", db.run("SELECT length(xp_read_file('" + fits + "'))"));
    EXPECT_EQ("string or blob too big", db.run("SELECT length(xp_read_file('" + exceeds + "'))"));
    EXPECT_EQ("string or blob too big", db.run("SELECT xp_read_file('/dev/zero')"));
}

sqlite3* to_interrupt;

TEST(SqlFunctions, end_a_running_command_when_interrupted) {
    Database db;
    to_interrupt = db.handle();
    signal(SIGUSR1, [](int) { sqlite3_interrupt(to_interrupt); });
    EXPECT_EQ("interrupted", db.run("SELECT xp_cmdshell('kill -USR1 $PPID; exec sleep 60')"));
    EXPECT_EQ("5;", db.run("SELECT xp_cmdshell('exit 5')")) << "the connection goes on";
}

TEST(SqlFunctions, keep_the_programs_signals_away_from_their_threads) {
    Database db(FAKE_LIBRARY);
    EXPECT_EQ("1;", db.run("SELECT xp_cmdshell('')"));
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(0, sigismember(&mask, SIGINT)) << "and leave the caller's own mask alone";
    EXPECT_EQ("the library does not export xp_sprintf; use a library and a host of one build",
              db.run("SELECT xp_sprintf('')"));
}

}  // namespace
