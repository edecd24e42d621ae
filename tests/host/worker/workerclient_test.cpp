#include "host/worker/workerclient.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <new>
#include <random>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/callframe.h"
#include "host/library.h"
#include "host/mailsession.h"
#include "host/processstate.h"
#include "tests/scratch.h"

using namespace host;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::atomic<std::size_t> largest_memory = SIZE_MAX;

std::shared_ptr<const Engine> worker_with(const std::string& library) {
    return std::make_shared<WorkerClient>(WorkerFiles{library, WORKER_PROGRAM});
}

Value text(std::string bytes) {
    return Value::text(std::move(bytes), EXTFN_TYPE_STRING);
}

/// A call of the product's, with its error.
struct Call : CallFrame {
    Call(const Engine& engine, const char* procedure, std::vector<std::string> arguments)
        : CallFrame(engine, *find_procedure(procedure), 1) {
        for (std::uint32_t i = 0; i < arguments.size(); ++i)
            set_argument(i + 1, text(std::move(arguments[i])), error);
    }
    std::string run() {
        call(error);
        return error;
    }
    [[nodiscard]] std::int32_t status() const {
        return result() ? result()->as_int().value_or(-2) : -1;
    }
    std::string error;
};

std::int32_t shell(const Engine& engine, const std::string& command) {
    Call call(engine, "xp_cmdshell", {command});
    EXPECT_EQ("", call.run());
    return call.status();
}

/// One of fakelib's procedures.
Procedure declared(const char* name) {
    static constexpr Parameter parameters[] = {
        {"value", Direction::In, EXTFN_TYPE_STRING, Absent::Null, "a value"},
        {"text", Direction::Out, EXTFN_TYPE_STRING, Absent::Null, ""}};
    return {.name = name, .summary = "", .parameters = parameters, .otherwise = ""};
}

std::vector<pid_t> children_of(pid_t parent) {
    std::vector<pid_t> children;
    for_each_process([&](pid_t pid) {
        if (state_of(pid).parent == parent) children.push_back(pid);
    });
    return children;
}

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

/// Nothing that a test started is left behind it.
class Worker : public testing::Test {
  protected:
    void TearDown() override {
        product.reset();
        EXPECT_TRUE(children_of(getpid()).empty());
        EXPECT_EQ(_descriptors, open_descriptors());
    }

    const ScratchFolder folder;

  private:
    const std::size_t _descriptors = open_descriptors();

  protected:
    std::shared_ptr<const Engine> product = worker_with(PRODUCT);
};

TEST_F(Worker, gives_what_a_call_in_this_process_gives) {
    const std::shared_ptr<const Engine> worker = worker_with(FAKE_LIBRARY);
    std::string unloadable;
    const Library here = Library::load(FAKE_LIBRARY, unloadable);
    const Procedure spell = declared("fake_spell");
    for (const std::size_t length : {0, 1, 3, 65536, 65537, 700000, 3000000})
        for (const std::uint32_t piece : {65536U, 30000U}) {
            std::string argument = pattern(length);
            for (char& c : argument) c = static_cast<char>('a' + (c & 15));  // text
            std::optional<Value> results[2];
            std::optional<Value> pieces[2];
            std::uint64_t moved[2] = {};
            for (const int i : {0, 1}) {
                CallFrame frame(i == 0 ? static_cast<const Engine&>(here) : *worker, spell, 1,
                                piece);
                std::string error;
                frame.on_progress = [&moved, i](std::uint64_t bytes) { moved[i] = bytes; };
                ASSERT_TRUE(frame.lend_argument(1, argument, error));
                ASSERT_TRUE(frame.call(error)) << error;
                results[i] = frame.result();
                pieces[i] = frame.out(2);
            }
            EXPECT_TRUE(results[0]->bytes == results[1]->bytes) << length;
            EXPECT_EQ(pieces[0]->bytes, pieces[1]->bytes);
            EXPECT_LE(moved[0], moved[1]) << "what was read ahead of a write is read again";
        }
    const Procedure missing = declared("fake_missing");
    CallFrame frame(*worker, missing, 1);
    std::string error;
    EXPECT_FALSE(frame.call(error));
    EXPECT_THAT(error, StartsWith("the library does not export fake_missing"));
    EXPECT_FALSE(frame.was_called());
}

TEST_F(Worker, makes_a_value_null_whose_pieces_are_refused) {
    const std::string file = folder.file_with("file", pattern(std::size_t{64} << 15));
    // They arrive in sixteen pieces.
    for (const int wanted : {0, 1, 15}) {
        Call call(*product, "xp_read_file", {file});
        int taken = 0;
        call.on_result = [&](const void*, std::uint32_t, bool) { return taken++ < wanted; };
        EXPECT_EQ("", call.run());
        EXPECT_TRUE(call.result()->is_null());
        EXPECT_EQ(wanted + 1, taken) << "nothing more is handed over";
    }
    EXPECT_EQ(3, shell(*product, "exit 3")) << "the next call hears nothing of it";
}

