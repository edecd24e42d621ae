#include "extdll/sendmail.h"

#include <thread>

#include "extdll/mailargs.h"
#include "extdll/procedures.h"
#include "kovcert/qxci/kit/environment.h"
#include "tests/extdll/fakehost.h"
#include "tests/extdll/tlsserver.h"
#include "tests/scratch.h"
#include "utils/unix/timelib.h"

// For this thread: no connection is ever made, time passes in waits only, and there is no memory in
// blocks of one size, or after so many allocations (-1: enough).
thread_local bool unanswered = false;
thread_local int connected_port = 0;
static std::atomic<long> waited_ms = 0;
thread_local size_t scarce_size = 0;
thread_local int good_allocations = -1;

static bool is_scarce(size_t size) {
    if (good_allocations == 0) return true;
    if (good_allocations > 0) --good_allocations;
    return size == scarce_size;
}

extern "C" {

int __real_connect(int s, const sockaddr* name, socklen_t length);
int __wrap_connect(int s, const sockaddr* name, socklen_t length) {
    if (!unanswered) return __real_connect(s, name, length);
    connected_port = ntohs(reinterpret_cast<const sockaddr_in*>(name)->sin_port);
    errno = EINPROGRESS;
    return -1;
}

int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    if (!unanswered) return __real_poll(fds, count, timeout);
    waited_ms += timeout;
    return 0;
}

void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) {
    return is_scarce(size) ? nullptr : __real_malloc(size);
}
void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
    return is_scarce(count * size) ? nullptr : __real_calloc(count, size);
}
}

// Kept by design: a session that was started leaves its record behind. See SendmailManager.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:SendmailManager::FindOrAddState\n";
}

