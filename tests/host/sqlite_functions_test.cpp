#include "host/sqlite/functions.h"

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <thread>

#include "host/library.h"
#include "tests/scratch.h"

using host::Library;

namespace {

// A connection with the functions of a library.
class Database {
  public:
    explicit Database(const char* library_path = PRODUCT_LIBRARY,
                      const std::string& file = ":memory:")
        : _library(Library::load(library_path, _error)) {
        EXPECT_TRUE(_library.loaded()) << _error;
        sqlite3_open(file.c_str(), &_db);
        EXPECT_EQ(quorel_sqlite_register(_db, _library, quorel_sqlite_next_connection()),
                  SQLITE_OK);
    }
    ~Database() { EXPECT_EQ(sqlite3_close(_db), SQLITE_OK) << "no statement is left behind"; }
    Database(const Database&) = delete;

    // The rows, fields joined with "|", rows ended with ";"; or the error's message.
    std::string run(const std::string& sql) {
        std::string text;
        char* message = nullptr;
        const auto add_row = [](void* to, int count, char** fields, char**) {
            for (int i = 0; i < count; ++i)
                *static_cast<std::string*>(to) +=
                    std::string(i > 0 ? "|" : "") + (fields[i] != nullptr ? fields[i] : "NULL");
            *static_cast<std::string*>(to) += ";";
            return 0;
        };
        if (sqlite3_exec(_db, sql.c_str(), add_row, &text, &message) != SQLITE_OK) text = message;
        sqlite3_free(message);
        return text;
    }

    [[nodiscard]] sqlite3* handle() const { return _db; }

