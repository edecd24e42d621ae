// The store's contract, over the database that the program is built for.

#include "host/outbox/store.h"

#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/outbox/stores.h"
#include "tests/host/outbox/outboxes.h"

namespace host::outbox {

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

#ifdef QUOREL_POSTGRES
using Tested = PgDatabase;
constexpr bool is_sqlite = false;
#else
using Tested = SqliteFile;
constexpr bool is_sqlite = true;
#endif

constexpr Pause lease = 60s;

class OutboxStore : public testing::Test {
  protected:
    void SetUp() override {
        one = database->store("one");
        two = database->store("two");
        ASSERT_TRUE(one->install(error)) << error;
        ASSERT_TRUE(two->open(error)) << error;
        EXPECT_EQ("", ask("INSERT INTO quorel.account (name, host, sender) "
                          "VALUES ('main', 'mail.example', 'Us <us@our.example>')"));
    }

    std::string ask(const std::string& sql) { return database->ask(sql); }
    void queue(int count = 1, const std::string& more = "", const std::string& values = "") {
        for (int i = 0; i < count; ++i)
            EXPECT_EQ("", ask("INSERT INTO quorel.message (recipients, subject" + more +
                              ") VALUES ('a@a.example, b@a.example', 'hello'" + values + ")"));
    }
    std::vector<Delivery> claim(Store& store, int limit = 10) {
        std::vector<Delivery> deliveries;
        EXPECT_TRUE(store.claim(limit, lease, deliveries, error)) << error;
        return deliveries;
    }
    Begun begin(Store& store, const Delivery& delivery, const std::string& account = "main") {
        const Begin wanted{delivery.id, delivery.token, account};
        EXPECT_TRUE(store.exchange({}, {&wanted, 1}, lease, held, begun, error)) << error;
        return begun.size() == 1 ? begun[0] : Begun();
    }
    bool finish(Store& store, const Finish& end) {
        EXPECT_TRUE(store.exchange({&end, 1}, {}, lease, held, begun, error)) << error;
        return held.size() == 1 && held[0];
    }
    void pass_leases() {
        EXPECT_EQ("", ask("UPDATE quorel.delivery SET lease_until = '2001-01-01 00:00:00' "
                          "WHERE state = 'sending'"));
    }
    std::string deliveries() {
        return ask("SELECT state, attempts, max_attempts, recipients, reason FROM quorel.delivery "
                   "ORDER BY id");
    }

