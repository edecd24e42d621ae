#ifndef QUOREL_EXTDLL_MAILARGS_H
#define QUOREL_EXTDLL_MAILARGS_H

/// The arguments of the mail procedures, read from the call frame and taken apart. Everything here
/// lives on one call's stack.

#include <initializer_list>
#include <optional>

#include "extdll/extcall.h"
#include "extdll/sendmail.h"

/// The arguments by number; those of xp_sendmail that are not named have no effect.
enum a_mail_argument : uint32 {
    START_SENDER = 1,
    START_HOST,
    START_PORT,
    START_TIMEOUT,
    START_SENDER_NAME,
    START_AUTH_USERNAME,
    START_AUTH_PASSWORD,
    START_TRUSTED_CERT,
    START_CERT_COMPANY,
    START_CERT_UNIT,
    START_CERT_NAME,
    START_CONNECTION,
    START_CONNECTION_OF_EIGHT = START_TRUSTED_CERT,  // of a host that passes no certificate

    SEND_RECIPIENT = 1,
    SEND_SUBJECT,
    SEND_CC_RECIPIENT,
    SEND_BCC_RECIPIENT,
    SEND_QUERY,
    SEND_MESSAGE,
    SEND_INCLUDE_FILE = 10,
    SEND_TYPE = 17,
    SEND_CONTENT_TYPE = 19,  // the last of those that must exist
    SEND_CONNECTION,

    STOP_CONNECTION = 1,
};

/// Splits `name` at ";" into a null-terminated array of new strings; do_free() frees it. Empty
/// fields are skipped and blanks are kept; there is no quoting. Null has no fields. *count becomes
/// their number. Null when there is no memory for all of it, with nothing left behind.
/// Kept: *count then counts the strings that were stored before memory ran out.
char** make_argv(const char* name, int* count);

/// Frees an array of make_argv(); null is ignored.
void do_free(char** list);

/// The addresses of one recipient list; see make_argv(). A list that is not whole must not be sent
/// to: some would not hear of it.
class AddressList {
  public:
    explicit AddressList(const char* text) : _list(make_argv(text, &_count)) {}
    ~AddressList() { do_free(_list); }
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;

    a_bool is_whole() const { return _list != nullptr; }
    const char** addresses() const { return const_cast<const char**>(_list); }
    int count() const { return _count; }

  private:
    int _count = 0;
    char** _list;  // owned
};

/// An int32 argument: the first four bytes of the value, whatever its type, missing ones being 0.
class IntegerArgument {
  public:
    /// False when the host refuses the argument. A NULL value is read as no value.
    a_bool read(const ExternalCall& call, uint32 number);

    a_bool has_value() const { return _value.has_value(); }
    int32 value() const { return _value.value_or(0); }
    int32 value_or(int32 otherwise) const { return _value.value_or(otherwise); }

  private:
    std::optional<int32> _value;
};

/// What xp_startsmtp is given. A host may pass twelve arguments, or the first seven and the
/// connection number.
class StartArguments {
  public:
    StartArguments();

    /// MAIL_OK, or why the session cannot be started.
    int32 read(const ExternalCall& call);

    /// After a good read(): views of this object's texts, with the defaults for what was NULL.
    a_smtp_start start() const;
    /// The connection number; no value for the default session.
    const IntegerArgument& connection() const { return _connection; }

  private:
    int32 read_texts(const ExternalCall& call, std::initializer_list<a_mail_argument> numbers,
                     int32 if_missing);
    int32 read_connection(const ExternalCall& call);
    const char* text(a_mail_argument number) const { return _texts[number].text(); }

    TextArgument _texts[START_CERT_NAME + 1];  // by argument number
    IntegerArgument _port;
    IntegerArgument _timeout;
    IntegerArgument _connection;
};

/// What xp_sendmail is given.
class MailArguments {
  public:
    /// MAIL_OK, or why nothing can be sent.
    int32 read(const ExternalCall& call);

    /// After a good read(): views of this object's texts.
    a_mail mail() const;
    /// The connection number; no value for the default session.
    const IntegerArgument& connection() const { return _connection; }

  private:
    int32 read_text(const ExternalCall& call, uint32 number);
    const char* text(a_mail_argument number) const { return _texts[number].text(); }

    TextArgument _texts[SEND_CONTENT_TYPE + 1];  // by argument number
    IntegerArgument _connection;
};

#endif
