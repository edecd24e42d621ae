#include "utils/utmem/utmem.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// An allocator whose requests fail while their number, counted from 1, is at most `failing`.
int requests, failing, hook_calls, live_blocks;
bool hook_released_memory;

bool fails() {
    return ++requests <= failing;
}

void* allocate(size_t size) {
    if (fails()) return nullptr;
    ++live_blocks;
    return std::memset(std::malloc(size), 0xEE, size);
}
void* resize(void* block, size_t size) {
    return fails() ? nullptr : std::realloc(block, size);
}
void release(void* block) {
    --live_blocks;
    std::free(block);
}
a_bool hook() {
    ++hook_calls;
    return hook_released_memory;
}
constexpr a_utmem_source faulty_source = {allocate, resize, release, hook};

class Utmem : public testing::Test {
  protected:
    void SetUp() override {
        live_blocks = 0;
        fail(0, false);
        utmem_set_source(&faulty_source);
    }
    void TearDown() override {
        EXPECT_EQ(live_blocks, 0);
        utmem_set_source(nullptr);
    }
    static void fail(int how_often, bool hook_helps) {
        requests = hook_calls = 0;
        failing = how_often;
        hook_released_memory = hook_helps;
    }
};

// The functions that yield null for want of memory and those that end the process, each for one
// byte.
struct {
    const char* name;
    void* (*request)();
} const yielding[] =
    {
        {"ut_malloc", [] { return ut_malloc(1); }},
        {"ut_calloc", [] { return ut_calloc(1); }},
        {"ut_memdup", [] { return ut_memdup("x", 1); }},
        {"ut_realloc of null", [] { return ut_realloc(nullptr, 1); }},
        {"uicalloc", [] { return uicalloc(1, 1); }},
        {"uirealloc of null", [] { return uirealloc(nullptr, 1); }},
},
        ending[] = {
            {"ut_alloc", [] { return ut_alloc(1); }},
            {"ut_strdup", [] { return static_cast<void*>(ut_strdup("")); }},
            {"ut_realloc", [] { return ut_realloc(std::malloc(1), 2); }},
            {"uirealloc", [] { return uirealloc(std::malloc(1), 2); }},
            {"Alloc", [] { return UTHeap().Alloc(1); }},
            {"Realloc", [] { return UTHeap().Realloc(std::malloc(1), 2); }},
            {"Strdup", [] { return static_cast<void*>(UTHeap().Strdup("")); }},
            {"Strndup", [] { return static_cast<void*>(UTHeap().Strndup("", 4)); }},
};

TEST_F(Utmem, asks_the_hook_and_retries_once_where_it_yields_null) {
    for (const auto& function : yielding) {
        SCOPED_TRACE(function.name);
        fail(1, false);
        EXPECT_EQ(function.request(), nullptr);
        EXPECT_EQ(hook_calls, 1);
        EXPECT_EQ(requests, 1);
        fail(2, true);
        EXPECT_EQ(function.request(), nullptr);
        EXPECT_EQ(hook_calls, 1);
        EXPECT_EQ(requests, 2);
        fail(1, true);
        void* block = function.request();
        EXPECT_NE(block, nullptr);
        ut_free(block);
    }
}

TEST_F(Utmem, ends_the_process_when_the_hook_or_the_retry_fails) {
    for (const auto& function : ending) {
        SCOPED_TRACE(function.name);
        fail(1, false);
        EXPECT_EXIT(function.request(), testing::ExitedWithCode(1), "Out of memory");
        fail(2, true);
        EXPECT_EXIT(function.request(), testing::ExitedWithCode(1), "Out of memory");
        fail(1, true);
        void* block = function.request();
        EXPECT_EQ(requests, 2);
        EXPECT_NE(block, nullptr);
        std::free(block);
    }
    live_blocks = 0;
}

TEST_F(Utmem, uimalloc_fails_without_asking_the_hook) {
    fail(1, true);
    EXPECT_EQ(uimalloc(1), nullptr);
    EXPECT_EQ(hook_calls, 0);
    void* block = uimalloc(1);
    EXPECT_NE(block, nullptr);
    uifree(block);
}

TEST_F(Utmem, requests_for_nothing_yield_null_without_asking_the_allocator) {
    EXPECT_EQ(ut_alloc(0), nullptr);
    EXPECT_EQ(ut_calloc(0), nullptr);
    EXPECT_EQ(ut_memdup("x", 0), nullptr);
    EXPECT_EQ(ut_memdup(nullptr, 1), nullptr);
    EXPECT_EQ(ut_realloc(nullptr, 0), nullptr);
    EXPECT_EQ(ut_strdup(nullptr), nullptr);
    EXPECT_EQ(UTHeap().Strndup(nullptr, 1), nullptr);
    EXPECT_EQ(uimalloc(0), nullptr);
    EXPECT_EQ(uicalloc(~size_t{0} / 2, 3), nullptr);
    EXPECT_EQ(requests, 0);
    ut_free(nullptr);
    EXPECT_EQ(ut_realloc(ut_alloc(1), 0), nullptr);
}

TEST_F(Utmem, copies_and_clears) {
    auto* zeros = static_cast<char*>(uicalloc(3, 5));
    EXPECT_EQ(std::string(zeros, 15), std::string(15, '\0'));
    auto* bytes = static_cast<char*>(ut_memdup("a\0b", 3));
    EXPECT_EQ(std::string(bytes, 3), std::string("a\0b", 3));
    char* cut = UTHeap().Strndup("abcdef", 4);
    EXPECT_STREQ(cut, "abcd");
    char* whole = UTHeap().Strndup("ab", 4);
    EXPECT_STREQ(whole, "ab");
    for (char* block : {zeros, bytes, cut, whole}) ut_free(block);
}

void die_with_exit_handler_and_stdout_on(int fd, const char* message) {
    std::atexit([] { std::abort(); });
    dup2(fd, STDOUT_FILENO);
    ut_fatal(message);
}

TEST(UtFatal, prints_its_message_and_runs_no_exit_handler) {
    EXPECT_EXIT(die_with_exit_handler_and_stdout_on(STDERR_FILENO, "Out of memory"),
                testing::ExitedWithCode(1), "^Corvane: Out of memory\nOut of memory\n$");
    EXPECT_EXIT(die_with_exit_handler_and_stdout_on(STDERR_FILENO, nullptr),
                testing::ExitedWithCode(1), "^$");
}

TEST(UtFatal, keeps_its_status_when_nobody_reads_standard_output) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EXIT(die_with_exit_handler_and_stdout_on(ends[1], "x"), testing::ExitedWithCode(1),
                "^Corvane: x\n$");
    close(ends[1]);
}

TEST(UtmemAbort, is_remembered) {
    EXPECT_FALSE(utmem_is_aborted());
    utmem_abort();
    EXPECT_TRUE(utmem_is_aborted());
}

}  // namespace
