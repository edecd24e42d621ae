#include "host/procedures.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "host/text.h"

namespace host {

namespace {

using enum Direction;
using enum Absent;
using enum Content;
using enum FileUse;

// How many values the format procedures take or give.
constexpr std::uint32_t format_values = 50;

constexpr Parameter read_file_parameters[] = {
    {"name", In, EXTFN_TYPE_STRING, Refuse, "the file to read", Text, Reads},
};

constexpr Parameter write_file_parameters[] = {
    {"name", In, EXTFN_TYPE_STRING, Refuse, "the file to write", Text, Writes},
    {"contents", In, EXTFN_TYPE_BINARY, Refuse, "the bytes to write, one at least", Bytes},
};

// xp_sprintf asks for every value up to the first NULL one and fails where a number does not exist,
// so all of them are declared and a host passes NULL for those that are left out.
constexpr Parameter sprintf_parameters[] = {
    {"text", Out, EXTFN_TYPE_STRING, Null, "the formatted text, 254 bytes at most"},
    {"format", In, EXTFN_TYPE_STRING, Refuse, "a printf format with %s conversions"},
    {"value", In, EXTFN_TYPE_STRING, Null, "a value for the format; the first NULL ends them"},
};

constexpr Parameter scanf_parameters[] = {
    {"input", In, EXTFN_TYPE_STRING, Refuse, "the text to take apart"},
    {"format", In, EXTFN_TYPE_STRING, Refuse, "a scanf format with %s, %c and %[…] conversions"},
    {"value", Out, EXTFN_TYPE_STRING, Null, "what a conversion stored, 254 bytes at most"},
};

constexpr Parameter cmdshell_parameters[] = {
    {"command", In, EXTFN_TYPE_STRING, Refuse, "the command for /bin/sh, 8000 bytes at most"},
    {"output", In, EXTFN_TYPE_STRING, Null, "an output option, read and not used"},
};

constexpr Parameter startsmtp_parameters[] = {
    {"sender", In, EXTFN_TYPE_CHAR, Null, "the address that mail comes from", Address},
    {"host", In, EXTFN_TYPE_CHAR, Refuse, "the mail server's name or address", Line},
    {"port", In, EXTFN_TYPE_INT32, Null, "its port; 25 if left out", Port},
    {"timeout", In, EXTFN_TYPE_INT32, Null,
     "seconds for each wait, 60 if left out; 0 or less waits for ever; no effect with "
     "trusted_cert"},
    {"sender_name", In, EXTFN_TYPE_CHAR, Null, "the sender's name", Name},
    {"auth_username", In, EXTFN_TYPE_CHAR, Null, "the user to log in as; needs a password", Line},
    {"auth_password", In, EXTFN_TYPE_CHAR, Null,
     "the user's password; without trusted_cert only for this machine itself", Line},
    {"trusted_cert", In, EXTFN_TYPE_CHAR, Null, "a file of trusted certificates; asks for TLS",
     Line, Reads},
    {"cert_company", In, EXTFN_TYPE_CHAR, Null, "the company (O) in the server's certificate",
     Line},
    {"cert_unit", In, EXTFN_TYPE_CHAR, Null, "the unit (OU) in it", Line},
    {"cert_name", In, EXTFN_TYPE_CHAR, Null,
     "the name (CN, or host name) in it; the host's if left out, none checked if empty", Line},
    {"cid", In, EXTFN_TYPE_INT32, Connection, "the connection that the session belongs to"},
    {"allow_plaintext_auth", In, EXTFN_TYPE_INT32, Null,
     "1 lets the password cross the network in the clear", Switch},
};

constexpr Need startsmtp_needs[] = {
    {start_username, start_password},    {start_password, start_username},
    {start_company, start_trusted_cert}, {start_unit, start_trusted_cert},
    {start_name, start_trusted_cert},
};

constexpr Parameter sendmail_parameters[] = {
    {"recipient", In, EXTFN_TYPE_CHAR, Null, "addresses, separated by ;", Address},
    {"subject", In, EXTFN_TYPE_CHAR, Null, "the subject", Header},
    {"cc_recipient", In, EXTFN_TYPE_CHAR, Null, "addresses for copies", Address},
    {"bcc_recipient", In, EXTFN_TYPE_CHAR, Null, "addresses for blind copies", Address},
    {"query", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"message", In, EXTFN_TYPE_CHAR, Null, "the text; its line ends become CRLF"},
    {"unused7", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused8", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused9", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"include_file", In, EXTFN_TYPE_CHAR, Null, "a file to attach", Attachment, Reads},
    {"unused11", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused12", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused13", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused14", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused15", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused16", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"type", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"unused18", In, EXTFN_TYPE_CHAR, Null, "not used"},
    {"content_type", In, EXTFN_TYPE_CHAR, Null, "the text's type, or ASIS", Header},
    {"cid", In, EXTFN_TYPE_INT32, Connection, "the connection that the session belongs to"},
    {"raw", In, EXTFN_TYPE_INT32, Null, "1 leaves the line ends of the message as they are",
     Switch},
};

// Whether the numbers that the guards go by are those of the parameters with these names.
constexpr bool
are_numbers(std::span<const Parameter> rows,
            std::initializer_list<std::pair<std::uint32_t, std::string_view>> numbers) {
    return std::all_of(numbers.begin(), numbers.end(), [rows](const auto& number) {
        return rows[number.first - 1].name == number.second;
    });
}
static_assert(are_numbers(startsmtp_parameters, {{start_host, "host"},
                                                 {start_username, "auth_username"},
                                                 {start_password, "auth_password"},
                                                 {start_trusted_cert, "trusted_cert"},
                                                 {start_company, "cert_company"},
                                                 {start_unit, "cert_unit"},
                                                 {start_name, "cert_name"},
                                                 {start_plaintext, "allow_plaintext_auth"}}));
static_assert(are_numbers(sendmail_parameters, {{mail_message, "message"},
                                                {mail_file, "include_file"},
                                                {mail_raw, "raw"}}));

constexpr Parameter stopsmtp_parameters[] = {
    {"cid", In, EXTFN_TYPE_INT32, Connection, "the connection that the session belongs to"},
};

constexpr StatusMeaning write_file_statuses[] = {
    {0, "every byte was handed over; a regular file now has that size"},
    {1, "not written: the file cannot be opened, the contents are empty, or a value is NULL"},
};

constexpr StatusMeaning cmdshell_statuses[] = {
    {0, "the command succeeded"},
    {1, "the command ended with exit status 1, or it is NULL or longer than 8000 bytes"},
    {2, "the command ended with exit status 2, was killed, or could not be started"},
    {126, "the command ended with exit status 126: found, but it cannot be executed"},
    {127, "the command ended with exit status 127: not found"},
};

constexpr StatusMeaning startsmtp_statuses[] = {
    {0, "the session is open"},
    {2, "no host was given"},
    {15, "out of memory, or the TLS provider's file is missing or was refused"},
    {100, "the mail server cannot be reached"},
    {101, "the mail server did not answer in time"},
    {102, "the mail server's name does not resolve"},
    {104, "the mail server refused, or gave an answer that is none"},
    {105,
     "not secured: no STARTTLS, a certificate that is not trusted, or a login refused over TLS"},
};

constexpr StatusMeaning sendmail_statuses[] = {
    {0, "the mail server took the message"},
    {5, "no session was started on this connection, or there is no recipient"},
    {12, "the file to attach cannot be read"},
    {15, "out of memory"},
    {20, "the mail server refused a recipient"},
    {25, "the session is not open: its start failed"},
    {101, "the mail server did not answer in time"},
    {104, "the mail server refused, or gave an answer that is none"},
};

constexpr StatusMeaning stopsmtp_statuses[] = {
    {0, "the session is closed"},
    {3, "no session was started on this connection"},
};

constexpr std::string_view older_mail =
    "the older mail interface is not there on this system; use xp_startsmtp";

constexpr Procedure table[] = {
    {.name = "xp_read_file",
     .summary = "reads a whole file of this machine; NULL when it cannot be read",
     .reach = Reach::FilesToRead,
     .result = Result::Bytes,
     .parameters = read_file_parameters,
     .otherwise = "it cannot be opened or read, or its name is NULL"},
    {.name = "xp_write_file",
     .summary = "writes a value into a file of this machine, which then holds nothing else",
     .reach = Reach::FilesToWrite,
     .result = Result::Status,
     .parameters = write_file_parameters,
     .file = {.size = FileRule::Size::AsGiven, .name = 1, .contents = 2},
     .statuses = write_file_statuses,
     .otherwise = "an unknown status"},
    {.name = "xp_sprintf",
     .summary = "formats text values as printf does",
     .parameters = sprintf_parameters,
     .repeats = format_values,
     .otherwise = "the format is NULL or asks for something other than the text values"},
    {.name = "xp_scanf",
     .summary = "takes a text apart as scanf does; a value that was not filled is NULL",
     .parameters = scanf_parameters,
     .repeats = format_values,
     .otherwise = "the input does not match the format, or one of them is NULL"},
    {.name = "xp_cmdshell",
     .summary = "runs a command with /bin/sh, waits for it and gives its exit status",
     .reach = Reach::Commands,
     .result = Result::Status,
     .parameters = cmdshell_parameters,
     .cancellable = true,
     .statuses = cmdshell_statuses,
     .otherwise = "the command ended with this exit status"},
    {.name = "xp_startsmtp",
     .summary = "opens a session with a mail server, for this connection",
     .reach = Reach::Mail,
     .result = Result::Status,
     .parameters = startsmtp_parameters,
     .needs = startsmtp_needs,
     .guard = guard_start,
     .statuses = startsmtp_statuses,
     .otherwise = "an unknown status"},
    {.name = "xp_sendmail",
     .summary = "sends a message over the session of this connection",
     .reach = Reach::Mail,
     .result = Result::Status,
     .parameters = sendmail_parameters,
     .guard = guard_message,
     .file = {.size = FileRule::Size::AsBefore, .name = mail_file},
     .statuses = sendmail_statuses,
     .otherwise = "an unknown status"},
    {.name = "xp_stopsmtp",
     .summary = "closes the mail session of this connection",
     .reach = Reach::Mail,
     .result = Result::Status,
     .parameters = stopsmtp_parameters,
     .statuses = stopsmtp_statuses,
     .otherwise = "an unknown status"},
    {.name = "xp_startmail",
     .summary = "does nothing; opens a session of an older mail interface elsewhere",
     .reach = Reach::Mail,
     .otherwise = older_mail},
    {.name = "xp_stopmail",
     .summary = "does nothing; closes a session of an older mail interface elsewhere",
     .reach = Reach::Mail,
     .otherwise = older_mail},
};

}  // namespace

std::span<const Procedure> procedures() {
    return table;
}

const Procedure* find_procedure(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(table), std::end(table),
                     [name](const Procedure& p) { return same_name(p.name, name); });
    return found == std::end(table) ? nullptr : found;
}

}  // namespace host
