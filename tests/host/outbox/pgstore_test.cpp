// What only PostgreSQL has: roles, dumps by its own program, and a server that goes away.

#include <csignal>
#include <thread>

#include <gmock/gmock.h>

#include "host/outbox/pgstatements.h"
#include "host/outbox/stores.h"
#include "tests/host/outbox/outboxes.h"

namespace host::outbox {

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

class PostgresOutbox : public testing::Test {
  protected:
    void SetUp() override {
        database = std::make_unique<PgDatabase>();
        store = database->store("one");
        ASSERT_TRUE(store->install(error)) << error;
        EXPECT_EQ("", database->ask("INSERT INTO quorel.account (name, host, username, password) "
                                    "VALUES ('main', 'h', 'u', 'secret')"));
    }

    std::unique_ptr<PgDatabase> database;
    std::unique_ptr<Store> store;
    std::string error;
};

TEST_F(PostgresOutbox, a_role_does_what_is_its_own_to_do) {
    EXPECT_EQ("",
              database->ask("DO $$ BEGIN CREATE ROLE ann; CREATE ROLE ben; CREATE ROLE eve; "
                            "GRANT quorel_sender TO ann, ben; GRANT quorel_reader TO eve; END $$"));
    constexpr const char* denied = "permission denied";
    constexpr const char* policy = "row-level security";
    const struct {
        const char* role;
        const char* sql;
        const char* answer;  // its beginning, or what its error says
    } rows[] = {
        {"ann",
         "SELECT quorel.send_mail(recipients => 'a@b', attachments => "
         "ARRAY[quorel.file('f', 'abc'), quorel.file('g', 'd', content_id => 'c')])",
         "1"},
        {"ann",
         "INSERT INTO quorel.message (recipients, account) VALUES ('a@b', 'main') "
         "RETURNING id",
         "2"},
        {"ann", "SELECT count(*) FROM quorel.attachment", "2"},
        {"ann", "SELECT state FROM quorel.delivery WHERE message = 1", "queued"},
        {"ann", "INSERT INTO quorel.message (recipients, queued_by) VALUES ('a@b', 'ben')", denied},
        {"ann", "INSERT INTO quorel.delivery (message, max_attempts) VALUES (1, 1)", denied},
        {"ann", "SELECT password FROM quorel.account", denied},
        {"ann", "SELECT name FROM quorel.account", denied},
        {"ann", "SELECT * FROM quorel.overview", denied},
        {"ann", "UPDATE quorel.message SET recipients = 'c@d'", denied},
        {"ann", "UPDATE quorel.delivery SET recipients = 'c@d'", denied},
        {"ann", "UPDATE quorel.delivery SET state = 'sent'", policy},
        {"ann", "DELETE FROM quorel.message", denied},
        {"ann", "CREATE FUNCTION quorel.f() RETURNS int LANGUAGE sql AS 'SELECT 1'", denied},
        {"ann",
         "SELECT set_config('search_path', 'pg_temp', false) IS NULL; "
         "CREATE TEMP TABLE delivery (i int); CREATE TEMP TABLE account (i int);"
         "SELECT quorel.send_mail('a@b')",
         "3"},
        {"ben", "SELECT count(*) FROM quorel.message", "0"},
        {"ben", "SELECT quorel.cancel_mail(1)", "0"},
        {"ben", "INSERT INTO quorel.attachment (message, name, content) VALUES (1, 'x', '')",
         policy},
        {"ben", "SELECT count(*) FROM quorel.delivery", "0"},
        {"ann", "SELECT quorel.cancel_mail(1)", "1"},
        {"ann", "SELECT reason FROM quorel.delivery WHERE message = 1", "cancelled by ann"},
        {"ben", "INSERT INTO quorel.attachment (message, name, content) VALUES (1, 'x', '')",
         policy},
        {"ann", "SELECT quorel.retry_mail(1)", "1"},
        {"eve", "SELECT count(*) FROM quorel.waiting", "3"},
        {"eve", "SELECT text_body FROM quorel.message", denied},
        {"eve", "SELECT quorel.send_mail('a@b')", denied},
        {"eve", "SELECT quorel.retry_mail(1)", denied},
    };
    for (const auto& row : rows) {
        EXPECT_EQ("", database->ask(std::string("SET ROLE ") + row.role));
        const std::string answer = database->ask(row.sql);
        EXPECT_THAT(answer, HasSubstr(row.answer)) << row.role << ": " << row.sql;
        const bool is_refused = row.answer == denied || row.answer == policy;
        EXPECT_EQ(is_refused, answer.starts_with("error: ")) << row.sql;
        EXPECT_EQ("", database->ask("RESET ROLE; RESET search_path"));
    }
}

TEST_F(PostgresOutbox, a_daemon_needs_no_right_but_its_roles) {
    EXPECT_EQ("", database->ask("CREATE ROLE daemon LOGIN; GRANT quorel_daemon TO daemon;"
                                "INSERT INTO quorel.message (recipients) VALUES ('a@b');"
                                "UPDATE quorel.account SET per_minute = 100"));
    std::string words;
    const auto daemon =
        make_pg_store(database->where() + " user=daemon", "d", postgres_steps(), words);
    ASSERT_TRUE(daemon->open(error)) << error;
    std::vector<Delivery> claimed;
    std::vector<bool> held;
    std::vector<Begun> begun;
    std::vector<Message> loaded;
    ASSERT_TRUE(daemon->claim(1, 60s, claimed, error)) << error;
    ASSERT_EQ(1U, claimed.size());
    EXPECT_TRUE(daemon->load({&claimed[0].message, 1}, loaded, error) && loaded.size() == 1)
        << error;
    const Begin begin{claimed[0].id, claimed[0].token, "main"};
    EXPECT_TRUE(daemon->exchange({}, {&begin, 1}, 60s, held, begun, error)) << error;
    const Finish end{begin.delivery, begin.token, 1,       Outcome::Split, 20,
                     "no",           0s,          {"a@b"}, {"c@d"}};
    EXPECT_TRUE(daemon->exchange({&end, 1}, {}, 60s, held, begun, error)) << error;
    bool mine = false;
    EXPECT_TRUE(daemon->account_away("main", 0s, "x", error)) << error;
    EXPECT_TRUE(daemon->account_probe("main", 0s, mine, error)) << error;
    EXPECT_EQ("", database->ask("DROP OWNED BY daemon; DROP ROLE daemon"));
}

TEST_F(PostgresOutbox, a_claim_reads_what_it_takes_and_no_more) {
    // No statistics say how many there are.
    EXPECT_EQ("", database->ask("INSERT INTO quorel.message (recipients) "
                                "SELECT 'a@b' FROM generate_series(1, 2000)"));
    EXPECT_EQ("",
              database->ask("SET plan_cache_mode = force_generic_plan; SET enable_seqscan = off; " +
                            (std::string("PREPARE c AS ") + pg::claim.sql)));
    const std::string plan = database->ask("EXPLAIN ANALYZE EXECUTE c(100, 1000)");
    EXPECT_THAT(plan, HasSubstr("using delivery_queued"));
    EXPECT_THAT(plan, testing::Not(HasSubstr("Seq Scan on delivery")));
    EXPECT_THAT(plan, testing::Not(HasSubstr("Rows Removed")));
}

TEST_F(PostgresOutbox, a_claim_reads_nothing_of_those_that_ended) {
    EXPECT_EQ("", database->ask("INSERT INTO quorel.message (recipients) "
                                "SELECT 'a@b' FROM generate_series(1, 300)"));
    for (std::vector<Delivery> claimed; store->claim(1, 60s, claimed, error); claimed.clear()) {
        if (claimed.empty()) break;
        const Finish end{claimed[0].id, claimed[0].token, 0, Outcome::Sent};
        std::vector<bool> held;
        std::vector<Begun> begun;
        ASSERT_TRUE(store->exchange({&end, 1}, {}, 60s, held, begun, error)) << error;
    }
    store.reset();  // its figures are told at the latest when it goes
    usleep(200000);
    EXPECT_EQ("t", database->ask("SELECT sum(idx_tup_read) BETWEEN 300 AND 3000 "
                                 "FROM pg_stat_user_indexes WHERE relname = 'delivery'"));
}

TEST_F(PostgresOutbox, notifications_do_not_pile_up_for_who_does_not_wait) {
    const auto busy = database->store("busy");
    const std::int64_t none[] = {1};
    std::vector<Message> loaded;
    ASSERT_TRUE(busy->open(error) && busy->wait(1ms, -1, error)) << error;
    ASSERT_TRUE(busy->load(none, loaded, error)) << error;
    EXPECT_EQ("", database->ask("DO $$ BEGIN FOR i IN 1..50000 LOOP "
                                "PERFORM pg_notify('quorel_outbox', i::text); END LOOP; END $$"));
    usleep(300000);
    EXPECT_EQ("0", database->ask("SELECT count(*) FROM pg_stat_activity "
                                 "WHERE wait_event = 'ClientWrite'"));
}

TEST_F(PostgresOutbox, one_thread_that_is_refused_takes_no_other_with_it) {
    EXPECT_EQ("", database->ask("INSERT INTO quorel.message (recipients) VALUES ('a@b'), ('a@b')"));
    std::vector<Delivery> claimed;
    ASSERT_TRUE(store->claim(2, 60s, claimed, error) && claimed.size() == 2) << error;
    Stores stores(database->where(), "d");
    const std::unique_ptr<Store> all[] = {stores.make(error), stores.make(error),
                                          stores.make(error)};
    const auto exchange = [&](const Delivery& delivery, const std::string& account, bool good) {
        std::string words;
        const std::unique_ptr<Store>& mine = account == "main" ? all[delivery.id % 2] : all[2];
        for (int round = 0; round < 20; ++round) {
            const Begin begin{delivery.id, delivery.token, account};
            std::vector<bool> held;
            std::vector<Begun> begun;
            ASSERT_EQ(good, mine->exchange({}, {&begin, 1}, 60s, held, begun, words)) << words;
        }
    };
    std::thread good([&] { exchange(claimed[0], "main", true); });
    std::thread other([&] { exchange(claimed[1], "main", true); });
    exchange(claimed[0], std::string("cut\0", 4), false);
    good.join();
    other.join();
    EXPECT_EQ(
        "20|20|40",
        database->ask("SELECT min(attempts), max(attempts), (SELECT count(*) FROM quorel.attempt) "
                      "FROM quorel.delivery"));
}

TEST_F(PostgresOutbox, a_server_that_crashed_is_asked_again) {
    EXPECT_EQ("", database->ask("INSERT INTO quorel.message (recipients) VALUES ('a@b'), ('c@d')"));
    std::vector<Delivery> claimed;
    ASSERT_TRUE(store->claim(1, 60s, claimed, error) && claimed.size() == 1) << error;
    const Begin begin{claimed[0].id, claimed[0].token, "main"};
    std::vector<bool> held;
    std::vector<Begun> begun;
    ASSERT_TRUE(store->exchange({}, {&begin, 1}, 60s, held, begun, error)) << error;
    // One process that dies takes all connections with it.
    ASSERT_EQ(0, kill(std::stoi(database->ask("SELECT pg_backend_pid()")), SIGKILL));
    while (store->wait(10s, -1, error)) {
    }
    EXPECT_NE("", error);
    const Finish end{claimed[0].id, claimed[0].token, 1, Outcome::Sent};
    EXPECT_FALSE(store->exchange({&end, 1}, {}, 60s, held, begun, error));
    while (!store->open(error)) usleep(50000);
    EXPECT_TRUE(store->exchange({&end, 1}, {}, 60s, held, begun, error)) << error;
    EXPECT_EQ(std::vector<bool>{true}, held);
    database->ask("");  // notices that its connection is gone
    EXPECT_EQ("sent\nqueued", database->ask("SELECT state FROM quorel.delivery ORDER BY id"));
}

TEST_F(PostgresOutbox, outlives_dump_and_restore) {
    EXPECT_EQ("1", database->ask("SELECT quorel.send_mail('a@b', attachments => "
                                 "ARRAY[quorel.file('f', '\\x00ff')])"));
    std::vector<Delivery> claimed;
    ASSERT_TRUE(store->claim(1, 60s, claimed, error) && claimed.size() == 1) << error;
    PgDatabase copy;
    EXPECT_EQ(
        0, std::system(("pg_dump -d " + shell_word(database->where()) +
                        " | psql -q -v ON_ERROR_STOP=1 -o /dev/null -d " + shell_word(copy.where()))
                           .c_str()));
    const std::unique_ptr<Store> restored = copy.store("one");
    EXPECT_TRUE(restored->install(error)) << error;
    const Held claims[] = {{claimed[0].id, claimed[0].token}};
    std::vector<bool> held;
    EXPECT_TRUE(restored->extend(claims, 60s, held, error)) << error;
    EXPECT_EQ(std::vector<bool>{true}, held);
    EXPECT_EQ("2", copy.ask("SELECT quorel.send_mail('a@b')"));
    EXPECT_EQ("1|2", copy.ask("SELECT min(id), max(id) FROM quorel.delivery"));
    EXPECT_EQ("t", copy.ask("SELECT relrowsecurity FROM pg_class "
                            "WHERE oid = 'quorel.message'::regclass"));
}

}  // namespace

}  // namespace host::outbox