TEST_F(Worker, ends_whatever_takes_too_long) {
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    struct Row {
        const char* procedure;
        std::string argument;
    };
    for (const Row& row : {Row{"xp_read_file", fifo},
                           {"xp_read_file", "/dev/zero"},
                           {"xp_cmdshell", "sleep 60"},
                           {"xp_cmdshell", "trap '' TERM INT; sleep 60 & sleep 60; sleep 60"}}) {
        for (const bool by_deadline : {true, false}) {
            product->set_deadline(by_deadline ? 150ms : 0ms);
            Call call(*product, row.procedure, {row.argument});
            call.on_result = [](const void*, std::uint32_t, bool) { return true; };
            const Clock::time_point start = Clock::now();
            if (!by_deadline) call.on_wait = [&] { return Clock::now() - start > 150ms; };
            call.run();
            EXPECT_LT(Clock::now() - start, 150ms + 1s) << row.argument;
            const std::string error =
                row.procedure + std::string(" took longer than 0.15 s and was ended");
            EXPECT_EQ(by_deadline, call.error == error) << call.error;
            EXPECT_EQ(!by_deadline, call.cancelled());
            EXPECT_TRUE(call.was_called());
            product->set_deadline(0ms);
            EXPECT_EQ(3, shell(*product, "exit 3"));
        }
    }
}

TEST_F(Worker, ends_a_call_that_another_thread_cancels) {
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    for (const auto delay : {0ms, 1ms, 100ms}) {
        Call call(*product, "xp_read_file", {fifo});
        std::thread canceller([&] {
            std::this_thread::sleep_for(delay);
            call.cancel();
        });
        const Clock::time_point start = Clock::now();
        EXPECT_EQ("xp_read_file was cancelled", call.run());
        canceller.join();
        EXPECT_LT(Clock::now() - start, delay + 1s);
    }
}

#ifdef __SANITIZE_THREAD__
// It keeps signals from a thread that waits for a process, so that a cancel costs the worker.
constexpr bool signals_arrive = false;
#else
constexpr bool signals_arrive = true;
#endif

TEST_F(Worker, lives_on_when_a_command_is_cancelled_before_it_starts) {
    const auto run_cancelled = [](const Engine& engine) {
        Call call(engine, "xp_cmdshell", {"sleep 60"});
        call.cancel();
        const std::string error = call.run();
        EXPECT_EQ(error.empty() ? 2 : -1, call.status());
        EXPECT_TRUE(error.empty() || !signals_arrive) << error;
    };
    EXPECT_EQ(0, shell(*product, "true"));
    const std::vector<pid_t> worker = children_of(getpid());
    for (int i = 0; i < 20; ++i) run_cancelled(*product);
    for (int i = 0; i < 20; ++i) run_cancelled(*worker_with(PRODUCT));
    // A cancel that is late does not take the place of the next one.
    kill(worker[0], SIGSTOP);
    Call late(*product, "xp_cmdshell", {"true"});
    late.cancel();
    EXPECT_EQ("", late.run());
    std::thread waker([&] {
        std::this_thread::sleep_for(50ms);
        kill(worker[0], SIGCONT);
    });
    run_cancelled(*product);
    waker.join();
    // A call that is not made was not cancelled, whatever became of the last one.
    const Procedure missing = declared("fake_missing");
    CallFrame frame(*product, missing, 1);
    std::string error;
    EXPECT_FALSE(frame.call(error));
    EXPECT_THAT(error, StartsWith("the library does not export"));
    EXPECT_EQ(signals_arrive, worker == children_of(getpid()));
}

TEST_F(Worker, lets_nobody_wait_for_another_call_beyond_an_end) {
    const std::string fifo = folder.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    std::thread busy([&] {
        Call call(*product, "xp_read_file", {fifo});
        EXPECT_EQ("", call.run());
    });
    while (children_of(getpid()).empty()) std::this_thread::sleep_for(1ms);
    product->set_deadline(50ms);
    Call late(*product, "xp_cmdshell", {"true"});
    EXPECT_EQ("xp_cmdshell was not called: another call took longer than 0.05 s", late.run());
    product->set_deadline(0ms);
    for (const bool by_host : {true, false}) {
        Call call(*product, "xp_cmdshell", {"true"});
        if (by_host) call.on_wait = [] { return true; };
        if (!by_host) call.cancel();
        EXPECT_EQ("xp_cmdshell was cancelled", call.run());
        EXPECT_FALSE(call.was_called());
    }
    close(open(fifo.c_str(), O_WRONLY));
    busy.join();
    EXPECT_EQ(3, shell(*product, "exit 3"));
}

