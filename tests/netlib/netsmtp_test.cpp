#include "netlib/netsmtp.h"

#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "netlib/netutil.h"
#include "netlib/socketstream.h"
#include "tests/netlib/scarcememory.h"
#include "tests/netlib/smtppeer.h"
#include "tests/scratch.h"
#include "tests/wrapped.h"
#include "utils/etc/base64.h"
#include "utils/locale/utlocale.h"
#include "utils/unix/timelib.h"

namespace {

// System calls of the thread that uses the client.
struct Calls {
    int sends = 0;
    size_t largest_send = 0;
    int reads = 0;
    int connects = 0;
    int blocking_connects = 0;
    int closes = 0;
};
thread_local Calls calls;

// Once what this points to is set, a wait of the client's that ends without an event takes a tenth
// of its time, and time passes in such waits only: how fast the machine is does not matter.
thread_local const std::atomic<bool>* time_passes = nullptr;
int waited_ms = 0;

bool nameless = false;  // gethostname fails

const char* stand_in = nullptr;  // the file for which every path stands

}  // namespace

extern "C" {

#define COUNTED(type, name, counter, parameters, arguments) \
    type __real_##name parameters;                          \
    type __wrap_##name parameters {                         \
        ++calls.counter;                                    \
        return __real_##name arguments;                     \
    }

COUNTED(ssize_t, recv, reads, (int s, void* b, size_t n, int flags), (s, b, n, flags))
COUNTED(ssize_t, read, reads, (int s, void* b, size_t n), (s, b, n))
COUNTED(int, close, closes, (int s), (s))

int __real_connect(int s, const sockaddr* name, socklen_t n);
int __wrap_connect(int s, const sockaddr* name, socklen_t n) {
    ++calls.connects;
    if ((fcntl(s, F_GETFL) & O_NONBLOCK) == 0) ++calls.blocking_connects;
    return __real_connect(s, name, n);
}

ssize_t __real_send(int s, const void* b, size_t n, int flags);
ssize_t __wrap_send(int s, const void* b, size_t n, int flags) {
    ++calls.sends;
    calls.largest_send = std::max(calls.largest_send, n);
    return __real_send(s, b, n, flags);
}

int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    if (time_passes == nullptr || !*time_passes) return __real_poll(fds, count, timeout);
    const int ready = __real_poll(fds, count, timeout / 10);
    if (ready == 0) waited_ms += timeout;
    return ready;
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
    return __real_access(stand_in != nullptr ? stand_in : path, mode);
}
int __real_open64(const char* path, int flags, mode_t mode);
int __wrap_open64(const char* path, int flags, mode_t mode) {
    return __real_open64(stand_in != nullptr ? stand_in : path, flags, mode);
}

int __wrap_gethostname(char* name, size_t length) {
    if (nameless) return -1;
    return snprintf(name, length, "client.test") > 0 ? 0 : -1;
}

time_t __wrap_time(time_t* now) {
    constexpr time_t frozen = 1794648240;  // 2026-11-14 09:24:00 UTC
    if (now != nullptr) *now = frozen;
    return frozen;
}

}  // extern "C"

