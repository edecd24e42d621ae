#include "extdll/securesmtp.h"

#include <gmock/gmock.h>

#include "tests/extdll/tlsserver.h"
#include "tests/scratch.h"
#include "tests/wrapped.h"
#include "utils/lang/utlangstring.h"
#include "utils/unix/timelib.h"

namespace {

// Of the thread that uses the client. After it has sent what begins with the first, so many of its
// waits are over at once and without an event, but for the time. A good-bye is not taken then.
thread_local std::string_view before_silence;
thread_local int idle_waits = 0;
std::atomic<long> waited_ms = 0;

}  // namespace

extern "C" {

int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    if (idle_waits == 0) return __real_poll(fds, count, timeout);
    --idle_waits;
    waited_ms += timeout;
    return 0;
}

// Messages are all of the same second.
time_t __wrap_time(time_t*) {
    return 1000000000;
}

ssize_t __real_recv(int s, void* b, size_t n, int flags);
ssize_t __wrap_recv(int s, void* b, size_t n, int flags) {
    if (idle_waits == 0) return __real_recv(s, b, n, flags);
    errno = EAGAIN;
    return -1;
}

ssize_t __real_send(int s, const void* b, size_t n, int flags);
ssize_t __wrap_send(int s, const void* b, size_t n, int flags) {
    const std::string_view data(static_cast<const char*>(b), n);
    if (!before_silence.empty() && data.starts_with(before_silence)) {
        before_silence = {};
        idle_waits = 40;  // ten seconds
    }
    if (idle_waits > 0 && data.starts_with("QXCI-STUB CLOSE")) {
        errno = EAGAIN;
        return -1;
    }
    return __real_send(s, b, n, flags);
}
}

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class Client : public SecureSMTPClient {
  public:
    using SecureSMTPClient::_certfile;
    using SecureSMTPClient::SecureSMTPClient;
    using SMTPClient::_shutdown;
};

int send_over(SMTPClient& client, const char* attachment = nullptr) {
    const char* to[] = {"bob@b.test"};
    return client.SendMessage("Hi", "text\r\n.dot\r\n", to, 1, nullptr, 0, nullptr, 0, attachment,
                              nullptr);
}

/// A client over the stub provider, which plays `script`.
struct Session {
    explicit Session(const char* script = "")
        : script_option{"stub_script", script, false, nullptr} {
        setenv("QX_USE_QXCI_STUB", "1", 1);
        env.emplace(&mail_crypto_callbacks, nullptr);
        EXPECT_EQ(QXCI_OK, env->Init(false, "test", &script_option, &err));
        texts.Init("en", locale.GetOSCharset(), false);
        client.emplace(&*env, &texts);
    }

    int connect(int port, const char* user = nullptr) {
        return client->Connect("ann@a.test", nullptr, "127.0.0.1", port, 1, user, user);
    }
    int send(const char* attachment = nullptr) { return send_over(*client, attachment); }

    a_qxci_user_option script_option;
    const UTLocale locale{ls_english(), ls_find_charset("UTF-8")};
    UTLangString texts{locale, RES_FOLDER};
    DBQXCIError err;
    std::optional<DBQXCIEnvironment> env;
    std::optional<Client> client;
};

TEST(SecureSMTPClient, says_in_TLS_what_the_plain_client_says_without) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("attached", pattern(100000));
    std::string raw;
    SMTPPeer peer;
    peer.secure = stub_servers("", &raw);
    Session session;
    EXPECT_EQ(0, session.connect(peer.port(), "user"));
    EXPECT_EQ(0, session.send());
    EXPECT_EQ(0, session.send(file.c_str()));
    session.client->Disconnect();
    EXPECT_EQ(104, session.send()) << "closed";

    SMTPPeer plain_peer;
    SMTPClient plain;
    EXPECT_EQ(
        0, plain.Connect("ann@a.test", nullptr, "127.0.0.1", plain_peer.port(), 1, "user", "user"));
    EXPECT_EQ(0, send_over(plain));
    EXPECT_EQ(0, send_over(plain, file.c_str()));
    plain.Disconnect();
    const std::string clear = peer.transcript();
    const std::string start = "\r\nSTARTTLS\r\n";
    EXPECT_EQ(plain_peer.transcript(), clear.substr(clear.find(start) + start.size()));
    EXPECT_THAT(raw, StartsWith("QXCI-STUB HELLO 00007\nclient\nQXCI-STUB DATA_ "));
    EXPECT_THAT(raw, HasSubstr("QXCI-STUB DATA_ 00006\nQUIT\r\n"));
}

// The first words of the lines of a transcript.
std::string verbs_of(const std::string& transcript) {
    std::string verbs;
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);)
        verbs += (verbs.empty() ? "" : " ") + line.substr(0, line.find_first_of(" \r"));
    return verbs;
}

