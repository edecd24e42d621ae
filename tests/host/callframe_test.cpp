#include "host/callframe.h"

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include "tests/host/fakecall.h"

using namespace host;

namespace {

// One IN and one OUT parameter.
template <Absent absent = Absent::Null, a_sql_data_type type = EXTFN_TYPE_STRING>
const Procedure& declared() {
    static constexpr Parameter rows[] = {
        {"value", Direction::In, type, absent, "a value"},
        {"text", Direction::Out, EXTFN_TYPE_STRING, Absent::Null, ""}};
    static constexpr Procedure procedure{
        .name = "", .summary = "", .parameters = rows, .otherwise = ""};
    return procedure;
}

struct Fake : FakeCall {
    explicit Fake(const char* name, std::uint32_t piece = CallFrame::default_piece)
        : FakeCall(name, declared(), piece) {}
};

TEST(CallFrame, delivers_an_argument_in_pieces) {
    struct Row {
        const char* argument;
        std::uint32_t piece;
        const char* pieces;  // length/total of each
    };
    for (const Row& row : {Row{"", 4, "0/0 "},
                           {"abcd", 4, "4/4 "},
                           {"abcde", 4, "4/5 1/5 "},
                           {"ab", 0, "1/2 1/2 "}}) {
        Fake call("fake_spell", row.piece);
        std::uint64_t moved = 0;
        call.frame.on_progress = [&moved](std::uint64_t bytes) { moved = bytes; };
        ASSERT_TRUE(call.set("value", row.argument));
        EXPECT_EQ("", call.run());
        EXPECT_EQ(row.pieces, call.frame.out(2)->bytes);
        EXPECT_EQ("1=" + std::string(row.argument) + " ", call.frame.result()->bytes);
        EXPECT_EQ(2 * strlen(row.argument) + strlen("1= ") + strlen(row.pieces), moved);
    }
}

TEST(CallFrame, passes_null_and_what_is_absent_as_declared) {
    Fake null("fake_spell");
    EXPECT_EQ("", null.run());
    EXPECT_EQ("", null.frame.result()->bytes);

    FakeCall numbered("fake_spell", declared<Absent::Connection, EXTFN_TYPE_INT32>(), 1);
    EXPECT_EQ("", numbered.run());
    EXPECT_EQ("4/4 ", numbered.frame.out(2)->bytes) << "a number comes whole";
    EXPECT_EQ("1=42 ", numbered.frame.result()->bytes);

    FakeCall refused("fake_spell", declared<Absent::Refuse>());
    EXPECT_EQ("fake_spell: parameter 1 (value) is missing; give a value", refused.run());
    EXPECT_FALSE(refused.frame.out(2).has_value()) << "nothing is called";
}

TEST(CallFrame, turns_text_and_numbers_into_the_declared_type) {
    Fake string("fake_spell");
    ASSERT_TRUE(string.frame.set_argument(1, Value::number(-5), string.error));
    EXPECT_EQ("", string.run());
    EXPECT_EQ("1=-5 ", string.frame.result()->bytes);

    FakeCall number("fake_spell", declared<Absent::Null, EXTFN_TYPE_INT32>());
    for (const char* wrong : {"", "5x", " 5", "2147483648", "5.0"}) {
        EXPECT_FALSE(number.set("value", wrong));
        EXPECT_THAT(number.error, testing::HasSubstr("takes a whole number")) << wrong;
    }
    ASSERT_TRUE(number.lend("value", "-2147483648"));
    EXPECT_EQ("", number.run());
    EXPECT_EQ("1=-2147483648 ", number.frame.result()->bytes);
}

TEST(CallFrame, copies_values_and_refuses_what_a_procedure_may_not_do) {
    Fake call("fake_probe");
    ASSERT_TRUE(call.set("value", "four"));
    EXPECT_EQ("", call.run());
    EXPECT_EQ("00000010the end!", call.frame.out(2)->bytes);
    EXPECT_TRUE(call.frame.result()->is_null());
}

TEST(CallFrame, hands_on_the_result_and_refuses_when_told) {
    for (const std::string whole : {"=+1=+ab+cd+ef+ ", "=+1=+ab"}) {
        Fake call("fake_spell", 2);
        std::string calls;
        call.frame.on_result = [&](const void* data, std::uint32_t length, bool append) {
            calls += append ? '+' : '=';
            calls.append(static_cast<const char*>(data), length);
            return calls != whole;
        };
        ASSERT_TRUE(call.lend("value", "abcdef"));
        EXPECT_EQ("", call.run());
        EXPECT_EQ(whole, calls);
        EXPECT_EQ("", call.frame.result()->bytes);
    }
}

TEST(CallFrame, keeps_no_more_than_it_promises) {
    Fake call("fake_spell");
    ASSERT_TRUE(call.set("value", std::string(CallFrame::most_kept, 'x')));
    EXPECT_EQ("", call.run());
    EXPECT_GT(CallFrame::most_kept, call.frame.result()->bytes->size());
    EXPECT_FALSE(call.frame.out(2)) << "it went no further";
}

TEST(CallFrame, ends_a_child_that_comes_back_out_of_the_procedure) {
    EXPECT_EQ(127, Fake("fake_fork").status());
    Fake returns("fake_fork");
    ASSERT_TRUE(returns.set("value", "returns"));
    EXPECT_EQ(127, returns.status());
}

// The canceller is still busy with the record when the procedure has returned: the address checker
// sees whether the call waits for it.
TEST(Cancel, ends_a_waiting_call_from_another_thread) {
    Fake call("fake_wait");
    std::promise<void> waiting;
    // fake_wait moves its first bytes when it is about to wait.
    call.frame.on_progress = [&](std::uint64_t moved) {
        if (moved == strlen("ready")) waiting.set_value();
    };
    std::thread canceller([&] {
        waiting.get_future().wait();
        call.frame.cancel();
    });
    EXPECT_EQ(2, call.status());
    canceller.join();
    EXPECT_TRUE(call.frame.cancelled());
}

TEST(Cancel, before_the_call_takes_effect_when_the_call_can_be_cancelled) {
    Fake call("fake_wait");
    call.frame.cancel();
    EXPECT_EQ(2, call.status());
}

TEST(Cancel, may_meet_the_coming_and_going_of_records_and_then_reaches_nobody) {
    for (int round = 0; round < 100; ++round) {
        Fake call("fake_brief");
        std::atomic<bool> started = false;
        std::atomic<bool> done = false;
        std::thread canceller([&] {
            errno = 0;
            for (; !done; started = true) call.frame.cancel();
            EXPECT_EQ(0, errno) << "a signal handler cancels, too";
        });
        while (!started) std::this_thread::yield();
        EXPECT_EQ(0, call.status());
        done = true;
        canceller.join();
        const std::int32_t before = Fake("fake_cancels").status();
        call.frame.cancel();
        EXPECT_EQ(before, Fake("fake_cancels").status());
    }
}

}  // namespace