namespace {

const std::string boundary = "==_EMAIL_MIME_2026_1114_092400_==";
const std::string mailer = "X-Mailer: Corvane External Library 12.0.1.3891\r\n";

std::string charset() {
    return ls_os_charset_label();
}

std::string text_headers() {
    return "Content-Type: text/plain; charset=" + charset() +
           "\r\nContent-Disposition: inline;\r\n\r\n";
}

/// One message, as a test gives it; an empty optional is null.
struct Mail {
    const char* subject = "Hi";
    const char* body = "text";
    std::vector<const char*> to = {"bob@b.test"};
    std::vector<const char*> cc = {};
    std::vector<const char*> bcc = {};
    const char* attachment = nullptr;
    const char* content_type = nullptr;
};

int send_mail(SMTPClient& client, Mail mail) {
    return client.SendMessage(
        mail.subject, mail.body, mail.to.data(), static_cast<int>(mail.to.size()), mail.cc.data(),
        static_cast<int>(mail.cc.size()), mail.bcc.data(), static_cast<int>(mail.bcc.size()),
        mail.attachment, mail.content_type);
}

struct Smtp : testing::Test {
    Smtp() {
        setenv("TZ", "UTC", 1);
        TcpUtil::Init();
    }
    ~Smtp() override { TcpUtil::Fini(); }
};

int connect(SMTPClient& client, const SMTPPeer& peer, const char* user = nullptr,
            const char* password = nullptr, const char* name = nullptr) {
    constexpr int timeout = 3;
    return client.Connect("ann@a.test", name, "127.0.0.1", peer.port(), timeout, user, password);
}

/// A client that is connected to a peer of its own.
struct Session {
    explicit Session(SMTPPeer::Replies replies = {}, const char* name = nullptr)
        : peer(std::move(replies)) {
        EXPECT_EQ(0, connect(client, peer, nullptr, nullptr, name));
    }
    int send(const Mail& mail) { return send_mail(client, mail); }
    /// What the peer received, to the end.
    std::string transcript() {
        client.Disconnect();
        return peer.transcript();
    }
    SMTPPeer peer;
    SMTPClient client;
};

std::string base64(const std::string& bytes, uint16 line_length) {
    std::string encoded(bytes.size() * 2 + 8, '\0');
    encoded.resize(base64_encode(encoded.data(), bytes.data(), bytes.size(), line_length));
    return encoded;
}

const std::string hello = "EHLO client.test\r\n";
const std::string mail_from = "MAIL FROM:<ann@a.test>\r\n";
const std::string rcpt_bob = "RCPT TO:<bob@b.test>\r\n";
const std::string quit = "QUIT\r\n";
const std::string rset = "RSET\r\n";
const std::string from_line = "From: ann@a.test\r\n";

TEST_F(Smtp, connecting_ends_in_its_code_and_says_what_the_step_needs) {
    const std::string login = "AUTH PLAIN AHUAcA==\r\n";
    struct Case {
        SMTPPeer::Replies replies;
        const char* user;
        int result;
        std::string transcript;
    };
    const Case cases[] = {
        {{}, nullptr, 0, hello},
        {{}, "u", 0, hello + login},
        {{{"greeting", "220-a\r\n220-b\r\n220 c"}}, nullptr, 0, hello},
        {{{"greeting", "554 no"}}, nullptr, 104, ""},
        {{{"greeting", "close"}}, nullptr, 104, ""},
        {{{"greeting", "flood"}}, nullptr, 104, ""},
        {{{"EHLO", "502 what"}}, nullptr, 104, hello + quit},
        {{{"EHLO", "close now"}}, nullptr, 104, hello},
        {{{"AUTH", "535 no"}}, "u", 104, hello + login + quit},
        {{{"AUTH", "close"}}, "u", 104, hello + login},
        {{{"EHLO", "250-a\r\n250 AUTH LOGIN CRAM-MD5"}}, "u", 104, hello + quit},
        {{{"EHLO", "250-a\r\n250 AUTH=PLAIN"}}, "u", 104, hello + quit},
        {{{"EHLO", "250 a"}}, nullptr, 0, hello},
        {{{"EHLO", "250-a\r\n250 auth=LOGIN PLAIN"}}, "u", 0, hello + login},
    };
    for (const Case& c : cases) {
        SMTPPeer peer(c.replies);
        calls = {};
        {
            SMTPClient client;
            EXPECT_EQ(c.result, connect(client, peer, c.user, "p")) << c.transcript;
        }
        EXPECT_EQ(1, calls.closes) << "the socket, once";
        // After a close of its own the peer does not see what came too late.
        EXPECT_EQ(c.transcript, peer.transcript()) << testing::PrintToString(c.replies);
    }
}

TEST_F(Smtp, a_host_that_cannot_be_reached_is_told_from_one_that_is_unknown) {
    const SMTPPeer refusing({}, AF_INET, false);
    const std::string no_label(64, 'x');  // one too many, so that no server is asked
    const std::pair<const char*, int> cases[] = {{no_label.c_str(), 102}, {"127.0.0.1", 100}};
    for (const auto& [host, result] : cases) {
        SMTPClient client;
        calls = {};
        EXPECT_EQ(result, client.Connect("a", nullptr, host, refusing.port(), 5, nullptr, nullptr));
        EXPECT_EQ(result == 100, calls.connects > 0);
        client.Disconnect();
        EXPECT_EQ(0, calls.sends);
    }
}

TEST_F(Smtp, an_IPv6_host_is_connected_over_IPv6) {
    SMTPPeer peer({}, AF_INET6);
    if (!peer.usable() || !TcpUtil::IsIPv6Supported()) GTEST_SKIP() << "no IPv6 here";
    SMTPClient client;
    calls = {};
    EXPECT_EQ(0, client.Connect("ann@a.test", nullptr, "::1", peer.port(), 10, nullptr, nullptr));
    EXPECT_EQ(0, calls.blocking_connects) << "no time-out would end its waits";
    client.Disconnect();
    EXPECT_EQ(hello + quit, peer.transcript());
}

TEST_F(Smtp, a_credential_is_encoded_in_lines_of_512_characters) {
    for (const size_t size : {0U, 1U, 382U, 383U, 800U}) {
        SMTPPeer peer;
        const std::string password(size, 'p');
        std::string said = hello + "AUTH PLAIN ";
        const size_t begin = said.size();
        said += base64(std::string("\0\0", 2) + password, 0);
        for (size_t at = begin + 512; at <= said.size(); at += 514) said.insert(at, "\r\n");
        SMTPClient client;
        // The server takes what follows the break for a command of its own.
        connect(client, peer, "", password.c_str());
        EXPECT_EQ(said + "\r\n", peer.transcript().substr(0, said.size() + 2)) << size;
    }
}

// What is sent for `mail`, from the envelope to the dot.
std::string transaction(const Mail& mail, const std::string& text) {
    std::string envelope = mail_from;
    for (const auto* list : {&mail.to, &mail.cc, &mail.bcc}) {
        for (const char* address : *list)
            envelope += std::string("RCPT TO:<") + (address != nullptr ? address : "") + ">\r\n";
    }
    return envelope + "DATA\r\n" + text + ".\r\n";
}

TEST_F(Smtp, a_message_is_composed_to_the_byte) {
    const std::string to = "To: bob@b.test\r\n";
    const std::string subject = "Subject: Hi\r\n";
    const std::string header = from_line + to + subject + mailer;
    const std::string mime = "MIME-Version: 1.0\r\n";
    const std::string rest = mailer + mime + text_headers() + "text\r\n";
    struct Case {
        Mail mail;
        std::string text;
        const char* name = nullptr;  // of the sender
    };
    const Case cases[] = {
        {{}, from_line + to + subject + rest},
        {{}, "From: Ann <ann@a.test>\r\n" + to + subject + rest, "Ann"},
        {{.to = {"x", "y", "z"}, .cc = {"c"}, .bcc = {"secret"}},
         from_line + "To: x,y,z\r\nCc: c\r\n" + subject + rest},
        {{.to = {}, .bcc = {"secret"}}, from_line + subject + rest},
        {{.to = {}}, from_line + subject + rest},
        {{.subject = nullptr, .body = nullptr}, from_line + to + mailer + "\r\n"},
        {{.subject = "H\xe9"},
         from_line + to + "Subject: =?" + charset() + "?q?=48=e9?=\r\n" + rest},
        {{.subject = "", .body = ""},
         from_line + to + "Subject: \r\n" + mailer + mime + text_headers() + "\r\n"},
        {{.body = "text\r\n"}, header + mime + text_headers() + "text\r\n\r\n"},
        {{.content_type = "text/html"},
         header + mime +
             "Content-Type: text/html;\r\nContent-Disposition: inline;\r\n\r\ntext\r\n"},
        {{.content_type = "ASIS-is"}, header + mime + "text\r\n"},
        // Dots are doubled at the beginning of lines, the first included; line ends stay.
        {{.body = ".x\r\n..\r\na.b\n.\n\r.\r\n."},
         header + mime + text_headers() + "..x\r\n...\r\na.b\n..\n\r.\r\n..\r\n"},
    };
    for (const Case& c : cases) {
        Session session({}, c.name);
        EXPECT_EQ(0, session.send(c.mail));
        EXPECT_EQ(hello + transaction(c.mail, c.text) + quit, session.transcript());
    }
}

TEST_F(Smtp, an_attachment_is_a_base64_section_that_closes_the_message) {
    const std::string mime = "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"" +
                             boundary + "\";\r\n--" + boundary + "\r\n";
    struct Case {
        size_t size;
        Mail mail;
        std::string text;
    };
    std::vector<Case> cases = {
        {57, {.body = nullptr}, "\r\n"},
        {57, {.content_type = "asis"}, mime + "text\r\n"},
    };
    for (const size_t size : {0U, 1U, 2U, 3U, 56U, 57U, 58U, 1U << 20})
        cases.push_back({size, {}, mime + text_headers() + "text\r\n"});
    const ScratchFolder folder;
    for (Case& c : cases) {
        const std::string path = folder.file_with("report.csv", pattern(c.size));
        c.mail.attachment = path.c_str();
        Session session;
        calls = {};
        EXPECT_EQ(0, session.send(c.mail));
        EXPECT_LE(calls.largest_send, 90112U) << "each has a time-out for itself";
        EXPECT_LE(static_cast<size_t>(calls.sends), 6 + c.size / 40000);
        const std::string text =
            from_line + "To: bob@b.test\r\nSubject: Hi\r\n" + mailer + c.text + "\r\n\r\n--" +
            boundary +
            "\r\nContent-Type: application/octet-stream; name=\"report.csv\"\r\n"
            "Content-transfer-encoding: base64\r\n"
            "Content-Disposition: attachment; filename=\"report.csv\"\r\n\r\n" +
            base64(pattern(c.size), 76) + "\r\n\r\n--" + boundary + "--\r\n\r\n\r\n";
        EXPECT_TRUE(hello + transaction(c.mail, text) + quit == session.transcript()) << c.size;
    }
}

TEST_F(Smtp, an_attachment_s_name_is_cut_at_255_bytes) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", "contents");
    const std::string path = "/some/folder/" + std::string(256, 'n');
    Session session;
    stand_in = file.c_str();
    EXPECT_EQ(0, session.send({.attachment = path.c_str()}));
    stand_in = nullptr;
    const std::string name = "name=\"" + std::string(255, 'n') + "\"\r\n";
    const std::string sent = session.transcript();
    EXPECT_NE(std::string::npos, sent.find("; " + name));
    EXPECT_NE(std::string::npos, sent.find("; file" + name));
}

