// What a caller writes into an address or a header never becomes a command or a header line of its
// own, a password stays secret and a status of 0 true: the host sees to it around the library.

#include <csignal>
#include <sstream>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "host/callframe.h"
#include "host/mailguards.h"
#include "tests/host/fakeprocedure.h"
#include "tests/netlib/smtppeer.h"
#include "tests/scratch.h"

// A session that was started leaves a small record behind by design, and the library is unloaded
// before leaks are looked for, so that it cannot be told by name.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

using namespace host;

namespace {

const Library& product() {
    static std::string error;
    static const Library library = Library::load(PRODUCT, error);
    EXPECT_EQ(error, "");
    return library;
}

/// A call of a procedure by parameter names.
class NamedCall {
  public:
    explicit NamedCall(const char* procedure)
        : _procedure(*find_procedure(procedure)), frame(product(), _procedure, 1) {}
    /// Of what fakelib makes of the arguments in place of the procedure.
    explicit NamedCall(const char* procedure, const char* fake)
        : _procedure(*find_procedure(procedure)), frame(fake_library(), _procedure, 1) {
        _procedure.name = fake;
    }

    bool set(const char* name, std::string bytes) {
        return frame.set_argument(_procedure.parameter_number(name),
                                  Value::text(std::move(bytes), EXTFN_TYPE_STRING), error);
    }
    // As an SQL function does.
    bool lend(const char* name, const std::string& bytes) {
        return frame.lend_argument(_procedure.parameter_number(name), bytes, error);
    }
    std::string error;  // of the last that failed

    std::int32_t status() {
        EXPECT_TRUE(frame.call(error)) << error;
        return frame.result() ? frame.result()->as_int().value_or(-1) : -1;
    }

  private:
    Procedure _procedure;

