#ifndef QUOREL_TESTS_HOST_OUTBOX_OUTBOXES_H
#define QUOREL_TESTS_HOST_OUTBOX_OUTBOXES_H

// An outbox of either database, and the people who use it by SQL.

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

#include <sqlite3.h>

#include "host/outbox/pgstore.h"
#include "host/outbox/sqlitestore.h"
#include "tests/scratch.h"
#ifdef QUOREL_POSTGRES
#include "host/outbox/pgconnection.h"
#endif

namespace host::outbox {

/// A database of the test's own.
class TestedDatabase {
  public:
    virtual ~TestedDatabase() = default;
    /// What the daemon is called with.
    [[nodiscard]] virtual std::string where() const = 0;
    [[nodiscard]] virtual Steps steps() const = 0;
    virtual std::unique_ptr<Store> store(const std::string& daemon, Steps steps) = 0;
    std::unique_ptr<Store> store(const std::string& daemon) { return store(daemon, steps()); }
    /// What somebody's SQL gives: the columns of the rows, separated by "|" and line breaks; or
    /// "error: " with the database's words. Tables are called quorel.NAME in both.
    virtual std::string ask(const std::string& sql) = 0;
};

class SqliteFile : public TestedDatabase {
  public:
    using TestedDatabase::store;
    ~SqliteFile() override { sqlite3_close(_people); }
    [[nodiscard]] std::string where() const override { return _folder.file("out # box.db"); }
    [[nodiscard]] Steps steps() const override { return sqlite_steps(); }
    std::unique_ptr<Store> store(const std::string& daemon, Steps its_steps) override {
        return std::make_unique<SqliteStore>(where(), daemon, its_steps);
    }
    std::string ask(const std::string& sql) override {
        std::string text = sql;
        for (std::size_t at = 0; (at = text.find("quorel.", at)) != std::string::npos;)
            text[at + 6] = '_';
        if (_people == nullptr) sqlite3_open(where().c_str(), &_people);
        std::string rows;
        const auto add = [](void* to, int count, char** values, char**) {
            auto& all = *static_cast<std::string*>(to);
            if (!all.empty()) all += '\n';
            for (int i = 0; i < count; ++i)
                all += std::string(i > 0 ? "|" : "") + (values[i] != nullptr ? values[i] : "");
            return 0;
        };
        if (sqlite3_exec(_people, text.c_str(), add, &rows, nullptr) != SQLITE_OK)
            return std::string("error: ") + sqlite3_errmsg(_people);
        return rows;
    }

  private:
    ScratchFolder _folder;
    sqlite3* _people = nullptr;
};

#ifdef QUOREL_POSTGRES
class PgDatabase : public TestedDatabase {
  public:
    using TestedDatabase::store;
    static const char* server() { return std::getenv("QUOREL_TEST_SERVER"); }

    PgDatabase() {
        static std::atomic<int> count{0};
        _name = "outbox" + std::to_string(++count);
        PgConnection connection;
        PgRows none;
        std::string error;
        if (!connection.open(std::string(server()) + " dbname=postgres", error) ||
            !connection.execute("CREATE DATABASE " + _name, none, error))
            std::abort();
    }
    ~PgDatabase() override { PQfinish(_people); }
    [[nodiscard]] std::string where() const override {
        return std::string(server()) + " dbname=" + _name;
    }
    [[nodiscard]] Steps steps() const override { return postgres_steps(); }
    std::unique_ptr<Store> store(const std::string& daemon, Steps its_steps) override {
        std::string error;
        return make_pg_store(where(), daemon, its_steps, error);
    }
    std::string ask(const std::string& sql) override {
        if (_people == nullptr || PQstatus(_people) != CONNECTION_OK) {
            PQfinish(_people);
            _people = PQconnectdb(where().c_str());
            PQsetNoticeProcessor(
                _people, [](void*, const char*) {}, nullptr);
        }
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(_people, sql.c_str()),
                                                                   PQclear);
        if (PQresultStatus(result.get()) == PGRES_FATAL_ERROR)
            return std::string("error: ") + PQresultErrorMessage(result.get());
        std::string rows;
        for (int row = 0; row < PQntuples(result.get()); ++row) {
            if (row > 0) rows += '\n';
            for (int i = 0; i < PQnfields(result.get()); ++i)
                rows += std::string(i > 0 ? "|" : "") + PQgetvalue(result.get(), row, i);
        }
        return rows;
    }

  private:
    std::string _name;
    PGconn* _people = nullptr;
};
#endif

}  // namespace host::outbox

#endif
