#include "extdll/mailargs.h"

#include <algorithm>
#include <cstring>

#include "utils/utmem/uttextarray.h"

namespace {

int32 status_of(TextArgument::Outcome outcome, int32 if_missing) {
    switch (outcome) {
    case TextArgument::Outcome::Read:
    case TextArgument::Outcome::Null:
        return MAIL_OK;
    case TextArgument::Outcome::Missing:
        return if_missing;
    case TextArgument::Outcome::NoMemory:
        return MAIL_NO_MEMORY;
    case TextArgument::Outcome::Broken:
        break;
    }
    return MAIL_BAD_START_ARGUMENTS;
}

}  // namespace

char** make_argv(const char* name, int* count) {
    UTTextArray fields;
    bool whole = true;
    for (const char* field = name; whole && field != nullptr && *field != '\0';) {
        const size_t length = std::strcspn(field, ";");
        whole = length == 0 || fields.add(field, length);
        field += length;
        if (*field == ';') ++field;
    }
    *count = static_cast<int>(fields.count());
    if (!whole) return nullptr;
    char** const list = fields.release();
    // A list of no fields is one all the same; null says that there was no memory.
    return list != nullptr ? list : static_cast<char**>(ut_calloc(sizeof(char*)));
}

void do_free(char** list) {
    ut_free_texts(list);
}

a_bool IntegerArgument::read(const ExternalCall& call, uint32 number) {
    an_extfn_value value;
    if (!call.get_value(number, &value)) return false;
    if (value.data == nullptr) return true;
    // Whatever its type says: of a longer value the first four bytes count, of a shorter one all.
    int32 bytes = 0;
    std::memcpy(&bytes, value.data, std::min<std::size_t>(value.piece_len, sizeof bytes));
    _value = bytes;
    return true;
}

StartArguments::StartArguments() {
    _texts[START_AUTH_USERNAME].keep_secret();
    _texts[START_AUTH_PASSWORD].keep_secret();
}

int32 StartArguments::read(const ExternalCall& call) {
    int32 result = read_texts(call, {START_SENDER, START_HOST}, MAIL_BAD_START_ARGUMENTS);
    if (result != MAIL_OK) return result;
    if (!_port.read(call, START_PORT) || !_timeout.read(call, START_TIMEOUT))
        return MAIL_BAD_START_ARGUMENTS;
    result = read_texts(call, {START_SENDER_NAME, START_AUTH_USERNAME, START_AUTH_PASSWORD},
                        MAIL_BAD_START_ARGUMENTS);
    if (result != MAIL_OK) return result;
    return text(START_HOST) != nullptr ? read_connection(call) : MAIL_BAD_START_ARGUMENTS;
}

int32 StartArguments::read_texts(const ExternalCall& call,
                                 std::initializer_list<a_mail_argument> numbers, int32 if_missing) {
    int32 result = MAIL_OK;
    for (const a_mail_argument number : numbers) {
        if (result == MAIL_OK) result = status_of(_texts[number].read(call, number), if_missing);
    }
    return result;
}

// A certificate argument may be missing, but not come only in part: what asked for TLS must not be
// lost.
int32 StartArguments::read_connection(const ExternalCall& call) {
    if (_connection.read(call, START_CONNECTION) && _connection.has_value()) {
        return read_texts(
            call, {START_TRUSTED_CERT, START_CERT_COMPANY, START_CERT_UNIT, START_CERT_NAME},
            MAIL_OK);
    }
    // Kept: with a NULL twelfth argument the eighth is the number, even if it was meant as a
    // certificate, and the session is not secured.
    _connection.read(call, START_CONNECTION_OF_EIGHT);
    return MAIL_OK;
}

a_smtp_start StartArguments::start() const {
    constexpr int32 default_port = 25;
    constexpr int32 default_timeout = 60;
    return {
        .sender = text(START_SENDER) != nullptr ? text(START_SENDER) : "",
        .sender_name = text(START_SENDER_NAME),
        .host = text(START_HOST),
        .port = _port.value_or(default_port),
        .timeout = _timeout.value_or(default_timeout),
        .auth_username = text(START_AUTH_USERNAME),
        .auth_password = text(START_AUTH_PASSWORD),
        .trusted_certificate = text(START_TRUSTED_CERT),
        .cert_company = text(START_CERT_COMPANY),
        .cert_unit = text(START_CERT_UNIT),
        .cert_name = text(START_CERT_NAME),
    };
}

// All nineteen must be there, also those without effect.
int32 MailArguments::read(const ExternalCall& call) {
    for (uint32 number = SEND_RECIPIENT; number <= SEND_CONTENT_TYPE; ++number) {
        const int32 result = read_text(call, number);
        if (result != MAIL_OK) return result;
    }
    _connection.read(call, SEND_CONNECTION);
    return MAIL_OK;
}

// Values of other types than the two of characters count as NULL.
int32 MailArguments::read_text(const ExternalCall& call, uint32 number) {
    ArgumentPieces pieces(call, number);
    if (!pieces.first()) return MAIL_NOTHING_TO_SEND;
    const a_sql_data_type type = pieces.type();
    if (pieces.is_null() || (type != EXTFN_TYPE_CHAR && type != EXTFN_TYPE_LONGCHAR))
        return MAIL_OK;
    // Kept: a piece that does not come is told as want of memory.
    return _texts[number].join(pieces) == TextArgument::Outcome::Read ? MAIL_OK : MAIL_NO_MEMORY;
}

a_mail MailArguments::mail() const {
    return {
        .recipient = text(SEND_RECIPIENT),
        .subject = text(SEND_SUBJECT),
        .cc_recipient = text(SEND_CC_RECIPIENT),
        .bcc_recipient = text(SEND_BCC_RECIPIENT),
        .query = text(SEND_QUERY),
        .message = text(SEND_MESSAGE),
        .include_file = text(SEND_INCLUDE_FILE),
        .content_type = text(SEND_CONTENT_TYPE),
        .type = text(SEND_TYPE),
    };
}