namespace {

using Cid = std::optional<int32>;  // nothing: the default session

void give_start(FakeHost& host, int port, Cid cid) {
    host.arguments.clear();
    host.give(START_SENDER, "ann@a.test").give(START_HOST, "127.0.0.1");
    host.give_int(START_PORT, port);
    host.give_int(START_TIMEOUT, 10);
    for (uint32 number = START_SENDER_NAME; number <= START_CERT_NAME; ++number)
        host.give(number, std::nullopt);
    host.give_int(START_CONNECTION, cid);
}

void give_mail(FakeHost& host, Cid cid) {
    host.arguments.clear();
    for (uint32 number = SEND_RECIPIENT; number <= SEND_CONTENT_TYPE; ++number)
        host.give(number, std::nullopt, EXTFN_TYPE_CHAR);
    host.give(SEND_RECIPIENT, "bob@b.test;;eve@e.test", EXTFN_TYPE_CHAR);
    host.give(SEND_SUBJECT, "Hi", EXTFN_TYPE_LONGCHAR).give(SEND_MESSAGE, "text", EXTFN_TYPE_CHAR);
    host.give_int(SEND_CONNECTION, cid);
}

int32 start(int port, Cid cid, std::optional<std::string> trusted = {}) {
    FakeHost host;
    give_start(host, port, cid);
    return host.give(START_TRUSTED_CERT, std::move(trusted)).status_of(xp_startsmtp);
}

int32 mail(Cid cid) {
    FakeHost host;
    give_mail(host, cid);
    return host.status_of(xp_sendmail);
}

int32 stop(Cid cid) {
    FakeHost host;
    host.give_int(STOP_CONNECTION, cid);
    return host.status_of(xp_stopsmtp);
}

TEST(MailProcedures, a_session_lives_from_start_to_stop_by_its_connection_number) {
    for (const Cid cid : {Cid(), Cid(7)}) {
        SMTPPeer peer;
        EXPECT_EQ(cid ? 5 : 25, mail(cid));
        EXPECT_EQ(cid ? 3 : 0, stop(cid));
        EXPECT_EQ(0, start(peer.port(), cid));
        EXPECT_EQ(0, start(peer.port(), cid));  // closes the first connection
        EXPECT_EQ(0, mail(cid));
        EXPECT_EQ(5, mail(8));
        EXPECT_EQ(0, stop(cid));
        EXPECT_EQ(cid ? 5 : 25, mail(cid));
        ASSERT_EQ(2U, peer.finish().size());
        EXPECT_THAT(peer.received[0], testing::EndsWith("\r\nQUIT\r\n"));
        EXPECT_THAT(peer.received[1],
                    testing::HasSubstr("RCPT TO:<bob@b.test>\r\nRCPT TO:<eve@e.test>\r\nDATA\r\n"
                                       "From: ann@a.test\r\nTo: bob@b.test,eve@e.test\r\n"
                                       "Subject: Hi\r\n"));
    }
    SMTPPeer peer;
    EXPECT_EQ(0, start(peer.port(), 0));
    EXPECT_EQ(25, mail({})) << "number 0 is a session of its own";
    EXPECT_EQ(0, mail(0));
    EXPECT_EQ(0, stop(0));
    EXPECT_EQ(25, mail(0)) << "and stays";
    EXPECT_EQ(0, stop(0));
}

TEST(MailProcedures, a_start_needs_its_first_seven_arguments_and_a_host) {
    FakeHost host;
    for (uint32 missing = START_SENDER; missing <= START_AUTH_PASSWORD; ++missing) {
        give_start(host, 1, 7);
        host.arguments.erase(missing);
        EXPECT_EQ(2, host.status_of(xp_startsmtp)) << missing;
    }
    give_start(host, 1, 7);
    EXPECT_EQ(2, host.give(START_HOST, std::nullopt).status_of(xp_startsmtp));
    EXPECT_EQ(3, stop(7));
}

TEST(MailProcedures, a_start_without_port_and_time_out_takes_25_and_60_seconds) {
    constexpr a_timelib_clock clock = {[] { return waited_ms / 10; }, [] { return uint64{0}; },
                                       [] { return 100L; }};
    timelib_set_clock(&clock);
    FakeHost host;
    give_start(host, 0, {});
    host.give_int(START_PORT, {});
    host.give_int(START_TIMEOUT, {});
    unanswered = true;
    EXPECT_EQ(100, host.status_of(xp_startsmtp));
    unanswered = false;
    timelib_set_clock(nullptr);
    EXPECT_EQ(25, connected_port);
    EXPECT_EQ(60000, waited_ms);
}

TEST(MailProcedures, the_connection_number_is_argument_12_or_else_8) {
    SMTPPeer peer;
    SMTPPeer other_peer;
    FakeHost host;
    give_start(host, peer.port(), {});
    host.give_int(8, 21);
    EXPECT_EQ(0, host.status_of(xp_startsmtp));
    for (uint32 number = 8; number <= 12; ++number) host.arguments.erase(number);
    host.give_int(START_PORT, other_peer.port());
    host.give_int(8, 22);
    EXPECT_EQ(0, host.status_of(xp_startsmtp));
    EXPECT_EQ(0, stop(21));
    EXPECT_EQ(0, mail(22)) << "another session";
    EXPECT_EQ(0, stop(22));
    EXPECT_EQ(3, stop(22));
    // With a NULL number the first bytes of a certificate are taken for one: "AAAA".
    EXPECT_EQ(0, start(peer.port(), {}, "AAAA.pem"));
    EXPECT_EQ(0, stop(0x41414141));
}

TEST(MailProcedures, mail_is_never_sent_in_clear_text_where_TLS_was_asked_for) {
    SMTPPeer peer;
    FakeHost host;
    give_start(host, peer.port(), 7);
    host.give(START_TRUSTED_CERT, "no such certificate");
    host.give(START_AUTH_USERNAME, "u").give(START_AUTH_PASSWORD, "p");
    EXPECT_EQ(105, host.status_of(xp_startsmtp));
    host.piece_size = 12;
    host.good_pieces = 0;
    EXPECT_EQ(2, host.status_of(xp_startsmtp)) << "a certificate that came in part";
    EXPECT_EQ(25, mail(7));
    EXPECT_EQ(0, stop(7));
    EXPECT_THAT(peer.transcript(), testing::MatchesRegex("EHLO [^\r]*\r\n"));
}

TEST(MailProcedures, a_failed_start_can_be_followed_by_one_that_works) {
    SMTPPeer refusing(SMTPPeer::Replies{{"EHLO", "502 no"}});
    SMTPPeer peer(SMTPPeer::Replies{{"DATA", "close now"}});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(104, start(refusing.port(), 7));
        EXPECT_EQ(25, mail(7));
        EXPECT_EQ(0, start(peer.port(), 7));
        EXPECT_EQ(104, mail(7));
        EXPECT_EQ(104, mail(7));
    }
    EXPECT_EQ(0, stop(7));
}

