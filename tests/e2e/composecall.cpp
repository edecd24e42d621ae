// Composes mails that it reads from standard input, sends them through the library if told where,
// and writes what became of each: the sender's side of compose_test.py.
//
//     composecall [LIBRARY HOST PORT]
//
// Both ways go lines "NAME LENGTH", each followed by so many bytes and a line end. A line "end 0"
// ends a mail, and what is told of it.

#include <cstdio>
#include <iostream>
#include <map>
#include <vector>

#include "host/callframe.h"
#include "host/compose/composer.h"
#include "host/library.h"

using namespace host;

// Kept by design: a session that was started leaves its record behind.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:SendmailManager::FindOrAddState\n";
}

namespace {

struct Field {
    std::string name, value;
};

bool read(Field& field) {
    std::size_t length = 0;
    if (!(std::cin >> field.name >> length)) return false;
    std::cin.get();
    field.value.resize(length);
    std::cin.read(field.value.data(), static_cast<std::streamsize>(length));
    std::cin.get();
    return true;
}

void tell(std::string_view name, std::string_view value) {
    std::cout << name << ' ' << value.size() << '\n' << value << '\n';
}

struct Given {
    std::vector<Field> fields;
    std::vector<MailAttachment> attachments;
    std::vector<MailHeader> headers;
    Mail mail;
};

bool arrange(Given& given, std::string& error) {
    Mail& mail = given.mail;
    MailAttachment attachment;
    const std::map<std::string_view, std::string_view*> texts = {
        {"from", &mail.from},
        {"sender_name", &mail.sender_name},
        {"to", &mail.to},
        {"cc", &mail.cc},
        {"bcc", &mail.bcc},
        {"reply_to", &mail.reply_to},
        {"subject", &mail.subject},
        {"text", &mail.text},
        {"html", &mail.html},
        {"message_id", &mail.message_id},
        {"in_reply_to", &mail.in_reply_to},
        {"references", &mail.references},
        {"list_unsubscribe", &mail.list_unsubscribe},
        {"auto_submitted", &mail.auto_submitted},
        {"attachment.name", &attachment.name},
        {"attachment.type", &attachment.type},
        {"attachment.content_id", &attachment.content_id},
    };
    for (const Field& field : given.fields) {
        if (const auto text = texts.find(field.name); text != texts.end()) {
            *text->second = field.value;
        } else if (field.name == "attachment.content") {
            attachment.content = field.value;
            given.attachments.push_back(attachment);
            attachment = {};
        } else if (field.name == "date") {
            mail.date = static_cast<std::time_t>(std::stoll(field.value));
        } else if (!split_header_lines(field.value, given.headers, error)) {
            return false;
        }
    }
    mail.attachments = given.attachments;
    mail.headers = given.headers;
    return true;
}

// The status, or why there is none.
std::string call(const Library& library, const char* procedure,
                 const std::map<std::uint32_t, std::string_view>& arguments) {
    CallFrame frame(library, *find_procedure(procedure), 1);
    std::string error;
    for (const auto& [number, value] : arguments)
        if (!frame.lend_argument(number, value, error)) return error;
    if (!frame.call(error)) return error;
    return std::to_string(frame.result()->as_int().value_or(-1)) + frame.warning();
}

std::string send(const Library& library, const char* host, const char* port,
                 const ComposedMail& mail) {
    std::map<std::uint32_t, std::string_view> session = {
        {1, mail.sender}, {2, host}, {3, port}, {4, "60"}};
    if (!mail.sender_name.empty()) session[5] = mail.sender_name;
    std::string recipients;
    for (const std::string& recipient : mail.recipients) recipients += recipient + ';';
    std::string status = call(library, "xp_startsmtp", session);
    if (status == "0")
        status = call(library, "xp_sendmail", {{4, recipients}, {6, mail.message()}, {19, "asis"}});
    call(library, "xp_stopsmtp", {});
    return status;
}

void tell(const ComposedMail& mail) {
    tell("sender", mail.sender);
    tell("sender_name", mail.sender_name);
    for (const std::string& recipient : mail.recipients) tell("recipient", recipient);
    tell("message_id", mail.message_id);
    tell("message", mail.message());
}

}  // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    std::string error;
    // Stays loaded, so that what looks for leaks finds the names in it.
    static Library& library = *new Library;
    if (argc == 4) library = Library::load(argv[1], error);
    if (!error.empty()) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    while (std::cin.peek() != EOF) {
        Given given;
        for (Field field; read(field) && field.name != "end";) given.fields.push_back(field);
        ComposedMail composed;
        const Composing end =
            arrange(given, error) ? compose(given.mail, composed, error) : Composing::Rejected;
        if (end == Composing::Done) {
            tell(composed);
            if (argc == 4) tell("status", send(library, argv[2], argv[3], composed));
        } else {
            tell(end == Composing::Rejected ? "refused" : "failed", error);
        }
        tell("end", "");
        std::cout.flush();
    }
    return 0;
}
