#include "utils/utmem/utmem.h"

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <unistd.h>

#include "utils/utmem/uttextarray.h"

namespace {

// An allocator whose requests fail while their number, counted from 1, is at most `failing`.
int requests, failing, hook_calls;
bool hook_released_memory;

bool fails() {
    return ++requests <= failing;
}
constexpr a_utmem_source faulty_source = {
    [](size_t size) { return fails() ? nullptr : std::memset(std::malloc(size), 0xEE, size); },
    [](void* block, size_t size) { return fails() ? nullptr : std::realloc(block, size); },
    [](void* block) { std::free(block); },
    []() -> bool { return ++hook_calls, hook_released_memory; }};

class Utmem : public testing::Test {
  protected:
    void SetUp() override {
        fail(0, false);
        utmem_set_source(&faulty_source);
    }
    void TearDown() override { utmem_set_source(nullptr); }
    static void fail(int how_often, bool hook_helps) {
        requests = hook_calls = 0;
        failing = how_often;
        hook_released_memory = hook_helps;
    }
};

struct {
    const char* name;
    bool ends_process;
    void* (*request)();
} const functions[] = {
    {"ut_malloc", false, [] { return ut_malloc(1); }},
    {"ut_calloc", false, [] { return ut_calloc(1); }},
    {"ut_memdup", false, [] { return ut_memdup("x", 1); }},
    {"ut_realloc of null", false, [] { return ut_realloc(nullptr, 1); }},
    {"uicalloc", false, [] { return uicalloc(1, 1); }},
    {"ut_alloc", true, [] { return ut_alloc(1); }},
    {"ut_strdup", true, [] { return static_cast<void*>(ut_strdup("")); }},
    {"ut_realloc", true, [] { return ut_realloc(std::malloc(1), 2); }},
    {"Realloc", true, [] { return UTHeap().Realloc(std::malloc(1), 2); }},
    {"Strndup", true, [] { return static_cast<void*>(UTHeap().Strndup("", 4)); }},
};

TEST_F(Utmem, asks_the_hook_and_retries_once) {
    for (const auto& function : functions) {
        SCOPED_TRACE(function.name);
        for (const int failures : {1, 2}) {
            fail(failures, failures == 2);
            if (function.ends_process) {
                EXPECT_EXIT(function.request(), testing::ExitedWithCode(1), "Out of memory");
                continue;
            }
            EXPECT_EQ(nullptr, function.request());
            EXPECT_EQ(1, hook_calls);
        }
        fail(1, true);
        void* block = function.request();
        EXPECT_NE(nullptr, block);
        EXPECT_EQ(2, requests);
        std::free(block);
    }
    fail(1, true);
    EXPECT_EQ(nullptr, uimalloc(1));
    EXPECT_EQ(0, hook_calls) << "uimalloc does not ask";
}

TEST_F(Utmem, a_text_array_grows_and_stays_as_it_was_without_memory) {
    UTTextArray texts;
    EXPECT_EQ(nullptr, texts[0]);
    EXPECT_EQ(nullptr, texts.release());
    for (size_t count = 0; count < 9; ++count) {
        // The request that fails is the text's or, where the array must grow, that for the array.
        fail(1, false);
        EXPECT_FALSE(texts.add("abc"));
        ASSERT_EQ(count, texts.count());
        EXPECT_EQ(nullptr, texts[count]);
        fail(0, false);
        ASSERT_TRUE(count % 2 == 0 ? texts.add("abc") : texts.add("abcdef", 3));
    }
    for (const char* text : texts) EXPECT_STREQ("abc", text);
    char** const released = texts.release();
    EXPECT_EQ(0U, texts.count());
    EXPECT_STREQ("abc", released[8]);
    EXPECT_EQ(nullptr, released[9]);
    ut_free_texts(released);
}

void die_with_exit_handler_and_stdout_on(int fd, const char* message) {
    std::atexit([] { std::abort(); });
    dup2(fd, STDOUT_FILENO);
    ut_fatal(message);
}

TEST(UtFatal, prints_its_message_and_runs_no_exit_handler_even_if_nobody_reads) {
    const testing::ExitedWithCode failed(1);
    EXPECT_EXIT(die_with_exit_handler_and_stdout_on(STDERR_FILENO, "Out of memory"), failed,
                "^Corvane: Out of memory\nOut of memory\n$");
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    EXPECT_EXIT(die_with_exit_handler_and_stdout_on(ends[1], "x"), failed, "^Corvane: x\n$");
    close(ends[1]);
}

}  // namespace