  private:
    std::string _error;
    Library _library;
    sqlite3* _db = nullptr;
};

struct Row {
    const char* sql;
    const char* answer;
};

TEST(SqlFunctions, give_results_of_the_kind_that_the_procedure_has) {
    const ScratchFolder folder;
    Database db;
    db.run("CREATE TABLE f AS SELECT '" + folder.file("f") + "' AS name");
    for (const Row& row : {
             Row{"SELECT xp_write_file(name, x'00ff0a') FROM f", "0;"},
             {"SELECT typeof(xp_read_file(name)), hex(xp_read_file(name)) FROM f", "blob|00FF0A;"},
             {"SELECT xp_write_file(name, -9000000000) FROM f", "0;"},
             {"SELECT CAST(xp_read_file(name) AS TEXT) FROM f", "-9000000000;"},
             {"SELECT xp_write_file(name, x'') FROM f", "1;"},
             {"SELECT xp_write_file(name, NULL) FROM f", "1;"},
             {"SELECT xp_read_file('/nowhere'), xp_read_file(NULL)", "NULL|NULL;"},
             {"SELECT typeof(xp_read_file('/dev/null'))", "blob;"},
             {"SELECT xp_sprintf('%s-%s-%s', 'a', 1.5, x'62')", "a-1.5-b;"},
             {"SELECT xp_sprintf(NULL), xp_sprintf('%d', 1)", "NULL|NULL;"},
             {"SELECT xp_cmdshell('exit 3'), xp_cmdshell('exit 4', 'no_output')", "3|4;"},
             {"SELECT rowid, value, input FROM xp_scanf('12 abc', '%s %s %s')",
              "1|12|12 abc;2|abc|12 abc;"},
             {"SELECT value FROM xp_scanf WHERE format = '%s' AND input = 'x'", "x;"},
             {"SELECT value FROM xp_scanf('x', '%s') WHERE input IN ('x') AND input = 'y'", ""},
             {"SELECT a || value FROM (SELECT 'p q' AS a UNION SELECT 'r'), xp_scanf(a, '%s %s')",
              "p qp;p qq;rr;"},
             {"SELECT count(*) FROM xp_scanf('x', 'y%s'), xp_scanf(NULL, '%s')", "0;"},
         })
        EXPECT_EQ(db.run(row.sql), row.answer) << row.sql;
}

TEST(SqlFunctions, say_how_they_are_called) {
    Database db;
    for (const Row& row : {
             Row{"SELECT xp_write_file('f')",
                 "wrong number of arguments (1); use xp_write_file(name, contents)"},
             {"SELECT xp_cmdshell(1, 2, 3)",
              "wrong number of arguments (3); use xp_cmdshell(command [, output])"},
             {"SELECT xp_sprintf()",
              "wrong number of arguments (0); use xp_sprintf(format [, value, …])"},
             {"SELECT * FROM xp_scanf('a')",
              "wrong number of arguments (1); use xp_scanf(input, format)"},
             {"SELECT xp_read_file('/dev/null' || char(0) || 'x')",
              "xp_read_file: parameter 1 (name) is text and takes no zero byte"},
             {"SELECT * FROM xp_scanf(1, 2, 3)", "too many arguments on xp_scanf() - max 2"},
         })
        EXPECT_EQ(db.run(row.sql), row.answer) << row.sql;
}

TEST(SqlFunctions, leave_the_open_database_alone) {
    const ScratchFolder folder;
    Database db(PRODUCT_LIBRARY, folder.file("db"));
    db.run("PRAGMA journal_mode = WAL; CREATE TABLE t(a); ATTACH '" + folder.file("other") +
           "' AS other; CREATE TABLE other.t(a)");
    ASSERT_EQ(symlink(folder.file("db").c_str(), folder.file("alias").c_str()), 0);
    const std::string refusal =
        "that file is this connection's open database; copy it with VACUUM INTO";
    for (const char* name : {"db", "db-wal", "db-shm", "other", "alias"}) {
        const std::string file = "'" + folder.file(name) + "'";
        EXPECT_EQ(db.run("SELECT xp_read_file(" + file + ")"), refusal) << name;
        EXPECT_EQ(db.run("SELECT xp_write_file(" + file + ", 'x')"), refusal) << name;
    }
    EXPECT_EQ(db.run("VACUUM INTO '" + folder.file("copy") + "'; SELECT length(xp_read_file('" +
                     folder.file("copy") + "')) > 0"),
              "1;");
}

TEST(SqlFunctions, keep_within_the_connections_length_limit) {
    const ScratchFolder folder;
    Database db;
    sqlite3_limit(db.handle(), SQLITE_LIMIT_LENGTH, 100000);
    const std::string fits = folder.file_with("fits", pattern(99999));
    const std::string exceeds = folder.file_with("exceeds", pattern(100001));
    EXPECT_EQ(db.run("SELECT length(xp_read_file('" + fits + "'))"), "99999;");
    EXPECT_EQ(db.run("SELECT length(xp_read_file('" + exceeds + "'))"), "string or blob too big");
    EXPECT_EQ(db.run("SELECT xp_read_file('/dev/zero')"), "string or blob too big");
}

TEST(SqlFunctions, end_a_running_command_when_interrupted) {
    Database db;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread interrupter([&] {
        // The command says when it runs.
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
        sqlite3_interrupt(db.handle());
    });
    EXPECT_EQ(db.run("SELECT xp_cmdshell('echo >&" + std::to_string(ends[1]) + "; exec sleep 60')"),
              "interrupted");
    interrupter.join();
    EXPECT_EQ(db.run("SELECT xp_cmdshell('exit 5')"), "5;") << "the connection goes on";
    close(ends[0]);
    close(ends[1]);
}

TEST(SqlFunctions, keep_the_programs_signals_away_from_their_threads) {
    Database db(FAKE_LIBRARY);
    EXPECT_EQ(db.run("SELECT xp_cmdshell('')"), "1;");
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGINT), 0) << "and leave the caller's own mask alone";
    EXPECT_EQ(db.run("SELECT xp_sprintf('')"), "the library does not export xp_sprintf; use a "
                                               "library and a host of one build");
}

}  // namespace
