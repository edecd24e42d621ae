// What a caller writes into an address or a header never becomes a command or a header line of its
// own: the host refuses it before the library sees it.

#include <gmock/gmock.h>

#include <set>

#include "host/callframe.h"
#include "tests/netlib/smtppeer.h"

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
        : _procedure(*find_procedure(procedure)), _frame(product(), _procedure, 1) {}

    bool set(const char* name, std::string bytes) {
        return _frame.set_argument(_procedure.parameter_number(name),
                                   Value::text(std::move(bytes), EXTFN_TYPE_STRING), error);
    }
    // As an SQL function does.
    bool lend(const char* name, const std::string& bytes) {
        return _frame.lend_argument(_procedure.parameter_number(name), bytes, error);
    }
    std::string error;  // of the last that failed

    std::int32_t status() {
        EXPECT_TRUE(_frame.call(error)) << error;
        return _frame.result() ? _frame.result()->as_int().value_or(-1) : -1;
    }

  private:
    const Procedure& _procedure;
    CallFrame _frame;
};

// 200 strings and more: something harmful before, inside and behind something harmless.
std::set<std::string> harmful(bool address) {
    const std::string zero(1, '\0');
    std::vector<std::string> bad = {"\r\nBcc: eve@e.test",
                                    "\nBcc: eve@e.test",
                                    "\r",
                                    "\n",
                                    zero,
                                    "\r\n.\r\nMAIL FROM:<eve@e.test>",
                                    "\r\n\r\n",
                                    zero + "\n",
                                    "\r\nRSET",
                                    "\n."};
    if (address) bad.insert(bad.end(), {"<", ">", "> RCPT TO:<eve@e.test", "><", "<eve@e.test>"});
    std::set<std::string> all;
    for (const std::string harmless :
         {"", "bob@b.test", "a;b", "x y", "\"q\"", "=?UTF-8?q?", "%0d"}) {
        for (const std::string& piece : bad) {
            all.insert({piece + harmless, harmless + piece, "x" + piece + harmless});
        }
    }
    EXPECT_GE(all.size(), 200U);
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

}  // namespace