TEST_F(Smtp, a_message_that_cannot_be_begun_says_nothing_and_leaves_the_next_ones_whole) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", "contents");
    mkfifo(folder.file("fifo").c_str(), 0600);
    mkdir(folder.file("folder").c_str(), 0700);
    Session session;
    // A FIFO is not waited for.
    for (const std::string& path : {folder.file("missing"), folder.file("fifo"),
                                    folder.file("folder"), std::string("/dev/zero")})
        EXPECT_EQ(12, session.send({.attachment = path.c_str()})) << path;
    for (const size_t largest_block : {0, 60000}) {
        const ScarceMemory scarce(largest_block);
        EXPECT_EQ(15, session.send({.attachment = file.c_str()})) << largest_block;
    }
    for (int i = 0; i < 2; ++i) EXPECT_EQ(0, session.send({.attachment = file.c_str()}));
    const std::string sent = session.transcript(), begun = hello + rset + rset + rset + rset;
    EXPECT_EQ(begun + mail_from, sent.substr(0, begun.size() + mail_from.size()));
    const size_t first = sent.find("Y29udGVudHM=");
    EXPECT_NE(std::string::npos, sent.find("Y29udGVudHM=", first + 1)) << sent;
}

TEST_F(Smtp, a_failed_message_ends_in_its_code_and_leaves_the_session_usable) {
    const Mail mail = {.to = {"bob@b.test", "c"}, .cc = {nullptr}};
    const std::string whole =
        transaction(mail, from_line + "To: bob@b.test,c\r\nCc: \r\nSubject: Hi\r\n" + mailer +
                              "MIME-Version: 1.0\r\n" + text_headers() + "text\r\n");
    const std::string envelope = whole.substr(0, whole.find("DATA"));
    const std::string first_two = mail_from + rcpt_bob + "RCPT TO:<c>\r\n";
    struct Case {
        std::string verb, reply;
        int result;
        std::string transcript;
    };
    const Case cases[] = {
        {"MAIL 1", "451 no", 104, mail_from},
        {"RCPT 2", "550 no", 20, first_two},
        {"RCPT 2", "551 no", 20, first_two},
        {"RCPT 2", "553-no\r\n553 no", 20, first_two},
        {"RCPT 2", "550-no\r\nxyz", 20, first_two},
        {"RCPT 2", "552 no", 104, first_two},
        {"RCPT 2", "450 no", 104, first_two},
        {"RCPT 3", "550 no", 20, envelope},
        {"DATA 1", "554 no", 104, envelope + "DATA\r\n"},
        {"DATA 1", "250 no", 104, envelope + "DATA\r\n"},
        {". 1", "552 no", 104, whole},
        {"RSET", "502 no", 0, whole},  // what RSET is answered does not matter
    };
    for (const Case& c : cases) {
        Session session(SMTPPeer::Replies{{c.verb, c.reply}});
        EXPECT_EQ(c.result, session.send(mail)) << c.verb << c.reply;
        EXPECT_EQ(0, session.send(mail)) << c.verb << c.reply;
        EXPECT_EQ(hello + c.transcript + (c.result != 0 ? rset : "") + whole + quit,
                  session.transcript());
    }
}