TEST_F(Worker, is_not_begun_again_to_stop_its_sessions) {
    const Call start(*product, "xp_startsmtp", {});
    note_mail_call(*find_procedure("xp_startsmtp"), start, 1);
    EXPECT_EQ(0, shell(*product, "true"));
    kill(children_of(children_of(getpid())[0])[0], SIGKILL);
    while (product->remembers()) std::this_thread::sleep_for(1ms);
    end_mail_sessions(product, 1);
    EXPECT_THAT(children_of(getpid()), testing::SizeIs(1)) << "the dead one";
}

// Kills a part of the worker at moments of all kinds; a call that succeeded has done all its work.
TEST_F(Worker, is_replaced_after_many_mail_sessions_unless_it_ran_a_command) {
    const WorkerClient worker({PRODUCT, WORKER_PROGRAM}, 2);
    const auto process_after_session = [&worker] {
        Call start(worker, "xp_startsmtp", {"ann@a.test", "127.0.0.1"});
        EXPECT_TRUE(start.set_argument(3, Value::number(1), start.error));
        EXPECT_EQ("", start.run());
        Call stop(worker, "xp_stopsmtp", {});
        EXPECT_EQ("", stop.run());
        EXPECT_EQ(0, stop.status());
        return children_of(getpid());
    };
    const auto first = process_after_session();
    EXPECT_EQ(first, process_after_session());
    const auto second = process_after_session();
    EXPECT_NE(first, second);
    EXPECT_EQ(0, shell(worker, "true"));
    EXPECT_EQ(second, process_after_session());
    EXPECT_EQ(second, process_after_session());
}

TEST_F(Worker, dies_at_the_cost_of_one_call) {
    constexpr int kills = 200;
    constexpr std::size_t file_size = 200000;
    std::mt19937 random(1);
    const std::string bytes = pattern(file_size);
    std::atomic<bool> over = false;
    int killed = 0;
    std::thread killer([&, self = getpid()] {
        std::mt19937 moments(2);
        pid_t victim = 0;
        while (killed < kills) {
            std::this_thread::sleep_for(std::chrono::microseconds(moments() % 12000));
            std::vector<pid_t> family = children_of(self);
            if (family.empty()) continue;
            const std::vector<pid_t> served = children_of(family[0]);
            family.insert(family.end(), served.begin(), served.end());
            victim = family[moments() % family.size()];
            kill(victim, moments() % 2 == 0 ? SIGKILL : SIGSEGV);
            ++killed;
        }
        while (state_of(victim).lives) std::this_thread::sleep_for(1ms);
        over = true;
    });
    int errors = 0;
    for (int i = 0; !over; ++i) {
        const std::string file = folder.file("file" + std::to_string(i % 7));
        unlink(file.c_str());
        const std::vector<std::pair<const char*, std::vector<std::string>>> calls = {
            {"xp_write_file", {file, bytes}},
            {"xp_cmdshell", {"true; sleep 0.001"}},
            {"xp_read_file", {"/etc/passwd"}}};
        const auto& [procedure, arguments] = calls[random() % calls.size()];
        Call call(*product, procedure, arguments);
        call.run();
        if (call.error.empty()) {
            EXPECT_TRUE(arguments.size() != 2 || call.status() != 0 || bytes == bytes_of(file));
            continue;
        }
        ++errors;
        EXPECT_THAT(call.error, testing::MatchesRegex(".*(its worker (was ended by SIG(KILL|SEGV) "
                                                      "\\(.*\\)|has ended.*))"));
    }
    killer.join();
    // The last kill costs this one, if it has cost none.
    Call(*product, "xp_cmdshell", {"true"}).run();
    EXPECT_LE(errors, kills);
    EXPECT_GT(errors, 0);
    EXPECT_EQ(3, shell(*product, "exit 3"));
}

TEST_F(Worker, is_one_for_each_connection) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 16; ++thread)
        threads.emplace_back([thread] {
            const std::shared_ptr<const Engine> engine = worker_with(PRODUCT);
            for (int i = 0; i < 8; ++i)
                EXPECT_EQ(thread, shell(*engine, "exit " + std::to_string(thread)));
            engine->set_deadline(20ms);
            Call call(*engine, "xp_cmdshell", {"sleep 60"});
            EXPECT_THAT(call.run(), HasSubstr("took longer than 0.02 s"));
        });
    for (std::thread& thread : threads) thread.join();
}