TEST(MailProcedures, mail_needs_nineteen_arguments_whole_and_a_recipient) {
    SMTPPeer peer;
    FakeHost host;
    give_start(host, peer.port(), 7);
    ASSERT_EQ(0, host.give(START_SENDER, std::nullopt).status_of(xp_startsmtp));
    for (uint32 missing = SEND_RECIPIENT; missing <= SEND_CONTENT_TYPE; ++missing) {
        give_mail(host, 7);
        host.arguments.erase(missing);
        EXPECT_EQ(5, host.status_of(xp_sendmail)) << missing;
    }
    give_mail(host, 7);
    host.give(SEND_RECIPIENT, "bob@b.test", EXTFN_TYPE_STRING);  // counts as NULL
    EXPECT_EQ(5, host.status_of(xp_sendmail));
    host.give_int(SEND_CONNECTION, {});
    EXPECT_EQ(25, host.status_of(xp_sendmail)) << "no client comes before no recipient";
    host.give_int(SEND_CONNECTION, 7);
    host.give(SEND_BCC_RECIPIENT, ";;bcc@b.test;", EXTFN_TYPE_CHAR);
    EXPECT_EQ(0, host.status_of(xp_sendmail));
    // In pieces, and with a piece that cannot be read.
    host.piece_size = 3;
    EXPECT_EQ(0, host.status_of(xp_sendmail));
    host.good_pieces = 1;
    EXPECT_EQ(15, host.status_of(xp_sendmail));
    EXPECT_EQ(0, stop(7));
    const std::string sent = peer.transcript();
    const std::string once = "MAIL FROM:<>\r\nRCPT TO:<bcc@b.test>\r\nDATA\r\n";
    EXPECT_NE(sent.find(once), sent.rfind(once));
}

// Reads argument 7 of `host` into memory of the test's.
bool reads(FakeHost& host, TextArgument& argument) {
    an_extfn_api api = FakeHost::api();
    return argument.read(ExternalCall(&api, &host), 7) == TextArgument::Outcome::Read;
}

TEST(TextArgument, a_secret_does_not_outlive_its_argument) {
    for (const int good_pieces : {-1, 0}) {  // read, and read in part
        FakeHost host;
        host.give(7, "open sesame").piece_size = 8;
        host.good_pieces = good_pieces;
        alignas(TextArgument) char memory[sizeof(TextArgument)] = {};
        auto* const argument = new (memory) TextArgument;
        argument->keep_secret();
        EXPECT_EQ(good_pieces == -1, reads(host, *argument));
        argument->~TextArgument();
        EXPECT_EQ(std::string::npos, std::string(memory, sizeof memory).find("open"));
    }
}

TEST(TextArgument, takes_no_more_than_the_host_announced) {
    for (const uint32 second_piece : {75U, 150U, 151U, 400U}) {
        FakeHost host;
        host.give(7, pattern(1000)).piece_size = 100;
        host.announced_length = 250;
        host.on_get_piece = [&] { host.piece_size = second_piece; };
        // Its own memory holds such a text; what is written behind it shows.
        struct {
            TextArgument argument;
            char behind[256] = {};
        } memory;
        EXPECT_EQ(second_piece <= 150, reads(host, memory.argument)) << second_piece;
        EXPECT_THAT(memory.behind, testing::Each('\0'));
    }
}

a_smtp_start start_at(const SMTPPeer& peer, const char* trusted = nullptr) {
    a_smtp_start start = {};
    start.sender = "ann@a.test";
    start.host = "127.0.0.1";
    start.port = peer.port();
    start.trusted_certificate = trusted;
    return start;
}

