// What a mail must not be, and what becomes of each way to write an address; that whole messages
// arrive as meant is compose_test.py's business.

#include "host/compose/composer.h"

#include <cstring>

#include <gmock/gmock.h>
#include <sys/random.h>
#include <sys/resource.h>

#include "host/content.h"

using namespace host;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// What getrandom() gives: as many bytes of 0 as it was asked so often, and then the counts.
struct Random {
    int zeros = 0;
    bool fails = false;
    int calls = 0;
} random_source;

extern "C" ssize_t __wrap_getrandom(void* to, size_t size, unsigned) {
    if (random_source.fails) return -1;
    ++random_source.calls;
    memset(to, random_source.calls <= random_source.zeros ? 0 : random_source.calls, size);
    return static_cast<ssize_t>(size);
}

// How a list arrives: its addresses with a blank between, or why it does not.
std::string listed(std::string_view list) {
    std::vector<std::string> addresses;
    std::string error;
    if (!list_addresses(list, addresses, error)) return error;
    std::string joined;
    for (const std::string& address : addresses) joined += (joined.empty() ? "" : " ") + address;
    return joined;
}

TEST(Addresses, are_read_as_people_write_them) {
    for (const auto& [list, expected] : std::initializer_list<std::pair<const char*, const char*>>{
             {"", ""},
             {" , ;; ", ""},
             {"a@b.test", "a@b.test"},
             {"a@b.test;c@d.test,e@f.test,", "a@b.test c@d.test e@f.test"},
             {"Ann Lee<a@b.test>, \"Lee; Bob, \\\"B\\\"\" <c@d.test>", "a@b.test c@d.test"},
             {"J. R. \"Bob\" Dobbs <a@b.test>", "a@b.test"},
             {"(x (y\\)) z) a (q) @ (r) b.test (s)", "a@b.test"},
             {"Team: a@b.test, C <c@d.test>; e@f.test", "a@b.test c@d.test e@f.test"},
             {"undisclosed-recipients:;", ""},
             {"<a@b.test>", "a@b.test"},
             {"\"a\"@b.test, \"a b\"@b.test, \"a\\\\\\\"\"@b.test",  // quotes only where needed
              "a@b.test \"a b\"@b.test \"a\\\\\\\"\"@b.test"},
             {"a@[127.0.0.1], a@[IPv6:::1]", "a@[127.0.0.1] a@[IPv6:::1]"},
             {"a@B\xC3\x9C"
              "CHER.example, a@stra\xC3\x9F"
              "e.example",
              "a@xn--bcher-kva.example a@xn--strae-oqa.example"},
             {"a@localhost", "a@localhost"},
         })
        EXPECT_EQ(expected, listed(list)) << list;
}