    std::unique_ptr<TestedDatabase> database = std::make_unique<Tested>();
    std::unique_ptr<Store> one, two;
    std::vector<bool> held;
    std::vector<Begun> begun;
    std::string error;
};

TEST_F(OutboxStore, each_outcome_leads_to_its_state) {
    const struct {
        Outcome outcome;
        const char* after;
        bool due;
    } rows[] = {
        {Outcome::Sent, "sent|1|10||why", false},
        {Outcome::Failed, "failed|1|10||why", false},
        {Outcome::Again, "queued|1|10||why", false},
        {Outcome::Split, "queued|1|11|a@a.example|why\nqueued|0|10|b@a.example\nc@a.example|",
         true},
    };
    for (const auto& row : rows) {
        queue();
        const std::vector<Delivery> claimed = claim(*one);
        ASSERT_EQ(1U, claimed.size());
        EXPECT_TRUE(claim(*two).empty());
        const Begun start = begin(*one, claimed[0]);
        EXPECT_EQ(Begun::Yes, start.state);
        const Finish end{claimed[0].id,
                         claimed[0].token,
                         start.attempt,
                         row.outcome,
                         20,
                         "why",
                         1h,
                         {"a@a.example"},
                         {"b@a.example", "c@a.example"}};
        EXPECT_TRUE(finish(*one, end));
        EXPECT_EQ(row.after, deliveries());
        // As after a connection that broke during the commit.
        EXPECT_FALSE(finish(*one, end));
        EXPECT_EQ(row.after, deliveries());
        EXPECT_EQ("one|main|20|why", ask("SELECT daemon, account, status, reason "
                                         "FROM quorel.attempt WHERE ended >= started"));
        EXPECT_EQ(row.due ? 2U : 0U, claim(*two).size());
        EXPECT_EQ("", ask("DELETE FROM quorel.message"));
        EXPECT_EQ("0|0", ask("SELECT count(*), (SELECT count(*) FROM quorel.attempt) "
                             "FROM quorel.delivery"));
    }
}

TEST_F(OutboxStore, a_claim_whose_lease_passed_is_somebody_elses_or_still_counts) {
    queue(2);
    std::vector<Delivery> first = claim(*one);
    ASSERT_EQ(2U, first.size());
    const Begun start = begin(*one, first[0]);
    EXPECT_EQ(Begun::Yes, begin(*one, first[1]).state);
    pass_leases();
    const std::vector<Delivery> second = claim(*two, 1);
    ASSERT_EQ(1U, second.size());
    EXPECT_EQ(first[0].id, second[0].id);
    EXPECT_EQ(1, second[0].attempts);
    EXPECT_EQ("main", second[0].last_account);
    EXPECT_LT(first[0].token, second[0].token);

    EXPECT_EQ(Begun::Lost, begin(*one, first[0]).state);
    const Held claims[] = {{first[0].id, first[0].token}, {second[0].id, second[0].token}};
    EXPECT_TRUE(one->extend(claims, lease, held, error)) << error;
    EXPECT_EQ((std::vector<bool>{false, true}), held);
    EXPECT_FALSE(
        finish(*one, {first[0].id, first[0].token, start.attempt, Outcome::Sent, 0, "late"}));
    EXPECT_EQ("late", ask("SELECT reason FROM quorel.attempt WHERE ended IS NOT NULL"));
    // Taken back by the same statement, but not given to anybody.
    EXPECT_TRUE(finish(*one, {first[1].id, first[1].token, 1, Outcome::Sent, 0, ""}));
    EXPECT_EQ("sending|1\nsent|1", ask("SELECT state, attempts FROM quorel.delivery ORDER BY id"));
}

TEST_F(OutboxStore, what_is_due_longest_goes_first_and_only_to_accounts_that_can_be_called) {
    EXPECT_EQ("", ask("INSERT INTO quorel.account (name, host, enabled, away_until, rank) VALUES "
                      "('off', 'h', '0', NULL, 1), ('away', 'h', '1', '2200-01-01 00:00:00', 2)"));
    queue(1, ", account", ", 'off'");
    queue(1, ", account", ", 'away'");
    queue(1, ", due", ", '2100-01-01 00:00:00'");
    queue(1, ", account", ", 'main'");
    queue(1, ", due, max_attempts", ", '2020-01-01 00:00:00', 3");
    queue(1, ", due, expires", ", '2021-01-01 00:00:00', '2021-01-02 00:00:00'");
    const std::vector<Delivery> claimed = claim(*one, 100);
    ASSERT_EQ(3U, claimed.size());
    EXPECT_EQ(5, claimed[0].message);
    EXPECT_EQ(3, claimed[0].attempts_left);
    EXPECT_LT(24h, claimed[0].waited);
    EXPECT_EQ(6, claimed[1].message);
    EXPECT_TRUE(claimed[1].expired);
    EXPECT_EQ("main", claimed[2].account);

    std::optional<Pause> next;
    EXPECT_TRUE(two->next_due(next, error)) << error;
    ASSERT_TRUE(next);
    EXPECT_GE(lease + 1s, *next);
    EXPECT_LT(lease - 30s, *next);
    // A mail whose account is not the one any more goes where it is sent now.
    EXPECT_EQ("", ask("UPDATE quorel.message SET account = NULL WHERE account = 'off'"));
    EXPECT_EQ(1U, claim(*two).size());
    // Given back without an attempt.
    EXPECT_TRUE(finish(*one, {claimed[2].id, claimed[2].token}));
    EXPECT_EQ(1U, claim(*two).size());
}

TEST_F(OutboxStore, a_limit_a_minute_holds_over_several_daemons) {
    EXPECT_EQ("", ask("UPDATE quorel.account SET per_minute = 3"));
    queue(6);
    const std::vector<Delivery> first = claim(*one, 2);
    const std::vector<Delivery> second = claim(*two, 10);
    ASSERT_EQ(2U, first.size());
    ASSERT_EQ(3U, second.size());  // as many as are allowed
    for (const Delivery& delivery : first) EXPECT_EQ(Begun::Yes, begin(*one, delivery).state);
    std::vector<Begin> begins;
    for (const Delivery& delivery : second) begins.push_back({delivery.id, delivery.token, "main"});
    EXPECT_TRUE(two->exchange({}, begins, lease, held, begun, error)) << error;
    ASSERT_EQ(3U, begun.size());
    EXPECT_EQ(Begun::Yes, begun[0].state);
    for (const int refused : {1, 2}) {
        EXPECT_EQ(Begun::Full, begun[refused].state);
        EXPECT_GT(61s, begun[refused].room);
        EXPECT_LT(50s, begun[refused].room);
    }
    EXPECT_TRUE(claim(*one).empty());
    std::vector<Account> accounts;
    EXPECT_TRUE(one->accounts(accounts, error)) << error;
    ASSERT_EQ(1U, accounts.size());
    EXPECT_LT(50s, accounts[0].full);
    EXPECT_EQ("", ask("UPDATE quorel.attempt SET started = '2001-01-01 00:00:00' WHERE number = 1 "
                      "AND delivery = 1"));
    EXPECT_EQ(Begun::Yes, begin(*two, second[1]).state);
}

TEST_F(OutboxStore, an_account_is_away_until_one_daemon_had_an_answer) {
    queue();
    bool mine = false;
    EXPECT_TRUE(one->account_away("main", 1h, "no \xff\"\\ answer", error)) << error;
    EXPECT_TRUE(claim(*two).empty());
    EXPECT_THAT(ask("SELECT why FROM quorel.waiting"), HasSubstr("account is away: no "));
    EXPECT_TRUE(two->account_probe("main", 10s, mine, error) && !mine) << error;
    EXPECT_EQ("", ask("UPDATE quorel.account SET away_until = '2001-01-01 00:00:00'"));
    EXPECT_TRUE(two->account_probe("main", 10s, mine, error) && mine) << error;
    EXPECT_TRUE(one->account_probe("main", 10s, mine, error) && !mine) << error;
    EXPECT_TRUE(two->account_back("main", error)) << error;
    std::vector<Account> accounts;
    EXPECT_TRUE(one->accounts(accounts, error)) << error;
    ASSERT_EQ(1U, accounts.size());
    EXPECT_EQ(0ms, accounts[0].away);
    EXPECT_EQ(0, accounts[0].failures);
    EXPECT_EQ(1U, claim(*two).size());
}

TEST_F(OutboxStore, a_mail_comes_back_as_it_was_queued) {
    queue(1, ", sender, headers, html_body, created",
          ", 'Ann <ann@ann.example>', 'X-A: 1\nX-B: 2', '<b>\xc3\xa9</b>', '2026-11-23 12:00:00'");
    EXPECT_EQ("", ask(std::string("INSERT INTO quorel.attachment (message, name, type, content) ") +
                      "VALUES (1, 'a', 'x/y', " + (is_sqlite ? "x'000a27ff'" : "'\\x000a27ff'") +
                      "), (1, 'b', NULL, " +
                      (is_sqlite ? "zeroblob(3000000)" : "decode(repeat('00', 3000000), 'hex')") +
                      ")"));
    const std::vector<Delivery> claimed = claim(*one);
    ASSERT_EQ(1U, claimed.size());
    EXPECT_EQ(3000013U, claimed[0].bytes);
    const std::int64_t ids[] = {claimed[0].message, 77};
    std::vector<Message> loaded;
    EXPECT_TRUE(one->load(ids, loaded, error)) << error;
    ASSERT_EQ(1U, loaded.size());
    const Message& mail = loaded[0];
    EXPECT_EQ("Ann <ann@ann.example>", mail.sender);
    EXPECT_EQ("a@a.example, b@a.example", mail.recipients);
    EXPECT_EQ("X-A: 1\nX-B: 2", mail.headers);
    EXPECT_EQ("<b>\xc3\xa9</b>", mail.html_body);
    EXPECT_EQ(std::nullopt, mail.text_body);
    EXPECT_EQ(1795435200, mail.created);
    EXPECT_THAT(mail.message_id, testing::MatchesRegex("<[0-9a-f]{32}@ann.example>"));
    ASSERT_EQ(2U, mail.attachments.size());
    EXPECT_EQ(std::string("\0\n'\xff", 4), mail.attachments[0].content);
    EXPECT_EQ(std::string(3000000, '\0'), mail.attachments[1].content);
    EXPECT_EQ(std::nullopt, mail.attachments[1].type);
    EXPECT_THAT(ask("INSERT INTO quorel.attachment (message, name, content) "
                    "SELECT message, 'late', content FROM quorel.attachment"),
                HasSubstr("is on its way already"));
}

TEST_F(OutboxStore, what_could_never_be_sent_is_refused_at_the_insert) {
    const char* lf = is_sqlite ? "char(10)" : "chr(10)";
    const struct {
        const char* columns;
        std::string values;
        const char* constraint;
    } rows[] = {
        {"subject", "'x'", "a_mail_has_a_recipient"},
        {"cc", "' ; '", "a_mail_has_a_recipient"},
        {"bcc, subject", std::string("'a@b', 'x' || ") + lf + " || 'Bcc: c@d'", "one_line"},
        {"bcc, sender_name", "'a@b', '\x01'", "one_line"},
        {"bcc, reply_to", "'a@b', 'a\r@b'", "one_line"},
        {"bcc, headers", "'a@b', 'X-A: 1\n\nbody'", "headers_are_lines"},
        {"bcc, headers", "'a@b', 'X-A: 1\r\nX-B: 2'", "headers_are_lines"},
        {"bcc, headers", "'a@b', 'no colon'", "headers_are_lines"},
        {"bcc, headers", "'a@b', ': x'", "headers_are_lines"},
        {"bcc, message_id", "'a@b', '<a@b> <c@d>'", "a_message_id"},
        {"bcc, subject", "'a@b', '" + std::string(300000, 'x') + "'", "not_too_long"},
        {"bcc, max_attempts", "'a@b', 0", "mail_numbers"},
        {"bcc, due, expires", "'a@b', '2026-01-02 00:00:00', '2026-01-01 00:00:00'",
         "mail_numbers"},
        {"bcc, account", "'a@b', 'nobody'", "account"},
        {"bcc, due", "'a@b', 'soon'", is_sqlite ? "times" : "invalid input"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(ask(std::string("INSERT INTO quorel.message (") + row.columns + ") VALUES (" +
                        row.values + ")"),
                    testing::AllOf(StartsWith("error: "), HasSubstr(row.constraint)))
            << row.columns << row.values.substr(0, 80);
    for (const char* account :
         {"('', 'h', 25, NULL, NULL)", "('a', 'h', 0, NULL, NULL)", "('a', 'h', 25, 'u', NULL)",
          "('a', 'h', 25, NULL, 'p')", "('a', 'h\nx', 25, NULL, NULL)"})
        EXPECT_THAT(ask(std::string("INSERT INTO quorel.account (name, host, port, username, "
                                    "password) VALUES ") +
                        account),
                    StartsWith("error: "))
            << account;
    EXPECT_EQ("0|0", ask("SELECT count(*), (SELECT count(*) FROM quorel.delivery) "
                         "FROM quorel.message"));
}

TEST_F(OutboxStore, a_person_calls_a_mail_back_or_has_it_tried_again) {
    const auto cancel = [&] {
        return ask(is_sqlite
                       ? "UPDATE quorel.overview SET state = 'cancelled' WHERE state = 'queued'"
                       : "SELECT quorel.cancel_mail(1)");
    };
    const auto retry = [&] {
        return ask(is_sqlite ? "UPDATE quorel.overview SET state = 'queued' WHERE state IN "
                               "('failed', 'cancelled')"
                             : "SELECT quorel.retry_mail(1)");
    };
    queue(1, ", max_attempts", ", 1");
    EXPECT_EQ(is_sqlite ? "" : "1", cancel());
    EXPECT_TRUE(claim(*one).empty());
    EXPECT_THAT(ask("SELECT state, why FROM quorel.failed"), StartsWith("cancelled|cancelled"));
    EXPECT_EQ(is_sqlite ? "" : "1", retry());
    std::vector<Delivery> claimed = claim(*one);
    ASSERT_EQ(1U, claimed.size());
    EXPECT_EQ(is_sqlite ? "" : "0", cancel());  // too late
    const Begun start = begin(*one, claimed[0]);
    EXPECT_TRUE(finish(
        *one, {claimed[0].id, claimed[0].token, start.attempt, Outcome::Failed, 104, "refused"}));
    EXPECT_EQ("refused", ask("SELECT why FROM quorel.failed"));
    std::vector<Trouble> troubles;
    EXPECT_TRUE(one->troubles(5, troubles, error)) << error;
    ASSERT_EQ(1U, troubles.size());
    EXPECT_EQ("refused", troubles[0].reason);
    EXPECT_EQ("a@a.example, b@a.example", troubles[0].recipients);
    retry();
    claimed = claim(*one);
    ASSERT_EQ(1U, claimed.size());
    EXPECT_EQ(1, claimed[0].attempts_left);
    Figures figures;
    EXPECT_TRUE(two->figures(figures, error)) << error;
    EXPECT_EQ(1, figures.sending);
    EXPECT_EQ(0, figures.queued + figures.failed);
}

TEST_F(OutboxStore, waiting_ends_when_somebody_queues_or_pokes) {
    int wake[2];
    ASSERT_EQ(0, pipe(wake));
    claim(*one);
    std::thread later([this] {
        std::this_thread::sleep_for(100ms);
        queue();
    });
    const auto start = std::chrono::steady_clock::now();
    std::vector<Delivery> claimed;
    for (int waits = 0; claimed.empty() && waits < 3; ++waits) {
        EXPECT_TRUE(one->wait(30s, -1, error)) << error;
        claimed = claim(*one);
    }
    later.join();
    EXPECT_EQ(1U, claimed.size());
    EXPECT_EQ(1, write(wake[1], "x", 1));
    EXPECT_TRUE(one->wait(30s, wake[0], error)) << error;
    EXPECT_GT(20s, std::chrono::steady_clock::now() - start);
    EXPECT_TRUE(one->wait(10ms, -1, error)) << error;
    close(wake[0]);
    close(wake[1]);
}

TEST_F(OutboxStore, threads_of_several_daemons_take_each_delivery_once) {
    EXPECT_EQ("",
              ask("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300) "
                  "INSERT INTO quorel.message (recipients) SELECT 'a@b' FROM n"));
    Stores daemons[] = {{database->where(), "three"}, {database->where(), "four"}};
    const auto send_all = [](Store& store) {
        std::vector<bool> was_held;
        std::vector<Begun> start;
        std::string words;
        for (std::vector<Delivery> claimed;; claimed.clear()) {
            ASSERT_TRUE(store.claim(7, lease, claimed, words)) << words;
            if (claimed.empty()) return;
            for (const Delivery& delivery : claimed) {
                const Begin begins{delivery.id, delivery.token, "main"};
                ASSERT_TRUE(store.exchange({}, {&begins, 1}, lease, was_held, start, words))
                    << words;
                ASSERT_EQ(Begun::Yes, start[0].state);
                const Finish end{delivery.id, delivery.token, 1, Outcome::Sent, 0};
                ASSERT_TRUE(store.exchange({&end, 1}, {}, lease, was_held, start, words)) << words;
                ASSERT_TRUE(was_held[0]);
            }
        }
    };
    std::vector<std::unique_ptr<Store>> stores;
    for (int i = 0; i < 6; ++i) {
        stores.push_back(daemons[i % 2].make(error));
        ASSERT_TRUE(stores.back()->open(error)) << error;
    }
    std::vector<std::thread> threads;
    for (const auto& store : stores) threads.emplace_back([&] { send_all(*store); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ("300|300", ask("SELECT count(*), (SELECT count(*) FROM quorel.attempt) "
                             "FROM quorel.delivery WHERE state = 'sent' AND attempts = 1"));
}

TEST_F(OutboxStore, an_older_outbox_is_brought_up_to_date_or_left_as_it_was) {
    queue();
    std::vector<std::string_view> steps(database->steps().begin(), database->steps().end());
    steps.emplace_back(
        is_sqlite ? "CREATE TABLE quorel_extra (i); INSERT INTO quorel_outbox VALUES (2, '');"
                  : "CREATE TABLE quorel.extra (i int); INSERT INTO quorel.outbox VALUES (2);");
    steps.emplace_back("CREATE TABLE other (i int); SELECT nonsense;");
    const std::unique_ptr<Store> broken = database->store("newer", steps);
    EXPECT_FALSE(broken->open(error));
    EXPECT_THAT(error, HasSubstr("of version 1 and this program's of 3"));
    EXPECT_FALSE(broken->install(error));
    EXPECT_THAT(ask("SELECT * FROM quorel.extra"), StartsWith("error: "));
    steps.pop_back();
    EXPECT_TRUE(database->store("newer", steps)->install(error)) << error;
    EXPECT_TRUE(database->store("newer", steps)->install(error)) << error;
    EXPECT_EQ("", ask("SELECT * FROM quorel.extra"));
    EXPECT_EQ(1U, claim(*one).size());  // opened before
    EXPECT_FALSE(one->install(error));
    EXPECT_THAT(error, HasSubstr("which a newer program made"));
}

#ifndef QUOREL_POSTGRES
// What is in the file may be anybody's.

class OutboxFile : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(store->install(error)) << error;
        EXPECT_EQ("", file.ask("INSERT INTO quorel.account (name, host) VALUES ('main', 'h');"
                               "INSERT INTO quorel.message (recipients) VALUES ('a@b')"));
    }

    SqliteFile file;
    std::unique_ptr<Store> store = file.store("one");
    std::string error;
    std::vector<Delivery> claimed;
};

TEST_F(OutboxFile, is_for_its_owner_and_lets_others_read_meanwhile) {
    struct stat status {};
    ASSERT_EQ(0, stat(file.where().c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 0777U);
    EXPECT_EQ("wal", file.ask("PRAGMA journal_mode"));
}

TEST_F(OutboxFile, does_not_run_its_triggers_in_the_daemon) {
    EXPECT_EQ("", file.ask("CREATE TRIGGER t AFTER UPDATE ON quorel.delivery BEGIN "
                           "UPDATE quorel.account SET host = 'thief.example'; END"));
    EXPECT_TRUE(store->claim(1, lease, claimed, error)) << error;
    EXPECT_EQ(1U, claimed.size());
    EXPECT_EQ("h", file.ask("SELECT host FROM quorel.account"));
}

TEST_F(OutboxFile, has_tables_or_is_refused) {
    EXPECT_EQ("", file.ask("CREATE TABLE true_one AS SELECT * FROM quorel.attempt;"
                           "DROP TABLE quorel.attempt;"
                           "CREATE VIEW quorel.attempt AS SELECT * FROM true_one"));
    EXPECT_FALSE(store->open(error));
    EXPECT_THAT(error, HasSubstr("lacks tables"));
    EXPECT_FALSE(store->claim(1, lease, claimed, error));
    EXPECT_EQ("the database is not open", error);
    const ScratchFolder folder;
    EXPECT_FALSE(SqliteStore(folder.file_with("x", pattern(5000)), "one").open(error));
    EXPECT_THAT(error, HasSubstr("not a database"));
}

TEST_F(OutboxFile, is_not_made_by_looking_at_it) {
    const ScratchFolder folder;
    SqliteStore missing(folder.file("none.db"), "one");
    EXPECT_FALSE(missing.open(error));
    EXPECT_THAT(error, HasSubstr("unable to open"));
    SqliteStore empty(folder.file_with("empty.db", ""), "one");
    EXPECT_FALSE(empty.open(error));
    EXPECT_THAT(error, HasSubstr("--install makes one"));
    std::unique_ptr<Store> other = make_store("host=/nowhere", "one", error);
    EXPECT_TRUE(other == nullptr ? error.find("64-bit") != std::string::npos : !other->open(error));
}

TEST_F(OutboxFile, outlives_dump_and_restore) {
    EXPECT_TRUE(store->claim(1, lease, claimed, error)) << error;
    const ScratchFolder folder;
    const std::string copy = folder.file("copy.db");
    EXPECT_EQ(0, std::system(("sqlite3 " + shell_word(file.where()) + " .dump | sqlite3 " +
                              shell_word(copy))
                                 .c_str()));
    SqliteStore restored(copy, "one");
    EXPECT_TRUE(restored.install(error)) << error;
    const Held claims[] = {{claimed[0].id, claimed[0].token}};
    std::vector<bool> held;
    EXPECT_TRUE(restored.extend(claims, lease, held, error)) << error;
    EXPECT_EQ(std::vector<bool>{true}, held);
}
#endif

}  // namespace

}  // namespace host::outbox