TEST(MailProcedures, a_certificate_makes_a_secure_session_whose_environment_ends_with_it) {
    gUseStub = true;
    SMTPPeer peer;
    SMTPPeer refusing(SMTPPeer::Replies{{"STARTTLS", "454 no"}});
    SMTPPeer plain_peer;
    peer.secure = refusing.secure = stub_servers();
    SendmailState session(7);
    const a_smtp_start refused = start_at(refusing, "ca.pem");
    const a_smtp_start plain = start_at(plain_peer);
    a_smtp_start good = start_at(peer, "ca.pem");
    good.auth_username = good.auth_password = "user";
    a_mail mail = {};
    mail.recipient = "bob@b.test";

    scarce_size = sizeof(qxci::Environment);
    EXPECT_EQ(105, session.startsmtp(good));
    scarce_size = 0;
    EXPECT_EQ(nullptr, session.qxcienv);
    EXPECT_EQ(105, session.startsmtp(refused));
    const DBQXCIEnvironment* const env = session.qxcienv;
    EXPECT_NE(nullptr, env) << "stays after a failed start";
    EXPECT_EQ(0, session.startsmtp(good));
    EXPECT_EQ(env, session.qxcienv);
    EXPECT_EQ(0, session.sendsmtp(mail));
    EXPECT_EQ(0, session.startsmtp(good));
    EXPECT_NE(nullptr, session.qxcienv);
    EXPECT_EQ(0, session.startsmtp(plain));
    EXPECT_EQ(nullptr, session.qxcienv) << "a session in clear text has no environment";
    EXPECT_EQ(0, session.startsmtp(good));
    EXPECT_EQ(0, session.stopsmtp());
    EXPECT_EQ(nullptr, session.qxcienv);
    EXPECT_EQ(105, session.startsmtp(refused));  // the session's own end is enough
    ASSERT_EQ(3U, peer.finish().size());
    EXPECT_THAT(peer.received[0],
                testing::MatchesRegex("EHLO [^\r]*\r\nSTARTTLS\r\nEHLO [^\r]*\r\nAUTH PLAIN "
                                      "[^\r]*\r\nMAIL FROM.*QUIT\r\n"));
}

TEST(MakeArgv, splits_at_semicolons_and_has_all_of_a_list_or_none) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {nullptr, {}},
        {";;", {}},
        {"a;b", {"a", "b"}},
        {";a;; b ;\"c;d\";", {"a", " b ", "\"c", "d\""}},
    };
    int count = -1;
    for (const auto& [text, fields] : cases) {
        char** const list = make_argv(text, &count);
        EXPECT_EQ(fields, std::vector<std::string>(list, list + count));
        EXPECT_EQ(nullptr, list[count]);
        do_free(list);
    }
}

TEST(MailProcedures, a_recipient_list_that_is_not_whole_sends_nothing) {
    SMTPPeer peer;
    SendmailState session(7);
    ASSERT_EQ(0, session.startsmtp(start_at(peer)));
    a_mail mail = {};
    mail.recipient = mail.cc_recipient = mail.bcc_recipient = "bob@b.test;eve@e.test";
    for (int good = 0; good < 9; ++good) {
        good_allocations = good;
        EXPECT_EQ(15, session.sendsmtp(mail)) << good;
        good_allocations = -1;
    }
    session.stopsmtp();
    EXPECT_THAT(peer.transcript(), testing::MatchesRegex("EHLO [^\r]*\r\nQUIT\r\n"));
}

TEST(MailProcedures, without_a_mutex_nothing_starts_and_nothing_is_there) {
    ut_safe_pthread_mutex_clean();
    scarce_size = sizeof(a_ut_pthread_mutex);
    EXPECT_EQ(15, start(1, 31));
    EXPECT_EQ(5, mail(31));
    EXPECT_EQ(3, stop(31));
    SendmailState session(7);
    SendmailManager registry;
    scarce_size = 0;
    const UTLock lock(session);
    EXPECT_EQ(15, session.startsmtp({}));
    EXPECT_EQ(25, session.sendsmtp({}));
    EXPECT_EQ(0, session.stopsmtp());
    EXPECT_EQ(nullptr, registry.FindOrAddState(7));
    EXPECT_EQ(nullptr, registry.FindState(7));
}