TEST(Addresses, that_are_none_are_named_with_the_reason) {
    const std::string long_local(65, 'l');
    for (const auto& [list, address, reason] :
         std::initializer_list<std::tuple<std::string, const char*, const char*>>{
             {"x@y.test, Ann, z@y.test", "Ann ", "has no @"},
             {"Ann ann@a.test", "Ann ann@a.test ", "has blanks in front of the @"},
             {"a@b.test c@d.test", "a@b.test c@d.test", "put a comma between"},
             {"Ann <ann@a.test", "Ann <ann@a.test ", "has no >"},
             {"@b.test", "@b.test", "nothing in front of the @"},
             {"a@", "a@", "nothing behind the @"},
             {"a@b@c.test", "a@b@c.test", "goes on behind"},
             {".a@b.test", ".a@b.test", "a dot at the wrong place"},
             {"a..b@b.test", "a..b@b.test", "a dot at the wrong place"},
             {"J\xC3\xB6rg@b.test", "J\xC3\xB6rg@b.test", "SMTPUTF8"},
             {"\"a;b\"@c.test", "\"a;b\"@c.test", "the library cannot send to"},
             {"\"<\"@c.test", "\"<\"@c.test", "the library cannot send to"},
             {long_local + "@b.test", "lll", "more than 64"},
             {"a@" + std::string(64, 'd'), "a@ddd", "has a domain that is none"},
             {"a@b..test", "a@b..test", "has a domain that is none"},
             {"a@-b.test", "a@-b.test", "has a domain that is none"},
             {"a@b_c.test", "a@b_c.test", "has a domain that is none"},
             {"a@b.test.", "a@b.test.", "has a domain that is none"},
             {"a@\xEF\xBC\xA0.test", "a@", "has a domain that is none"},  // a fullwidth @
             {"a@\xE2\x80\xAE.test", "a@", "has a domain that is none"},  // turns the line round
             {"a@[1.2.3]", "a@[1.2.3]", "no address of a machine"},
             {"a@[::1]", "a@[::1]", "no address of a machine"},
             {"a@[::1", "a@[::1", "a [ without its ]"},
             {"\"a@b.test", "\"a@b.test", "a double quote without its end"},
             {"a@b.test (c", "a@b.test (c", "a comment that no ) ends"},
             {"Team: a@b.test", "Team: a@b.test", "no ; ends"},
             {"A: B: c@d.test;;", "B:", "a group within a group"},
             {": a@b.test", ":", "where an address should begin"},
             {"[x] <a@b.test>", "[x]", "has a [ outside double quotes"},
             {"<@r.test:a@b.test>", "<@r.test:a@b.test>", "nothing in front of the @"},
         })
        EXPECT_THAT(listed(list),
                    AllOf(StartsWith("the address " + std::string(address)), HasSubstr(reason)));
    EXPECT_EQ("takes no line breaks", listed("a@b.test\r\nBcc: c@d.test"));
    EXPECT_THAT(listed("a@b.test, \xC3"), HasSubstr("is not UTF-8"));
}

const Mail plain_mail = {.from = "a@b.test", .to = "c@d.test"};

// The message, or why there is none.
std::string composed(const Mail& mail) {
    ComposedMail message;
    std::string error;
    if (compose(mail, message, error) != Composing::Done) return error;
    EXPECT_EQ("", complaint(Content::Address, message.sender));
    EXPECT_EQ("", complaint(Content::Name, message.sender_name));
    for (const std::string& recipient : message.recipients)
        EXPECT_EQ("", complaint(Content::Address, recipient));
    return std::string(message.message());
}

std::string composed_with(std::string_view Mail::*field, std::string_view value) {
    Mail mail = plain_mail;
    mail.*field = value;
    return composed(mail);
}

std::string composed_with_headers(std::string_view lines) {
    std::vector<MailHeader> headers;
    std::string error;
    if (!split_header_lines(lines, headers, error)) return error;
    Mail mail = plain_mail;
    mail.headers = headers;
    return composed(mail);
}