  public:
    CallFrame frame;
};

// Something harmful before, inside and behind something harmless.
std::vector<std::string> harmful(bool address) {
    constexpr std::string_view bytes("\r\n\0<>", 5);
    std::vector<std::string> all;
    for (const char byte : bytes.substr(0, address ? 5 : 3))
        for (const std::string harmless : {"", "bob@b.test", "\"q\"", "%0d"})
            all.insert(all.end(), {byte + harmless, harmless + byte, "x" + (byte + harmless)});
    return all;
}

TEST(MailParameters, no_address_and_no_header_value_can_inject_a_line) {
    SMTPPeer peer;
    NamedCall start("xp_startsmtp");
    EXPECT_TRUE(start.set("host", "127.0.0.1"));
    EXPECT_TRUE(start.set("port", std::to_string(peer.port())));
    EXPECT_TRUE(start.set("sender", "ann@a.test"));
    ASSERT_EQ(start.status(), 0);
    struct Row {
        const char *procedure, *parameter;
        bool address;
    };
    for (const Row& row : {Row{"xp_sendmail", "recipient", true},
                           {"xp_sendmail", "cc_recipient", true},
                           {"xp_sendmail", "bcc_recipient", true},
                           {"xp_sendmail", "subject", false},
                           {"xp_sendmail", "content_type", false},
                           {"xp_sendmail", "include_file", false},
                           {"xp_startsmtp", "sender", true},
                           {"xp_startsmtp", "sender_name", false},
                           {"xp_startsmtp", "auth_username", false},
                           {"xp_startsmtp", "auth_password", false},
                           {"xp_startsmtp", "host", false},
                           {"xp_startsmtp", "trusted_cert", false},
                           {"xp_startsmtp", "cert_name", false}}) {
        for (const std::string& text : harmful(row.address)) {
            NamedCall call(row.procedure);
            EXPECT_FALSE(call.set(row.parameter, text)) << row.parameter << text;
            EXPECT_THAT(call.error, testing::HasSubstr(row.parameter));
            EXPECT_FALSE(call.lend(row.parameter, text)) << row.parameter << text;
            EXPECT_THAT(call.error, testing::HasSubstr(row.parameter));
        }
    }
    // What is left of such a call has no recipient.
    EXPECT_EQ(NamedCall("xp_sendmail").status(), 5);

    NamedCall mail("xp_sendmail");
    EXPECT_TRUE(mail.set("recipient", "bob@b.test;eve@e.test"));
    EXPECT_TRUE(mail.set("subject", "a < b > c"));
    EXPECT_TRUE(mail.set("message", "\r\n.\r\nRSET\r\n"));
    EXPECT_EQ(mail.status(), 0);
    EXPECT_EQ(NamedCall("xp_stopsmtp").status(), 0);
    EXPECT_THAT(peer.transcript(),
                testing::MatchesRegex("EHLO [^\r\n]*\r\n"
                                      "MAIL FROM:<ann@a\\.test>\r\n"
                                      "RCPT TO:<bob@b\\.test>\r\n"
                                      "RCPT TO:<eve@e\\.test>\r\n"
                                      "DATA\r\n"
                                      "From: ann@a\\.test\r\n"
                                      "To: bob@b\\.test,eve@e\\.test\r\n"
                                      "Subject: a < b > c\r\n"
                                      "X-Mailer: [^\r\n]*\r\n"
                                      "MIME-Version: 1\\.0\r\n"
                                      "Content-Type: text/plain; charset=[^\r\n]*\r\n"
                                      "Content-Disposition: inline;\r\n"
                                      "\r\n"
                                      "\r\n\\.\\.\r\nRSET\r\n\r\n\\.\r\n"
                                      "QUIT\r\n"));
}

TEST(MailParameters, hold_what_can_be_pasted_where_it_goes) {
    struct Row {
        const char *procedure, *parameter;
        std::vector<const char*> right, wrong;
    };
    for (const Row& row : {
             Row{"xp_startsmtp",
                 "sender_name",
                 {"Ann", "Grüße\tx", "\"Doe, Ann\"", R"("a\", b")"},
                 {"Ann <eve@e.test>", "a>", "Doe, Ann", "\"a\", b", "Ann \"A", "a\x7f"}},
             {"xp_startsmtp", "port", {"1", "65535"}, {"0", "-1", "65536", "65561", "25x"}},
             {"xp_startsmtp", "auth_password", {"\x01,<\""}, {"a\n"}},
             {"xp_startsmtp", "allow_plaintext_auth", {"1", "FALSE", "on"}, {"2", "maybe", ""}},
             {"xp_sendmail", "recipient", {"a@b.test"}, {"\x0b", "a@b.test\x1b"}},
             {"xp_sendmail", "subject", {"a\tb \xe9 \"\\<>,"}, {"\x1b[2J", "a\bb"}},
             {"xp_sendmail",
              "include_file",
              {"/a\"\\\x01/c", "a'b c\t", "\"/"},
              {"/a/b\"c", "a\"", "b\\", "/a/\x01"}},
         }) {
        NamedCall call(row.procedure);
        for (const char* text : row.right) EXPECT_TRUE(call.set(row.parameter, text)) << call.error;
        for (const char* text : row.wrong) {
            EXPECT_FALSE(call.set(row.parameter, text)) << row.parameter << " " << text;
            EXPECT_THAT(call.error, testing::HasSubstr(row.parameter));
        }
    }
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream in(text + "|");
    for (std::string word; std::getline(in, word, '|');) words.push_back(word);
    return words;
}

// What the procedure is given ("2=h 12=1 ", by number) of "host=h|…" and the host's warning; or why
// it is not called ("6 (message) takes …").
std::string outcome(const char* procedure, const std::string& given) {
    NamedCall call(procedure, "fake_spell");
    for (const std::string& word : split(given)) {
        const std::size_t name = word.find('=');
        EXPECT_TRUE(call.set(word.substr(0, name).c_str(), word.substr(name + 1))) << call.error;
    }
    if (call.frame.call(call.error)) return *call.frame.result()->bytes + call.frame.warning();
    EXPECT_FALSE(call.frame.result()) << "nothing is called";
    return call.error.substr(strlen("fake_spell: parameter "));
}

TEST(MailParameters, a_doubtful_host_is_another_machine) {
    const auto takes_password_for = [](const std::string& host) {
        return outcome("xp_startsmtp", "host=" + host + "|auth_username=u|auth_password=p")
            .starts_with("2=");
    };
    for (const std::string& host :
         split("localhost|LocalHost|127.0.0.1|127.255.0.9|::1|0:0:0:0:0:0:0:1|::ffff:127.0.0.1"))
        EXPECT_TRUE(takes_password_for(host)) << host;
    for (const std::string& host :
         split("|localhost.evil.test|localhost.|127.1|0x7f.1|2130706433|0177.0.0.1|127.0.0.1.|"
               "127.0.0.1.evil.test|127.0.0.1 | 127.0.0.1|127.0.0.1:25|[::1]|::1%lo|126.0.0.1|"
               "::ffff:126.0.0.1|::127.0.0.1|::2|0.0.0.0|::"))
        EXPECT_FALSE(takes_password_for(host)) << host;
}

struct Outcome {
    std::string given;
    std::string begins;
};

TEST(MailParameters, a_start_protects_what_it_is_given) {
    const std::string login = "|auth_username=u|auth_password=p";
    const std::string clear = "7 (auth_password) would cross the network in the clear";
    const std::string unnamed = "11 (cert_name) is missing, and the host is no name";
    const std::string name(190, 'x');
    for (const Outcome& row : {
             Outcome{"host=h", "2=h 12=1 "},
             {"host=h" + login, clear},
             {"host=127.1" + login, clear},
             {"host=h|auth_username=|auth_password=", clear},
             {"host=h|allow_plaintext_auth=off" + login, clear},
             {"host=h|allow_plaintext_auth=yes" + login, "2=h 6=u 7=p 12=1 "},
             {"host=::1" + login, "2=::1 6=u 7=p 12=1 "},
             {"host=a.test.|trusted_cert=c" + login, "2=a.test. 6=u 7=p 8=c 11=a.test 12=1 "},
             {"host=::1|auth_username=" + name + "|auth_password=" + name.substr(1), "2=::1 6=x"},
             {"host=::1|auth_username=" + name + "|auth_password=" + name,
              "7 (auth_password) and the user's name are too long"},
             {"host=h|auth_username=u", "6 (auth_username) does nothing without auth_password"},
             {"host=h|auth_password=p", "7 (auth_password) does nothing without auth_username"},
             {"host=h|cert_name=n", "11 (cert_name) does nothing without trusted_cert"},
             {"host=h|cert_unit=n", "10 (cert_unit) does nothing without trusted_cert"},
             {"host=h|cert_name=", "2=h 11= 12=1 "},
             {"host=h|trusted_cert=c|cert_name=n", "2=h 8=c 11=n 12=1 "},
             {"host=h|trusted_cert=c|cert_name=", "2=h 8=c 12=1 cert_name is empty: any server"},
             {"host=192.0.2.1|trusted_cert=c", unnamed},
             {"host=3221225985|trusted_cert=c", unnamed},
             {"host=::1|trusted_cert=c", unnamed},
             {"host=a.test:25|trusted_cert=c", unnamed},
             {"host=|trusted_cert=c", unnamed},
         })
        EXPECT_THAT(outcome("xp_startsmtp", row.given), testing::StartsWith(row.begins));
}

TEST(MailParameters, a_message_stays_one_message_with_whole_line_ends) {
    const std::string bare = "message=\na\rb\r\nc\r\r\nd\n\re\n";
    const std::string whole = "6=\r\na\r\nb\r\nc\r\n\r\nd\r\n\r\ne\r\n 20=1 ";
    const std::string kept = "6=\na\rb\r\nc\r\r\nd\n\re\n 20=1 ";
    const std::string forged = "6 (message) takes no line that begins with --==_EMAIL_MIME_ beside";
    const std::string lines(40000, '\n');
    for (const Outcome& row : {
             Outcome{bare, whole},
             {bare + "|raw=true", kept},
             {bare + "|raw=0", whole},
             {"message=--==_EMAIL_MIME_2026", "6=--==_EMAIL_MIME_2026 20=1 "},
             {"message=--==_EMAIL_MIME_2026|include_file=f", forged},
             {"message=a\r--==_EMAIL_MIME_|include_file=f|raw=1", forged},
             {"message=a --==_EMAIL_MIME_\n\n--==_EMAIL_MIME_|include_file=f", forged},
             {"message=a --==_EMAIL_MIME_|include_file=f", "6=a --==_EMAIL_MIME_ 10=f 20=1 "},
             {"include_file=f", "6= 10=f 20=1 "},
             {"subject=s", "2=s 20=1 "},
         })
        EXPECT_THAT(outcome("xp_sendmail", row.given), testing::StartsWith(row.begins));
    EXPECT_EQ(outcome("xp_sendmail", "message=" + lines).size(), 80000 + strlen("6= 20=1 "));

    send_raw_by_default(true);
    EXPECT_EQ(outcome("xp_sendmail", bare), kept);
    EXPECT_EQ(outcome("xp_sendmail", bare + "|raw=0"), whole);
    send_raw_by_default(false);
}

#ifndef __SANITIZE_ADDRESS__
TEST(MailParameters, a_message_that_does_not_fit_is_refused) {
    const auto send_without_memory = [] {
        const std::string message(64U << 20, '\n');
        NamedCall call("xp_sendmail", "fake_spell");
        call.lend("message", message);
        const rlimit none = {1, 1};
        setrlimit(RLIMIT_AS, &none);
        call.frame.call(call.error);
        fputs(call.error.c_str(), stderr);
        _exit(0);
    };
    EXPECT_EXIT(send_without_memory(), testing::ExitedWithCode(0),
                "\\(message\\) is too long: there is no memory");
}
#endif

TEST(FileSize, bears_out_a_status_of_0) {
    const ScratchFolder folder;
    const std::string file = folder.file("f");
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    signal(SIGXFSZ, SIG_IGN);
    for (const rlim_t room : {0U, 2U, 5U}) {
        NamedCall call("xp_write_file");
        ASSERT_TRUE(call.set("name", file) && call.set("contents", "hello"));
        const rlimit limit = {room, usual.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        const bool done = call.frame.call(call.error);
        setrlimit(RLIMIT_FSIZE, &usual);
        EXPECT_EQ(done, room == 5);
        EXPECT_EQ(call.error, room == 5 ? ""
                                        : "xp_write_file: status 0, but the file holds " +
                                              std::to_string(room) + " of 5 bytes");
        EXPECT_EQ(call.frame.result()->as_int(), 0);
    }
    NamedCall device("xp_write_file");
    ASSERT_TRUE(device.set("name", "/dev/null") && device.set("contents", "hello"));
    EXPECT_EQ(device.status(), 0);

    SMTPPeer peer;
    NamedCall start("xp_startsmtp");
    EXPECT_TRUE(start.set("host", "127.0.0.1"));
    EXPECT_TRUE(start.set("port", std::to_string(peer.port())));
    ASSERT_EQ(start.status(), 0);
    for (const std::uintmax_t size : {5U, 3U}) {
        NamedCall mail("xp_sendmail");
        ASSERT_TRUE(mail.set("recipient", "bob@b.test") && mail.set("include_file", file));
        // The first argument has been read, the file has not.
        mail.frame.on_progress = [&](std::uint64_t) { std::filesystem::resize_file(file, size); };
        EXPECT_EQ(mail.frame.call(mail.error), size == 5);
        EXPECT_THAT(mail.error, testing::StartsWith(
                                    size == 5 ? ""
                                              : "xp_sendmail: status 0, but the attached file had "
                                                "5 bytes before the call and 3 after"));
    }
    EXPECT_EQ(NamedCall("xp_stopsmtp").status(), 0);
}

}  // namespace