TEST(SendmailManager, leaves_the_record_of_a_session_that_was_started) {
    SendmailManager registry;
    SendmailState* const session = registry.FindOrAddState(7);
    ASSERT_NE(nullptr, session);
    registry.ReleaseAndDeleteState(registry.FindState(7));
    EXPECT_EQ(nullptr, registry.FindState(7));
    EXPECT_EQ(1U, session->refcount);
    registry.ReleaseState(session);
}

// In a process of its own, whose library ends.
int end_of_the_library() {
    FakeHost host;
    host.on_set = ut_end_lasting;  // too early: a call is running
    EXPECT_EQ(0, host.status_of(xp_stopsmtp));
    EXPECT_EQ(100, start(1, 7));
    EXPECT_EQ(25, mail(7));
    ut_end_lasting();
    for (const Cid cid : {Cid(), Cid(7)}) {
        EXPECT_EQ(15, start(1, cid));
        EXPECT_EQ(5, mail(cid));
        EXPECT_EQ(3, stop(cid));
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(MailProcedures, are_polite_after_the_end_of_the_library_and_put_it_off_before) {
    EXPECT_EXIT(_exit(end_of_the_library()), testing::ExitedWithCode(0), "");
}

// 64 connections on 16 threads, against a server that now and then hangs up in the middle.
class ManyConnections : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(MailProcedures, ManyConnections,
                         testing::Values("in_clear_text", "in_TLS"),
                         [](const auto& test) { return test.param; });

TEST_P(ManyConnections, start_send_and_stop_at_random) {
    const bool secure = GetParam() == "in_TLS";
    gUseStub = true;
    constexpr int connections = 64;
    constexpr int threads = 16;
    const char* const wanted = std::getenv("QUOREL_STRESS_SECONDS");
    const std::chrono::seconds duration(wanted != nullptr ? std::atoi(wanted) : 3);

    std::thread([] {}).join();  // with the first one a sanitizer may start one of its own
    const long threads_before = entries("/proc/self/task");
    const long descriptors = entries("/proc/self/fd");
    const size_t mutexes = ut_safe_pthread_mutex_state().num_in_use;
    std::atomic<size_t> stopped = 0;
    std::atomic<size_t> mails = 0;
    {
        SMTPPeer peer;
        peer.keep_at_most = 0;
        peer.hang_up_one_in = 100;
        if (secure) peer.secure = stub_servers();
        std::vector<std::thread> users;
        const auto end = std::chrono::steady_clock::now() + duration;
        for (unsigned seed = 1; seed <= threads; ++seed) {
            users.emplace_back([&, seed]() mutable {
                while (std::chrono::steady_clock::now() < end) {
                    const int32 cid = 100 + rand_r(&seed) % connections;
                    const int what = rand_r(&seed) % 10;
                    if (what < 2)
                        start(peer.port(), cid, secure ? std::optional("ca.pem") : std::nullopt);
                    if (what == 2 && stop(cid) == 0) ++stopped;
                    if (what > 2 && mail(cid) == 0) ++mails;
                }
            });
        }
        for (std::thread& user : users) user.join();
        for (int32 cid = 100; cid < 100 + connections; ++cid) stopped += stop(cid) == 0;
        peer.finish();
        EXPECT_LE(static_cast<long>(mails), peer.messages);
    }
    EXPECT_GT(mails, 0U);
    EXPECT_EQ(descriptors, entries("/proc/self/fd"));
    EXPECT_EQ(threads_before, entries("/proc/self/task"));
    // One record, with its mutex, for every session that was stopped; the setup's locks aside.
    EXPECT_LE(ut_safe_pthread_mutex_state().num_in_use, mutexes + stopped + 8);
    printf("%zu messages, %zu sessions\n", mails.load(), stopped.load());
}

}  // namespace