TEST(Mails, that_cannot_be_sent_are_refused_by_field) {
    const std::string huge(1U << 20, 'x');
    for (const auto& [field, value, reason] :
         std::initializer_list<std::tuple<std::string_view Mail::*, std::string_view, const char*>>{
             {&Mail::from, "", "from: has no address"},
             {&Mail::from, "a@b.test, c@d.test", "from: has more than one address"},
             {&Mail::to, "", "to: there is no recipient"},
             {&Mail::to, "Ann", "to: the address Ann has no @"},
             {&Mail::cc, "\n", "cc: takes no line breaks"},
             {&Mail::bcc, "a", "bcc: the address a "},
             {&Mail::reply_to, "a", "reply_to: the address a "},
             {&Mail::subject, "a\r\nBcc: x@y.test", "subject: takes no line breaks"},
             {&Mail::subject, {"a\0b", 3}, "subject: takes no control characters"},
             {&Mail::subject, "\x7f", "subject: takes no control characters"},
             {&Mail::subject, "a\xff", "subject: the byte at 1 is not UTF-8"},
             {&Mail::subject, huge, "header: takes more than 1 MiB"},
             {&Mail::sender_name, "a\nb", "sender_name: takes no line breaks"},
             {&Mail::sender_name, std::string_view(huge).substr(0, 900),
              "sender_name: is too long"},
             {&Mail::text, "a\xC0\x80", "text: is not UTF-8"},
             {&Mail::html, "\xED\xA0\x80", "html: is not UTF-8"},
             {&Mail::message_id, "a b@c", "message_id: has an identifier that is none"},
             {&Mail::message_id, "<a>", "message_id: is not of two halves"},
             {&Mail::message_id, "a@b>\r\nX: <y", "message_id: has an identifier that is none"},
             {&Mail::in_reply_to, "<a@b> <", "in_reply_to: has an identifier that is none"},
             {&Mail::references, "<a@b><c@d>", "references: has an identifier that is none"},
             {&Mail::list_unsubscribe, "leave", "list_unsubscribe: is no list of URIs"},
             {&Mail::list_unsubscribe, "<a:b> <c:d>", "list_unsubscribe: is no list of URIs"},
             {&Mail::list_unsubscribe, "<a:b>,", "list_unsubscribe: is no list of URIs"},
             {&Mail::list_unsubscribe, "a:b\nc", "list_unsubscribe: is no list of URIs"},
         })
        EXPECT_THAT(composed_with(field, value), StartsWith(reason));
    for (const std::string name :
         {"From", "to", "BCC", "MIME-Version", "Content-Type", "content-x", "X-Mailer", "Received",
          "Message-ID", "Subject", "Resent-To", "", "A B", "\xC3\xBC", "A\r\nB"})
        EXPECT_THAT(composed_with_headers(name + ": x\n"), StartsWith("header")) << name;
    EXPECT_THAT(composed_with_headers("X: a\rBcc: b@c.test"), HasSubstr("takes no line breaks"));
    EXPECT_THAT(composed_with_headers("X: y\nnothing"), HasSubstr("a line has no colon"));
    EXPECT_THAT(composed_with_headers("Sender: x"), HasSubstr("the address x has no @"));
    for (const MailAttachment& wrong : {
             MailAttachment{.name = "a\nb"},
             {.type = "png"},
             {.type = "text/csv; charset"},
             {.type = "a/b\r\nX: y"},
             {.type = "multipart/mixed"},
             {.content_id = "a>\r\nX: <b"},
         }) {
        Mail mail = plain_mail;
        mail.attachments = {&wrong, 1};
        EXPECT_THAT(composed(mail), StartsWith("attachment 1: "));
    }
}

TEST(Mails, have_the_headers_that_their_fields_ask_for) {
    EXPECT_THAT(composed_with_headers("\r\n X-A : b: c \r\nSender: \"L, \xC3\xBC\" <a@b.test>"),
                AllOf(HasSubstr("\r\nX-A: b: c\r\n"),
                      HasSubstr("\r\nSender: =?utf-8?B?TCwgw7w=?= <a@b.test>\r\n"),
                      HasSubstr("\r\nAuto-Submitted: auto-generated\r\n")));
    EXPECT_THAT(composed_with_headers("auto-submitted: no"), Not(HasSubstr("auto-generated")));
    EXPECT_THAT(composed_with(&Mail::auto_submitted, ""), Not(HasSubstr("Auto-Submitted")));
    EXPECT_THAT(composed_with(&Mail::in_reply_to, "a@b"), HasSubstr("\r\nReferences: <a@b>\r\n"));
    EXPECT_THAT(composed_with(&Mail::list_unsubscribe, " <a:b> ,<c:d>"),
                HasSubstr("\r\nList-Unsubscribe: <a:b>, <c:d>\r\n"));
    Mail mail = {.from = "a@b.test", .bcc = "X@d.test, X@D.TEST, x@d.test"};
    ComposedMail message;
    std::string error;
    ASSERT_EQ(Composing::Done, compose(mail, message, error));
    EXPECT_THAT(message.recipients, testing::ElementsAre("X@d.test", "x@d.test"));
    EXPECT_THAT(message.message(), HasSubstr("\r\nTo: undisclosed-recipients:;\r\n"));
    EXPECT_THAT(message.message(), HasSubstr("\r\nMessage-ID: " + message.message_id + "\r\n"));
    for (const auto& [time, date] : std::initializer_list<std::pair<std::int64_t, const char*>>{
             {0, "Date: Thu, 1 Jan 1970 00:00:00 +0000\r\n"},
             {951782399, "Date: Mon, 28 Feb 2000 23:59:59 +0000\r\n"},
             {253402300799, "Date: Fri, 31 Dec 9999 23:59:59 +0000\r\n"},
             {253402300800, "date: is not between the years"},
             {-2208988801, "date: is not between the years"},
         }) {
        mail.date = static_cast<std::time_t>(time);
        EXPECT_THAT(composed(mail), StartsWith(date));
    }
}

