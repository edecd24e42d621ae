// What a caller writes into an address or a header never becomes a command or a header line of its
// own, a password stays secret and a status of 0 true: the host sees to it around the library.

#include <sstream>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "host/callframe.h"
#include "host/library.h"
#include "host/mailguards.h"
#include "tests/host/fakecall.h"
#include "tests/scratch.h"

using namespace host;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream in(text + "|");
    for (std::string word; std::getline(in, word, '|');) words.push_back(word);
    return words;
}

// Gives all of "host=h|port=25".
void give(FakeCall& call, const std::string& arguments) {
    for (const std::string& argument : split(arguments)) {
        const std::size_t name = argument.find('=');
        EXPECT_TRUE(call.set(argument.substr(0, name), argument.substr(name + 1))) << call.error;
    }
}

TEST(MailParameters, hold_what_can_be_pasted_where_it_goes) {
    const std::vector<std::string> breaks = {"\r", "\n", std::string(1, '\0')};
    const std::vector<std::string> bare = {"\r", "\n", std::string(1, '\0'), "<", ">", "\x1b"};
    struct Row {
        const char *procedure, *parameters;
        std::vector<std::string> right, wrong;
    };
    for (const Row& row : {
             Row{"xp_startsmtp", "sender", {"a@b.test"}, bare},
             {"xp_startsmtp", "host|auth_username|trusted_cert|cert_name", {""}, breaks},
             {"xp_startsmtp", "auth_password", {"\x01,<\""}, breaks},
             {"xp_startsmtp",
              "sender_name",
              {"Ann", "Grüße\tx", "\"Doe, Ann\"", R"("a\", b")"},
              {"\n", "Ann <eve@e.test>", "a>", "Doe, Ann", "\"a\", b", "Ann \"A", "a\x7f"}},
             {"xp_startsmtp", "port", {"1", "65535"}, {"0", "-1", "65536", "65561", "25x"}},
             {"xp_startsmtp", "allow_plaintext_auth", {"1", "FALSE", "on"}, {"2", "maybe", ""}},
             {"xp_sendmail", "recipient|cc_recipient|bcc_recipient", {"a@b.test"}, bare},
             {"xp_sendmail", "subject|content_type", {"a\tb \xe9 \"\\<>,"}, breaks},
             {"xp_sendmail", "subject", {}, {"\x1b[2J", "a\bb"}},
             {"xp_sendmail", "message", {"a\n\x1b"}, {std::string(1, '\0')}},
             {"xp_sendmail",
              "include_file",
              {"/a\"\\\x01/c", "a'b c\t", "\"/"},
              {"\n", "/a/b\"c", "a\"", "b\\", "/a/\x01"}},
         })
        for (const std::string& parameter : split(row.parameters)) {
            FakeCall call("fake_spell", *find_procedure(row.procedure));
            for (const std::string& text : row.right)
                EXPECT_TRUE(call.set(parameter, text)) << call.error;
            for (const std::string& text : row.wrong) {
                EXPECT_FALSE(call.set(parameter, text)) << parameter << " " << text;
                EXPECT_FALSE(call.lend(parameter, "x" + text + "x")) << parameter << " " << text;
                EXPECT_THAT(call.error, HasSubstr(parameter));
            }
        }
}

// What the procedure is given ("2=h 12=42 ", by number) of "host=h|…" and the host's warning; or
// why it is not called ("6 (message) takes …").
std::string outcome(const char* procedure, const std::string& given) {
    FakeCall call("fake_spell", *find_procedure(procedure));
    give(call, given);
    if (call.run().empty()) return *call.frame.result()->bytes + call.frame.warning();
    EXPECT_FALSE(call.frame.result()) << "nothing is called";
    return call.error.substr(strlen("fake_spell: parameter "));
}

// What is given, and how its outcome begins.
using Outcome = std::pair<std::string, std::string>;

const std::string login = "|auth_username=u|auth_password=p";
const std::string clear = "7 (auth_password) would cross the network in the clear";

TEST(MailParameters, a_doubtful_host_is_another_machine) {
    for (const std::string& host :
         split("localhost|LocalHost|127.0.0.1|127.255.0.9|::1|0:0:0:0:0:0:0:1|::ffff:127.0.0.1"))
        EXPECT_THAT(outcome("xp_startsmtp", "host=" + host + login), StartsWith("2=" + host));
    for (const std::string& host :
         split("|h|localhost.evil.test|localhost.|127.1|0x7f.1|2130706433|0177.0.0.1|127.0.0.1.|"
               "127.0.0.1 | 127.0.0.1|127.0.0.1:25|[::1]|::1%lo|126.0.0.1|::ffff:126.0.0.1|"
               "::127.0.0.1|::2|0.0.0.0|::"))
        EXPECT_THAT(outcome("xp_startsmtp", "host=" + host + login), StartsWith(clear)) << host;
}

