#include "host/callframe.h"

#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include "tests/host/fakeprocedure.h"

using namespace host;

namespace {

constexpr std::int32_t connection = 42;

Value text(std::string bytes) {
    return Value::text(std::move(bytes), EXTFN_TYPE_STRING);
}

std::string run(CallFrame& frame) {
    std::string error;
    frame.call(error);
    return error;
}

// The status that a procedure of fakelib gives with nothing to set up.
std::int32_t status_of(const char* name, Value argument = Value::null(EXTFN_TYPE_STRING)) {
    const FakeProcedure procedure(name);
    CallFrame frame(fake_library(), procedure, connection);
    std::string error;
    frame.set_argument(1, std::move(argument), error);
    EXPECT_EQ(run(frame), "");
    return frame.result()->as_int().value_or(-2);
}

struct Trace {
    const char* argument;
    std::uint32_t piece;
    const char* pieces;  // length/total of each
};

TEST(CallFrame, delivers_an_argument_in_pieces) {
    const FakeProcedure procedure("fake_trace");
    for (const Trace& row : {Trace{"", 4, "0/0 "},
                             {"abc", 4, "3/3 "},
                             {"abcd", 4, "4/4 "},
                             {"abcde", 4, "4/5 1/5 "},
                             {"abcdefgh", 4, "4/8 4/8 "},
                             {"ab", 1, "1/2 1/2 "},
                             {"ab", 0, "1/2 1/2 "}}) {
        CallFrame frame(fake_library(), procedure, connection, row.piece);
        std::string error;
        std::uint64_t moved = 0;
        frame.on_progress = [&moved](std::uint64_t bytes) { moved = bytes; };
        ASSERT_TRUE(frame.set_argument(1, text(row.argument), error));
        EXPECT_EQ(run(frame), "");
        EXPECT_EQ(frame.out(2)->bytes, row.pieces);
        EXPECT_EQ(frame.result()->bytes, row.argument);
        EXPECT_EQ(moved, 2 * strlen(row.argument) + strlen(row.pieces));
    }
}

TEST(CallFrame, passes_null_and_what_is_absent_as_declared) {
    const FakeProcedure null("fake_trace");
    CallFrame without(fake_library(), null, connection);
    EXPECT_EQ(run(without), "");
    EXPECT_EQ(without.out(2)->bytes, "NULL");
    EXPECT_FALSE(without.result().has_value());

    const FakeProcedure number("fake_trace", Absent::Connection, EXTFN_TYPE_INT32);
    CallFrame numbered(fake_library(), number, connection, 1);
    EXPECT_EQ(run(numbered), "");
    EXPECT_EQ(numbered.out(2)->bytes, "4/4 ") << "a number comes whole";
    EXPECT_EQ(numbered.result()->as_int(), connection);

    const FakeProcedure needed("fake_trace", Absent::Refuse);
    CallFrame refused(fake_library(), needed, connection);
    EXPECT_EQ(run(refused), "fake_trace: parameter 1 (value) is missing; give a value");
    EXPECT_FALSE(refused.out(2).has_value()) << "nothing is called";
}

TEST(CallFrame, turns_text_and_numbers_into_the_declared_type) {
    const FakeProcedure string("fake_trace");
    const FakeProcedure number("fake_trace", Absent::Null, EXTFN_TYPE_INT32);
    std::string error;
    CallFrame to_string(fake_library(), string, connection);
    ASSERT_TRUE(to_string.set_argument(1, Value::number(-5), error));
    EXPECT_EQ(run(to_string), "");
    EXPECT_EQ(to_string.result()->bytes, "-5");

    CallFrame to_number(fake_library(), number, connection);
    for (const char* wrong : {"", "5x", " 5", "2147483648", "5.0"}) {
        EXPECT_FALSE(to_number.set_argument(1, text(wrong), error));
        EXPECT_THAT(error, testing::HasSubstr("takes a whole number")) << wrong;
    }
    ASSERT_TRUE(to_number.lend_argument(1, "-2147483648", error));
    EXPECT_EQ(run(to_number), "");
    EXPECT_EQ(to_number.result()->as_int(), INT32_MIN);
}

TEST(CallFrame, copies_values_and_refuses_what_a_procedure_may_not_do) {
    const FakeProcedure procedure("fake_probe");
    CallFrame frame(fake_library(), procedure, connection);
    std::string error;
    ASSERT_TRUE(frame.set_argument(1, text("four"), error));
    EXPECT_EQ(run(frame), "");
    EXPECT_EQ(frame.out(2)->bytes, "00000010the end!");
    EXPECT_TRUE(frame.result()->is_null());
}

TEST(CallFrame, hands_on_the_result_and_refuses_when_told) {
    const FakeProcedure procedure("fake_trace");
    for (const std::size_t wanted : {1U, 2U}) {
        CallFrame frame(fake_library(), procedure, connection, 2);
        std::string error;
        std::string calls;
        frame.on_result = [&](const void* data, std::uint32_t length, bool append) {
            calls += append ? '+' : '=';
            calls.append(static_cast<const char*>(data), length);
            return calls.size() < 3 * wanted;
        };
        ASSERT_TRUE(frame.lend_argument(1, "abcdef", error));
        EXPECT_EQ(run(frame), "");
        EXPECT_EQ(calls, std::string("=ab+cd+ef").substr(0, 3 * wanted));
        EXPECT_EQ(frame.result()->bytes, "");
    }
}

TEST(CallFrame, ends_a_child_that_comes_back_out_of_the_procedure) {
    EXPECT_EQ(status_of("fake_fork"), 127);
    EXPECT_EQ(status_of("fake_fork", text("returns")), 127);
}

// The canceller is still busy with the record when the procedure has returned: the address checker
// sees whether the call waits for it.
TEST(Cancel, ends_a_waiting_call_from_another_thread) {
    const FakeProcedure procedure("fake_wait");
    CallFrame frame(fake_library(), procedure, connection);
    std::promise<void> waiting;
    // fake_wait moves its first bytes when it is about to wait.
    frame.on_progress = [&](std::uint64_t moved) {
        if (moved == strlen("ready")) waiting.set_value();
    };
    std::thread canceller([&] {
        waiting.get_future().wait();
        frame.cancel();
    });
    EXPECT_EQ(run(frame), "");
    canceller.join();
    EXPECT_EQ(frame.result()->as_int(), 2);
    EXPECT_TRUE(frame.cancelled());
}

TEST(Cancel, before_the_call_takes_effect_when_the_call_can_be_cancelled) {
    const FakeProcedure procedure("fake_wait");
    CallFrame frame(fake_library(), procedure, connection);
    frame.cancel();
    EXPECT_EQ(run(frame), "");
    EXPECT_EQ(frame.result()->as_int(), 2);
}

TEST(Cancel, after_the_call_reaches_nobody) {
    const FakeProcedure procedure("fake_brief");
    CallFrame frame(fake_library(), procedure, connection);
    EXPECT_EQ(run(frame), "");
    const std::int32_t before = status_of("fake_cancels");
    frame.cancel();
    EXPECT_EQ(status_of("fake_cancels"), before);
}

TEST(Cancel, may_meet_the_coming_and_going_of_records) {
    const FakeProcedure procedure("fake_brief");
    for (int round = 0; round < 100; ++round) {
        CallFrame frame(fake_library(), procedure, connection);
        std::atomic<bool> started = false;
        std::atomic<bool> done = false;
        std::thread canceller([&] {
            for (; !done; started = true) frame.cancel();
        });
        while (!started) std::this_thread::yield();
        EXPECT_EQ(run(frame), "");
        done = true;
        canceller.join();
        EXPECT_EQ(frame.result()->as_int(), 0);
    }
}

}  // namespace