TEST(Mails, that_are_sent_again_are_the_same) {
    Mail mail = plain_mail;
    mail.message_id = "x@b.test";
    mail.date = 1;
    EXPECT_EQ(composed(mail), composed(mail));
    EXPECT_THAT(composed(mail), HasSubstr("\r\nMessage-ID: <x@b.test>\r\n"));
}

// A message that a server would not take as it is becomes a file like others.
TEST(Mails, carry_mails) {
    for (const auto& [content, type] :
         {std::pair{"A: b\n\nc\n", "\r\nContent-Type: message/rfc822;"},
          {"A: \xFF\n\nc\n", "\r\nContent-Type: application/octet-stream;"}}) {
        Mail mail = plain_mail;
        const MailAttachment attached = {.name = "m.eml", .content = content};
        mail.attachments = {&attached, 1};
        EXPECT_THAT(composed(mail), HasSubstr(type));
    }
}

TEST(Mails, carry_invitations_beside_their_text) {
    Mail mail = plain_mail;
    mail.text = "Come.";
    const MailAttachment invitation = {.type = "text/calendar; method=REQUEST",
                                       .content = "B:\nE:\n"};
    mail.attachments = {&invitation, 1};
    EXPECT_THAT(composed(mail),
                AllOf(HasSubstr("\r\nContent-Type: multipart/alternative;"),
                      HasSubstr("\r\nContent-Type: text/calendar; method=REQUEST; charset=utf-8\r\n"
                                "Content-Transfer-Encoding: 7bit\r\n\r\nB:\r\nE:\r\n\r\n--")));
}

TEST(Boundaries, are_in_no_text) {
    const std::string zeros = "=_" + std::string(26, 'a');
    const std::string text = "--" + zeros + "1_--\n";
    const Mail mail = {
        .from = "a@b.test", .to = "c@d.test", .text = text, .html = "h", .message_id = "m@b.test"};
    random_source = {.zeros = 3};
    EXPECT_THAT(composed(mail), HasSubstr("boundary=\"=_" + std::string(26, 'e')));
    random_source = {.zeros = 1000};
    EXPECT_EQ("the system's random bytes are none", composed(mail));
    random_source = {.fails = true};
    EXPECT_EQ("the system has no random bytes", composed(mail));
    EXPECT_EQ("the system has no random bytes", composed(plain_mail));
    random_source = {};
}

#ifndef __SANITIZE_ADDRESS__
TEST(Memory, that_runs_out_is_a_failure_that_passes) {
    const auto compose_without_memory = [] {
        const std::string content(64U << 20, 'x');
        const MailAttachment file = {.content = content};
        Mail mail = plain_mail;
        mail.attachments = {&file, 1};
        const rlimit none = {1, 1};
        setrlimit(RLIMIT_AS, &none);
        ComposedMail message;
        std::string error;
        const Composing end = compose(mail, message, error);
        fputs(error.c_str(), stderr);
        _exit(end == Composing::Failed ? 0 : 1);
    };
    EXPECT_EXIT(compose_without_memory(), testing::ExitedWithCode(0), "no memory for the message");
}
#endif

}  // namespace