TEST_F(Smtp, an_over_long_reply_leaves_the_replies_out_of_step) {
    // Its first 256 bytes accept the recipient, the rest is malformed, and every reply after that
    // is taken for the one to the next command.
    nameless = true;
    Session session(
        SMTPPeer::Replies{{"RCPT 1", "250 " + std::string(300, 'x')}, {"DATA", "554 no"}});
    nameless = false;
    EXPECT_EQ(104, session.send({}));
    EXPECT_EQ(104, session.send({}));
    // What followed is on its way, unanswered.
    const std::string answered =
        "EHLO localhost\r\n" + mail_from + rcpt_bob + "DATA\r\n" + rset + mail_from + rcpt_bob;
    EXPECT_EQ(answered, session.peer.transcript().substr(0, answered.size()));
}

constexpr a_timelib_clock waiting_clock = {
    .raw_ticks = [] { return 1000L + waited_ms / 10; },
    .microseconds = [] { return uint64{0}; },
    .ticks_per_second = [] { return 100L; },
};

TEST_F(Smtp, a_peer_that_stalls_or_goes_holds_a_call_for_a_time_out) {
    const ScratchFolder folder;
    const std::string large = folder.file_with("large", pattern(24 << 20));
    struct Case {
        std::string verb, behaviour;
        int result;
    };
    const Case cases[] = {
        {"greeting", "silence", 101}, {"greeting", "drip", 101},
        {"greeting", "drip 3", 101},  {"AUTH", "silence", 101},
        {"RCPT", "silence", 101},     {"MAIL", "close now", 104},
        {"MAIL", "flood", 104},       {"DATA", "354 deaf", 101},
        {"DATA", "close now", 104},   {".", "silence", 101},
        {".", "close", 104},          {"DATA", "354 go on\r\n452 full deaf", 101},
    };
    timelib_set_clock(&waiting_clock);
    for (const Case& c : cases) {
        SMTPPeer peer(SMTPPeer::Replies{{c.verb, c.behaviour}});
        time_passes = &peer.stalling;
        const int before = waited_ms;
        calls = {};
        {
            SMTPClient client;
            const char* const attachment = c.verb == "DATA" ? large.c_str() : nullptr;
            int result = connect(client, peer, "u", "p");
            if (result == 0) result = send_mail(client, {.attachment = attachment});
            EXPECT_EQ(c.result, result) << c.verb << " " << c.behaviour;
            EXPECT_LE(waited_ms - before, 4000) << c.verb << " " << c.behaviour;
            EXPECT_LT(calls.reads, 320) << "a file of 384 blocks, which nobody takes, is not read";
            // Nothing more is sent into a broken message, and nothing waited for.
            const int failed = waited_ms;
            EXPECT_EQ(104, send_mail(client, {})) << c.verb << " " << c.behaviour;
            client.Disconnect();
            EXPECT_EQ(failed, waited_ms) << c.verb << " " << c.behaviour;
        }
        time_passes = nullptr;
    }
    timelib_set_clock(nullptr);
}

}  // namespace