TEST(SecureSMTPClient, every_step_that_fails_has_its_code) {
    constexpr const char *clear = "EHLO STARTTLS", *secured = "EHLO STARTTLS EHLO";
    const struct {
        const char* what;
        int code;
        const char* said;
        SMTPPeer::Replies replies = {};
        const char* script = "";  // of the client's provider
        const char* server = "";  // script of the server's; null: there is no TLS behind a 220
        bool login = false;
        bool texts = true;
    } cases[] = {
        {"greeting", 105, "", {{"greeting", "554 no"}}},
        {"no greeting", 104, "", {{"greeting", "close"}}},
        {"EHLO", 105, "EHLO", {{"EHLO", "502 no"}}},
        {"not offered", 105, "EHLO", {{"EHLO", "250 AUTH PLAIN"}}, "", "", true},
        {"not ready", 105, clear, {{"STARTTLS", "454 no"}}},
        {"STARTTLS unanswered", 104, clear, {{"STARTTLS", "close"}}},
        {"no TLS", 105, clear, {{"STARTTLS", "220 go\r\nHTTP/1.1 400\r\n"}}, "", nullptr},
        {"handshake cut short", 105, clear, {}, "", "handshake fail 9"},
        {"injected", 105, secured, {{"STARTTLS", "220 go\r\n250 in\r\n"}, {"EHLO 2", "502 no"}}},
        {"injected, ignored", 0, secured, {{"STARTTLS", "220 go\r\n554 injected\r\n"}}},
        {"no provider", 15, clear, {}, "env fail 26,0,x,x"},
        {"no stream", 15, clear, {}, "stream fail 21"},
        {"stream", 105, clear, {}, "init fail 3"},
        {"certificate", 105, clear, {}, "conn fail 13,0,Acme"},
        {"handshake", 105, clear, {}, "handshake fail 9"},
        {"second EHLO", 105, secured, {{"EHLO 2", "502 no"}}},
        {"close in TLS", 105, secured, {{"EHLO 2", "close"}}},
        {"close in TLS, no texts", 105, secured, {{"EHLO 2", "close"}}, "", "", false, false},
        {"abrupt close", 105, secured, {{"EHLO 2", "close"}}, "", "destroy done"},
        {"write", 105, clear, {}, "write fail 8"},  // for an answer it would wait for ever
        {"login", 105, "EHLO STARTTLS EHLO AUTH", {{"AUTH", "535 no"}}, "", "", true},
        {"login not offered", 104, secured, {{"EHLO 2", "250 ok"}}, "", "", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SMTPPeer peer(c.replies);
        peer.secure = [&](int fd) {
            return c.server != nullptr ? stub_servers(c.server)(fd) : nullptr;
        };
        Session session(c.script);
        if (!c.texts) session.client.emplace(&*session.env, nullptr);
        EXPECT_EQ(c.code, session.connect(peer.port(), c.login ? "user" : nullptr));
        EXPECT_FALSE(session.client->_shutdown) << "a failure leaves the connection open";
        session.client.reset();
        EXPECT_EQ(c.said, verbs_of(peer.transcript()));
    }
    const std::string no_label(64, 'x');  // one too many, so that no server is asked
    EXPECT_EQ(100,
              Session().client->Connect("a", nullptr, no_label.c_str(), 25, 1, nullptr, nullptr));
    const SMTPPeer refusing({}, AF_INET, false);
    EXPECT_EQ(100, Session().connect(refusing.port()));
}

TEST(SecureSMTPClient, what_the_certificate_must_be_goes_to_the_provider) {
    const struct {
        const char* certificate[4];
        const char* options;
    } cases[] = {
        {{"ca.pem", nullptr, nullptr, "n"}, "trusted_certificate=ca.pem\ncertificate_name=n\n"},
        {{"ca.pem", "c", "u", "n"},
         "trusted_certificate=ca.pem\ncertificate_company=c\ncertificate_unit=u\n"
         "certificate_name=n\n"},
        {{nullptr, "c", "u", "n"}, ""},
    };
    for (const auto& [certificate, options] : cases) {
        std::string raw;
        SMTPPeer peer;
        peer.secure = stub_servers("", &raw);
        Session session;
        session.client->SetTrustedCertificate(nullptr, "x", "x", "x");
        session.client->SetTrustedCertificate(certificate[0], certificate[1], certificate[2],
                                              certificate[3]);
        EXPECT_EQ(0, session.connect(peer.port()));
        session.client.reset();
        peer.finish();
        EXPECT_THAT(raw, HasSubstr(std::string("\nclient\n") + options + "QXCI-STUB DATA_"));
        EXPECT_THAT(raw, EndsWith("QXCI-STUB CLOSE 00000\n"));
    }
    Session session;
    session.client->SetTrustedCertificate("old", nullptr, nullptr, nullptr);
    char* const old = session.client->_certfile.get();
    session.client->SetTrustedCertificate("new", nullptr, nullptr, nullptr);
    EXPECT_STREQ("new", session.client->_certfile.get());
    EXPECT_STREQ("old", old);
    ut_free(old);
}

TEST(SecureSMTPClient, a_silent_server_is_waited_for_but_a_good_bye_only_for_a_second) {
    constexpr a_timelib_clock clock_of_waits = {[] { return waited_ms.load() / 10; },
                                                [] { return uint64{0}; }, [] { return 100L; }};
    timelib_set_clock(&clock_of_waits);
    for (const auto& [sent, wait] :
         {std::pair("EHLO", 10000), std::pair("STARTTLS", 10000),
          std::pair("QXCI-STUB HELLO", 10000), std::pair("QXCI-STUB DATA", 10000),
          std::pair("QXCI-STUB CLOSE", 1000)}) {
        SMTPPeer peer;
        peer.secure = stub_servers();
        Session session;
        before_silence = sent;
        const long before = waited_ms;
        EXPECT_EQ(0, session.connect(peer.port())) << sent;
        session.client->Disconnect();
        idle_waits = 0;
        EXPECT_EQ(before + wait, waited_ms) << sent;
    }
    timelib_set_clock(nullptr);
}

}  // namespace