TEST(MailParameters, a_start_protects_what_it_is_given) {
    const std::string unnamed = "11 (cert_name) is missing, and the host is no name";
    const std::string name(190, 'x');
    for (const auto& [given, begins] : {
             Outcome{"host=h", "2=h 12=42 "},
             {"host=h|auth_username=|auth_password=", clear},
             {"host=h|allow_plaintext_auth=off" + login, clear},
             {"host=h|allow_plaintext_auth=yes" + login, "2=h 6=u 7=p 12=42 "},
             {"host=a.test.|trusted_cert=c" + login, "2=a.test. 6=u 7=p 8=c 11=a.test 12=42 "},
             {"host=::1|auth_username=" + name + "|auth_password=" + name.substr(1), "2=::1 6=x"},
             {"host=::1|auth_username=" + name + "|auth_password=" + name,
              "7 (auth_password) and the user's name are too long"},
             {"host=h|auth_username=u", "6 (auth_username) does nothing without auth_password"},
             {"host=h|auth_password=p", "7 (auth_password) does nothing without auth_username"},
             {"host=h|cert_name=n", "11 (cert_name) does nothing without trusted_cert"},
             {"host=h|cert_name=", "2=h 11= 12=42 "},
             {"host=h|trusted_cert=c|cert_name=n", "2=h 8=c 11=n 12=42 "},
             {"host=h|trusted_cert=c|cert_name=", "2=h 8=c 12=42 cert_name is empty: any server"},
             {"host=192.0.2.1|trusted_cert=c", unnamed},
             {"host=3221225985|trusted_cert=c", unnamed},
             {"host=::1|trusted_cert=c", unnamed},
             {"host=|trusted_cert=c", unnamed},
         })
        EXPECT_THAT(outcome("xp_startsmtp", given), StartsWith(begins));
}

TEST(MailParameters, a_message_stays_one_message_with_whole_line_ends) {
    const std::string bare = "message=\na\rb\r\nc\r\r\nd\n\re\n";
    const std::string whole = "6=\r\na\r\nb\r\nc\r\n\r\nd\r\n\r\ne\r\n 20=42 ";
    const std::string kept = "6=\na\rb\r\nc\r\r\nd\n\re\n 20=42 ";
    const std::string forged = "6 (message) takes no line that begins with --==_EMAIL_MIME_ beside";
    for (const auto& [given, begins] : {
             Outcome{bare, whole},
             {bare + "|raw=true", kept},
             {bare + "|raw=0", whole},
             {"message=--==_EMAIL_MIME_2026", "6=--==_EMAIL_MIME_2026 20=42 "},
             {"message=--==_EMAIL_MIME_2026|include_file=f", forged},
             {"message=a\r--==_EMAIL_MIME_|include_file=f|raw=1", forged},
             {"message=a --==_EMAIL_MIME_\n\n--==_EMAIL_MIME_|include_file=f", forged},
             {"message=a --==_EMAIL_MIME_|include_file=f", "6=a --==_EMAIL_MIME_ 10=f 20=42 "},
             {"include_file=f", "6= 10=f 20=42 "},
             {"subject=s", "2=s 20=42 "},
         })
        EXPECT_THAT(outcome("xp_sendmail", given), StartsWith(begins));
    const std::string lines(40000, '\n');
    EXPECT_EQ(80000 + strlen("6= 20=42 "), outcome("xp_sendmail", "message=" + lines).size());

    send_raw_by_default(true);
    EXPECT_EQ(kept, outcome("xp_sendmail", bare));
    EXPECT_EQ(whole, outcome("xp_sendmail", bare + "|raw=0"));
    send_raw_by_default(false);
}

#ifndef __SANITIZE_ADDRESS__
TEST(MailParameters, a_message_that_does_not_fit_is_refused) {
    const auto send_without_memory = [] {
        const std::string message(64U << 20, '\n');
        FakeCall call("fake_spell", *find_procedure("xp_sendmail"));
        call.lend("message", message);
        const rlimit none = {1, 1};
        setrlimit(RLIMIT_AS, &none);
        fputs(call.run().c_str(), stderr);
        _exit(0);
    };
    EXPECT_EXIT(send_without_memory(), testing::ExitedWithCode(0),
                "\\(message\\) is too long: there is no memory");
}
#endif

// fake_brief gives 0 whatever became of the file; a call's first byte moves when it does.
TEST(FileCheck, bears_out_a_status_of_0) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("f", "hello");
    const std::string write = "name=" + file + "|contents=hello";
    const std::string held = "fake_brief: status 0, but ";
    struct Row {
        const char* procedure;
        std::string given;
        int size;  // of the file in the end; below 0: it is gone
        std::string doubt;
    };
    for (const Row& row : {
             Row{"xp_write_file", write, 5, ""},
             {"xp_write_file", write, 2, held + "the file holds 2 of 5 bytes"},
             {"xp_write_file", "name=/dev/null|contents=hello", 5, ""},
             {"xp_sendmail", "include_file=" + file, 5, ""},
             {"xp_sendmail", "include_file=" + file, 3,
              held + "the attached file had 5 bytes before the call and 3 after"},
             {"xp_sendmail", "include_file=" + file, -1,
              held + "the attached file had 3 bytes before the call and is gone after"},
             {"xp_write_file", write, -1, held + "the file is not there: No such file"},
         }) {
        FakeCall call("fake_brief", *find_procedure(row.procedure));
        give(call, row.given);
        call.frame.on_progress = [&](std::uint64_t) {
            if (row.size < 0)
                std::filesystem::remove(file);
            else
                std::filesystem::resize_file(file, static_cast<std::uintmax_t>(row.size));
        };
        EXPECT_EQ(row.doubt.empty(), call.frame.call(call.error));
        EXPECT_THAT(call.error, StartsWith(row.doubt));
        EXPECT_EQ(0, call.frame.result()->as_int());
    }
}

}  // namespace