TEST_F(Worker, works_in_the_folder_that_its_host_has_now) {
    EXPECT_EQ(0, shell(*product, "true"));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.file(""));
    Call call(*product, "xp_write_file", {"relative", "bytes"});
    EXPECT_EQ("", call.run());
    EXPECT_EQ("bytes", bytes_of(folder.file("relative")));
    // Where the host's folder is gone, relative names are nobody's.
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove(folder.file("gone"));
    Call lost(*product, "xp_write_file", {"relative", "lost"});
    EXPECT_EQ("", lost.run());
    EXPECT_NE(0, lost.status());
    std::filesystem::current_path(before);
    EXPECT_EQ("bytes", bytes_of(folder.file("relative")));
    EXPECT_EQ(0, shell(*product, "test \"$(pwd -P)\" = '" + before.string() + "'"));
}

TEST_F(Worker, serves_a_host_of_any_kind) {
    struct Row {
        const char* what;
        void (*prepare)();
    };
    for (const Row& row : {Row{"closed descriptors",
                               [] {
                                   for (const int i : {0, 1, 2}) close(i);
                               }},
                           {"SIGCHLD ignored", [] { signal(SIGCHLD, SIG_IGN); }},
                           {"signals blocked and ignored", [] {
                                sigset_t all;
                                sigfillset(&all);
                                sigprocmask(SIG_SETMASK, &all, nullptr);
                                for (const int i : {SIGINT, SIGTERM, SIGPIPE}) signal(i, SIG_IGN);
                            }}}) {
        const pid_t host = fork();
        if (host == 0) {
            row.prepare();
            const std::shared_ptr<const Engine> engine = worker_with(PRODUCT);
            const bool called =
                shell(*engine, "kill -INT $$") == 2 && shell(*engine, "exit 3") == 3;
            engine->set_deadline(100ms);
            Call call(*engine, "xp_cmdshell", {"sleep 60"});
            _exit(called && call.run() == "xp_cmdshell took longer than 0.1 s and was ended" ? 0
                                                                                             : 1);
        }
        int status = -1;
        ASSERT_EQ(host, waitpid(host, &status, 0));
        EXPECT_EQ(0, status) << row.what;
    }
}

TEST_F(Worker, is_not_the_worker_of_a_forked_copy) {
    EXPECT_EQ(0, shell(*product, "true"));
    const std::vector<pid_t> own = children_of(getpid());
    const std::string bytes = pattern(std::size_t{1} << 21);
    const std::string file = folder.file_with("file", bytes);
    const std::string other = folder.file_with("other", std::string(bytes.size(), 'x'));
    int begin[2];
    ASSERT_EQ(0, pipe(begin));
    const pid_t copy = fork();
    if (copy == 0) {
        char byte = 0;
        Call call(*product, "xp_read_file", {other});
        const bool called =
            read(begin[0], &byte, 1) == 1 && call.run().empty() && shell(*product, "exit 4") == 4;
        product.reset();
        _exit(called ? 0 : 1);
    }
    // It makes its calls while pieces of this one are on their way.
    Call call(*product, "xp_read_file", {file});
    std::string result;
    int status = -1;
    call.on_result = [&](const void* data, std::uint32_t length, bool) {
        if (result.empty()) {
            EXPECT_EQ(1, write(begin[1], "", 1));
            EXPECT_EQ(copy, waitpid(copy, &status, 0));
        }
        result.append(static_cast<const char*>(data), length);
        return true;
    };
    EXPECT_EQ("", call.run());
    EXPECT_TRUE(bytes == result);
    EXPECT_EQ(0, status);
    for (const int end : begin) close(end);
    EXPECT_EQ(3, shell(*product, "exit 3"));
    EXPECT_EQ(own, children_of(getpid()));
}

TEST_F(Worker, cannot_begin_without_its_library_or_memory) {
    const std::string longest(4090, 'x');
    for (const auto& [path, error] : {std::pair(longest, "cannot load ./xxx"),
                                      {longest + longest, "the library's path is too long"}}) {
        const std::shared_ptr<const Engine> worker = worker_with(path);
        Call call(*worker, "xp_cmdshell", {"true"});
        EXPECT_THAT(call.run(), StartsWith(error));
    }
    largest_memory = 100000;
    Call call(*product, "xp_cmdshell", {"true"});
    EXPECT_EQ("there is no memory left to talk to the worker", call.run());
    largest_memory = SIZE_MAX;
    EXPECT_EQ(3, shell(*product, "exit 3"));
}

TEST(WorkerFiles, says_what_to_do_about_a_missing_one) {
    const ScratchFolder folder;
    struct Row {
        std::string library;
        std::string error;
    };
    for (const Row& row :
         {Row{folder.file("none"),
              "cannot load .*/none: cannot open .*: No such file or directory; a remedy"},
          {folder.file_with("text", "no library"), "cannot load .*/text: it is no library"}}) {
        WorkerFiles files;
        std::string error;
        EXPECT_FALSE(find_worker(row.library, "a remedy", files, error));
        EXPECT_THAT(error, testing::MatchesRegex(row.error));
    }
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return size > largest_memory ? nullptr : operator new(size);
}
