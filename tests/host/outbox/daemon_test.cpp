// The daemon's parts, over an outbox in memory and a library that does as it is told.

#include <thread>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "host/outbox/accountchoice.h"
#include "host/outbox/metrics.h"
#include "host/outbox/oneline.h"
#include "host/outbox/passwordfile.h"
#include "host/outbox/sender.h"
#include "host/outbox/sentpages.h"
#include "host/outbox/statustext.h"
#include "tests/host/outbox/fakes.h"
#include "tests/scratch.h"

namespace {

using namespace host::outbox;
using namespace std::chrono_literals;

class SenderTest : public ::testing::Test {
  protected:
    SenderTest() {
        for (const char* name : {"one", "two"}) {
            Account& account = store.account_list.emplace_back();
            account.name = name;
            account.host = "localhost";
            account.sender = "ann@a.test";
        }
    }

    Delivery& queue() {
        Delivery& delivery = store.due.emplace_back();
        delivery.id = delivery.message = static_cast<std::int64_t>(store.due.size());
        delivery.attempts_left = 10;
        return delivery;
    }

    bool send_all() { return claims.take(99) && sender.send_all(); }

    Shared shared{Rules{}};
    FakeStore store;
    FakeEngine engine;
    SteadyStore steady{store, shared.watch, shared.journal, 1s};
    Claims claims{steady, 60s};
    MailLine line{engine};
    Sender sender{shared, steady, claims, line};
};

TEST_F(SenderTest, every_end_of_a_call_has_its_outcome) {
    struct Row {
        int start, status, left;
        Outcome outcome;
        bool has_end;    // its attempt
        bool has_pause;  // with one account, before the next attempt
        int away;
    };
    constexpr int dies = FakeEngine::dies;
    const Row rows[] = {
        {0, 0, 10, Outcome::Sent, true, false, 0},
        {0, 5, 10, Outcome::Again, true, true, 0},
        {0, 15, 10, Outcome::Again, true, true, 0},
        {0, 20, 10, Outcome::Split, true, false, 0},
        {0, 101, 10, Outcome::Again, true, true, 0},
        {0, 104, 10, Outcome::Again, true, true, 0},
        {0, 101, 1, Outcome::Failed, true, false, 0},
        {0, 77, 10, Outcome::Again, true, true, 0},
        {0, dies, 10, Outcome::Again, false, true, 0},
        {100, 0, 10, Outcome::Released, false, false, 1},
        {102, 0, 10, Outcome::Released, false, false, 1},
        {105, 0, 1, Outcome::Released, false, false, 1},
        {dies, 0, 10, Outcome::Released, false, false, 1},
        {0, 0, 0, Outcome::Failed, false, false, 0},
    };
    store.account_list.pop_back();
    for (const Row& row : rows) {
        store.ends.clear();
        store.away.clear();
        line.drop();
        shared.circuits.well(store.account_list[0]);
        // Another account each time: one that was away stays so for a while.
        store.account_list[0].name += 'x';
        engine.statuses = {{"xp_startsmtp", {row.start}}, {"xp_sendmail", {row.status}}};
        queue().attempts_left = row.left;
        ASSERT_TRUE(send_all());
        ASSERT_EQ(1U, store.ends.size()) << row.start << ' ' << row.status;
        const Finish& end = store.ends[0];
        EXPECT_EQ(row.outcome, end.outcome) << row.start << ' ' << row.status;
        EXPECT_EQ(row.has_end, end.attempt == 1) << row.start << ' ' << row.status;
        EXPECT_EQ(row.has_pause, end.pause.count() > 0) << row.start << ' ' << row.status;
        EXPECT_EQ(row.away, store.away[store.account_list[0].name]);
    }
}

TEST_F(SenderTest, a_session_that_its_server_has_ended_costs_no_pause_and_no_trust) {
    engine.statuses["xp_sendmail"] = {0, 104};
    queue();
    queue();
    ASSERT_TRUE(send_all());
    EXPECT_EQ(Outcome::Again, store.ends[1].outcome);
    EXPECT_EQ(0, store.ends[1].pause.count());
}

TEST_F(SenderTest, five_refused_messages_in_a_row_are_a_server_that_is_away) {
    store.account_list.pop_back();
    engine.statuses["xp_sendmail"] = {104, 104, 104, 104, 104};
    for (int i = 0; i < 8; ++i) queue();
    ASSERT_TRUE(send_all());
    EXPECT_EQ(1, store.away["one"]);
    EXPECT_EQ(5U, store.begun_accounts.size());
    EXPECT_EQ(Outcome::Released, store.ends.back().outcome);
}

TEST_F(SenderTest, only_a_first_attempt_that_is_not_the_last_shares_a_session) {
    store.account_list.pop_back();
    engine.statuses["xp_startsmtp"] = {0, 0, 0, 7};
    queue();
    queue();
    queue().attempts_left = 1;
    queue().attempts = 1;
    ASSERT_TRUE(send_all());
    EXPECT_EQ(4U, store.ends.size());
    EXPECT_EQ(1U, engine.statuses["xp_startsmtp"].size());
}

TEST_F(SenderTest, a_mail_that_is_refused_again_makes_no_server_away) {
    store.account_list.pop_back();
    store.account_list[0].failures = 3;
    engine.statuses["xp_sendmail"] = {104, 104, 104, 104, 104, 104, 104};
    for (int i = 0; i < 3; ++i) queue().attempts = 1;
    for (int i = 0; i < 4; ++i) queue().recipients = {"half@b.test"};
    queue();
    ASSERT_TRUE(send_all());
    EXPECT_EQ(0, store.away["one"]);
    EXPECT_EQ(Outcome::Sent, store.ends.back().outcome);
}

TEST_F(SenderTest, what_was_away_is_back_when_a_message_went) {
    store.account_list[0].failures = 3;
    queue();
    queue();
    ASSERT_TRUE(send_all());
    EXPECT_EQ(std::vector<std::string>{"one"}, store.back);
}

TEST_F(SenderTest, halves_have_all_recipients_and_a_single_one_fails) {
    engine.statuses["xp_sendmail"] = {20, 20};
    queue();
    queue().recipients = {"a@b.test"};
    ASSERT_TRUE(send_all());
    EXPECT_EQ((std::vector<std::string>{"a@b.test"}), store.ends[0].first_half);
    EXPECT_EQ((std::vector<std::string>{"b@b.test", "c@b.test"}), store.ends[0].second_half);
    EXPECT_EQ(Outcome::Failed, store.ends[1].outcome);
}

TEST_F(SenderTest, a_mail_that_is_turned_down_time_and_again_is_tried_in_halves) {
    struct Row {
        int attempts, left;
        std::vector<std::string> recipients;  // none: three
        Outcome outcome;
    };
    const Row rows[] = {
        {0, 9, {}, Outcome::Again},           {1, 8, {}, Outcome::Again},
        {2, 7, {}, Outcome::Split},           {0, 1, {}, Outcome::Split},
        {2, 7, {"a@b.test"}, Outcome::Again}, {9, 1, {"a@b.test"}, Outcome::Failed}};
    for (const Row& row : rows) {
        engine.statuses["xp_sendmail"].push_back(104);
        Delivery& delivery = queue();
        delivery.attempts = row.attempts;
        delivery.attempts_left = row.left;
        delivery.recipients = row.recipients;
        ASSERT_TRUE(send_all());
        EXPECT_EQ(row.outcome, store.ends.back().outcome) << row.attempts << ' ' << row.left;
    }
}

TEST(Room, lets_in_who_came_first_and_the_largest_alone) {
    Room room(100);
    std::optional<Room::Place> first(std::in_place, room, 60), large(std::in_place, room, 300),
        tired(std::in_place, room, 1);
    Room::Place small(room, 10), other(room, 90), nothing(room, 0);
    EXPECT_TRUE(first->enter(0ms));
    EXPECT_TRUE(nothing.enter(0ms));
    EXPECT_FALSE(large->enter(1ms));
    EXPECT_FALSE(small.enter(1ms));
    std::thread leaver([&first] {
        std::this_thread::sleep_for(20ms);
        first.reset();
    });
    EXPECT_TRUE(large->enter(10s));
    leaver.join();
    tired.reset();
    EXPECT_FALSE(small.enter(1ms));
    large.reset();
    EXPECT_TRUE(small.enter(0ms));
    EXPECT_TRUE(other.enter(0ms));
}

TEST_F(SenderTest, a_large_mail_that_finds_no_room_is_given_back_when_the_process_stops) {
    Room::Place other(shared.large_mails, most_sent);
    ASSERT_TRUE(other.enter(0ms));
    queue();
    queue().bytes = most_sent + 1;
    queue().bytes = 2 << 20;
    queue();
    std::thread stopper([this] {
        std::this_thread::sleep_for(300ms);
        shared.watch.stop();
    });
    EXPECT_TRUE(send_all());
    stopper.join();
    std::vector<Outcome> outcomes;
    for (const Finish& end : store.ends) outcomes.push_back(end.outcome);
    EXPECT_EQ((std::vector{Outcome::Sent, Outcome::Failed, Outcome::Released, Outcome::Released}),
              outcomes);
}

TEST_F(SenderTest, what_was_sent_is_told_however_often_the_outbox_is_lost) {
    queue();
    ASSERT_TRUE(claims.take(1));
    claims.next();
    Begun begun;
    ASSERT_TRUE(claims.begin("one", begun));
    store.failures = 3;
    claims.end({.attempt = 1, .outcome = Outcome::Sent});
    EXPECT_TRUE(claims.tell());
    EXPECT_EQ(1U, store.ends.size());
    EXPECT_GT(store.opened, 1);
    store.failures = 999;
    claims.end({});
    shared.watch.stop_at_once();
    EXPECT_FALSE(claims.tell());
}

TEST_F(SenderTest, a_lease_is_begun_anew_in_time_and_a_lost_claim_is_left_alone) {
    Claims held(steady, 30ms);
    for (const bool lost : {false, true}) {
        queue();
        queue();
        ASSERT_TRUE(held.take(2));
        held.next();
        store.all_lost = lost;
        std::this_thread::sleep_for(15ms);
        EXPECT_EQ(!lost, held.keep());
        EXPECT_EQ(lost, held.empty());
    }
}

TEST_F(SenderTest, accounts_are_tried_in_a_round_with_a_pause_behind_it) {
    Delivery delivery;
    EXPECT_EQ("one", ways_for(delivery, store.account_list)[0]->name);
    EXPECT_EQ(0U, rounds_after(delivery, store.account_list[0], store.account_list));
    delivery.last_account = "one";
    delivery.attempts = 1;
    EXPECT_EQ("two", ways_for(delivery, store.account_list)[0]->name);
    EXPECT_EQ(1U, rounds_after(delivery, store.account_list[1], store.account_list));
    store.account_list[1].away = 1s;
    EXPECT_EQ(1U, rounds_after(delivery, store.account_list[0], store.account_list));
    delivery.account = "two";
    EXPECT_EQ(1U, ways_for(delivery, store.account_list).size());
    EXPECT_EQ(2U, rounds_after(delivery, store.account_list[1], store.account_list));
}

TEST_F(SenderTest, a_mail_waits_for_a_better_sender_but_not_for_more_memory) {
    store.account_list[0].sender = "nobody";
    queue();
    queue().bytes = std::uint64_t{1} << 40;
    ASSERT_TRUE(send_all());
    EXPECT_EQ(Outcome::Released, store.ends[0].outcome);
    EXPECT_EQ("account one: its sender cannot be used: from: the address nobody has no @",
              store.ends[0].reason);
    EXPECT_GT(store.ends[0].pause.count(), 0);
    EXPECT_EQ(1U, shared.counters.read().ends[Counts::Again]);  // --once has not sent all
    EXPECT_EQ(Outcome::Failed, store.ends[1].outcome);
}

TEST(Pauses, grow_to_the_longest_and_vary_by_a_quarter) {
    const Pauses pauses{1s, 10s};
    EXPECT_EQ(750ms, pauses.after(1, 0));
    EXPECT_EQ(1250ms, pauses.after(1, 500));
    EXPECT_EQ(3s, pauses.after(3, 0));
    EXPECT_EQ(7500ms, pauses.after(UINT32_MAX, 0));
    EXPECT_EQ(9223372036854775807ms - 9223372036854775807ms / 4,
              (Pauses{1s, Pause::max()}.after(99, 0)));
}

TEST(OneLine, is_one_and_commands_no_terminal) {
    EXPECT_EQ("a b? \xC3\xA9  [2Jc", on_one_line("a\nb\xFF \xC3\xA9\x7F\xC2\x9B[2Jc"));
}

TEST(StatusText, is_lines_that_command_no_terminal) {
    Account account;
    account.name = "a\nb";
    account.host = "\xC2\x9B[2J";
    EXPECT_TRUE(
        status_text({}, {&account, 1}, {}).ends_with("accounts:\n  a b ( [2J:25): ready\n"));
}

TEST(PasswordFile, is_one_line_that_others_cannot_see) {
    struct Row {
        std::string bytes;
        mode_t mode;
        const char* problem;  // null: good
    };
    const Row rows[] = {
        {"secret\n", 0600, nullptr},
        {"secret\r\n", 0440, nullptr},
        {"secret", 0604, "others can read"},
        {"secret", 0620, "others can read"},
        {"", 0600, "empty"},
        {"\n", 0600, "empty"},
        {"secret\nmore\n", 0600, "more than one line"},
        {std::string("sec\0ret", 7), 0600, "more than one line"},
        {std::string(381, 's'), 0600, "too long"},
    };
    const ScratchFolder folder;
    for (const Row& row : rows) {
        const std::string file = folder.file_with("password", row.bytes);
        chmod(file.c_str(), row.mode);
        std::string password = "before", error;
        EXPECT_EQ(row.problem == nullptr, read_password_file(file, password, error)) << row.bytes;
        EXPECT_EQ(row.problem == nullptr ? "secret" : "", password);
        EXPECT_NE(std::string::npos, error.find(row.problem != nullptr ? row.problem : ""))
            << error;
        EXPECT_EQ(std::string::npos, error.find("secret")) << error;
    }
    std::string password, error;
    mkfifo(folder.file("fifo").c_str(), 0600);
    for (const std::string& path : {folder.file("none"), folder.file("fifo"), std::string("pw")})
        EXPECT_FALSE(read_password_file(path, password, error)) << path;
}

TEST(SentPages, keeps_what_may_still_be_asked_for) {
    constexpr std::size_t size = 8 << 20;
    auto* const bytes = static_cast<char*>(
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    std::fill(bytes, bytes + size, 'x');
    SentPages pages({bytes + 1, size - 1}, 1000);
    pages.release(4 << 20);
    EXPECT_EQ('x', bytes[0]);  // of a page that is not the text's alone
    EXPECT_EQ('\0', bytes[8192]);
    EXPECT_EQ('x', bytes[3 << 20]);
    pages.release(100 << 20);
    EXPECT_EQ('\0', bytes[size - 8192]);
    munmap(bytes, size);
}

TEST(Metrics, hold_any_name_and_replace_the_file_at_once) {
    Snapshot outbox;
    outbox.accounts.emplace_back().name = "a\"b\\c\nd";
    const std::string text = metrics_text(outbox, {});
    EXPECT_NE(std::string::npos, text.find("account_failures{account=\"a\\\"b\\\\c\\nd\"} 0\n"));
    EXPECT_NE(std::string::npos, metrics_text(std::nullopt, {}).find("quorel_outbox_up 0\n"));
    const ScratchFolder folder;
    const std::string file = folder.file_with("metrics", "old");
    std::string error;
    mkfifo((file + '.' + std::to_string(getpid()) + ".new").c_str(), 0600);
    const mode_t usual = umask(0077);
    ASSERT_TRUE(replace_file(file, text, error)) << error;
    umask(usual);
    EXPECT_EQ(text, bytes_of(file));
    struct stat64 status {};
    ASSERT_EQ(0, stat64(file.c_str(), &status));
    EXPECT_EQ(0644U, status.st_mode & 0777U);
    EXPECT_FALSE(replace_file(folder.file("none/metrics"), text, error));
    EXPECT_EQ(1, entries(folder.file("").c_str()));
}

}  // namespace
