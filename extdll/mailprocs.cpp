// xp_startsmtp, xp_sendmail, xp_stopsmtp: mail from SQL. xp_startmail, xp_stopmail: nothing.

#include <atomic>
#include <initializer_list>
#include <mutex>

#include "extdll/extcall.h"
#include "extdll/mailargs.h"
#include "extdll/procedures.h"
#include "extdll/sendmail.h"
#include "netlib/netutil.h"
#include "utils/lang/utlangstring.h"
#include "utils/locale/utlocale.h"

namespace {

/// A critical section, if the pool has one.
struct a_section {
    a_section() { ut_safe_pthread_mutex_init(&cs, nullptr); }
    ~a_section() { ut_safe_pthread_mutex_destroy(&cs); }
    a_section(const a_section&) = delete;
    a_section& operator=(const a_section&) = delete;

    a_critical_sect cs;
};

// Made in this order at load, destroyed in the reverse with the library.
UTLasting<a_section> NetInterface_cs;  // guards the one-time setup
UTLocale locale;

}  // namespace

UTLasting<UTLangString> langstring(locale);

namespace {

UTLasting<SendmailManager> manager;
UTLasting<SendmailState> zstate(0);  // the default session, of calls without a connection number

// 1 once the setup is done; atomic because it is looked at without the lock first.
std::atomic<int> NetInterfaceLoaded = 0;

// What the network and the message texts need once, at the first start. A language file that cannot
// be found is no obstacle to mail. False without memory; the next start tries again.
bool set_up_once() {
    if (NetInterfaceLoaded != 0) return true;
    const CriticalSection lock(NetInterface_cs->cs);
    if (!lock.is_held()) return false;
    if (NetInterfaceLoaded != 0) return true;
    if (!TcpUtil::Init()) return false;
    ls_char_functions.init();
    langstring->Init(nullptr, nullptr, false);
    NetInterfaceLoaded = 1;
    return true;
}

/// The arguments of xp_startsmtp by number; a host may pass twelve, or the first seven and the
/// connection number.
class StartArguments {
  public:
    StartArguments() {
        _texts[auth_username].keep_secret();
        _texts[auth_password].keep_secret();
    }

    /// MAIL_OK or why the session cannot be started.
    int32 read(const ExternalCall& call) {
        int32 result = read_texts(call, {sender, host}, MAIL_BAD_START_ARGUMENTS);
        if (result != MAIL_OK) return result;
        if (!_port.read(call, port) || !_timeout.read(call, timeout))
            return MAIL_BAD_START_ARGUMENTS;
        result =
            read_texts(call, {sender_name, auth_username, auth_password}, MAIL_BAD_START_ARGUMENTS);
        if (result != MAIL_OK) return result;
        return text(host) != nullptr ? read_connection(call) : MAIL_BAD_START_ARGUMENTS;
    }

    /// The connection number; no value for the default session.
    const IntegerArgument& connection() const { return _connection; }

    a_smtp_start start() const {
        constexpr int32 default_port = 25;
        constexpr int32 default_timeout = 60;
        return {
            .sender = text(sender) != nullptr ? text(sender) : "",
            .sender_name = text(sender_name),
            .host = text(host),
            .port = _port.value_or(default_port),
            .timeout = _timeout.value_or(default_timeout),
            .auth_username = text(auth_username),
            .auth_password = text(auth_password),
            .trusted_certificate = text(trusted_cert),
            .cert_company = text(cert_company),
            .cert_unit = text(cert_unit),
            .cert_name = text(cert_name),
        };
    }

  private:
    enum Number : uint32 {
        sender = 1,
        host,
        port,
        timeout,
        sender_name,
        auth_username,
        auth_password,
        trusted_cert,
        cert_company,
        cert_unit,
        cert_name,
        connection_of_twelve,
        connection_of_eight = trusted_cert,
    };

    int32 read_texts(const ExternalCall& call, std::initializer_list<uint32> numbers,
                     int32 if_missing) {
        int32 result = MAIL_OK;
        for (const uint32 number : numbers) {
            if (result == MAIL_OK) result = read_text(call, number, if_missing);
        }
        return result;
    }

    int32 read_text(const ExternalCall& call, uint32 number, int32 if_missing) {
        switch (_texts[number].read(call, number)) {
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

    // A certificate argument may be missing, but not come only in part: what asked for TLS must not
    // be lost.
    int32 read_connection(const ExternalCall& call) {
        if (_connection.read(call, connection_of_twelve) && _connection.has_value())
            return read_texts(call, {trusted_cert, cert_company, cert_unit, cert_name}, MAIL_OK);
        // Kept: with a NULL twelfth argument the eighth is the number, even if it was meant as a
        // certificate, and the session is not secured.
        _connection.read(call, connection_of_eight);
        return MAIL_OK;
    }

    const char* text(uint32 number) const { return _texts[number].text(); }

    TextArgument _texts[cert_name + 1];  // by argument number
    IntegerArgument _port;
    IntegerArgument _timeout;
    IntegerArgument _connection;
};

/// The nineteen strings of xp_sendmail by number.
class MailArguments {
  public:
    enum class Outcome { Read, Missing, NoMemory };

    Outcome read(const ExternalCall& call) {
        for (uint32 number = 1; number <= last; ++number) {
            const Outcome outcome = read_text(call, number);
            if (outcome != Outcome::Read) return outcome;
        }
        return Outcome::Read;
    }

    a_mail mail() const {
        return {
            .recipient = text(1),
            .subject = text(2),
            .cc_recipient = text(3),
            .bcc_recipient = text(4),
            .query = text(5),
            .message = text(6),
            .include_file = text(10),
            .content_type = text(19),
            .type = text(17),
        };
    }

  private:
    static constexpr uint32 last = 19;

    // Values of other types than the two of characters count as NULL.
    Outcome read_text(const ExternalCall& call, uint32 number) {
        ArgumentPieces pieces(call, number);
        if (!pieces.first()) return Outcome::Missing;
        const a_sql_data_type type = pieces.type();
        if (pieces.is_null() || (type != EXTFN_TYPE_CHAR && type != EXTFN_TYPE_LONGCHAR))
            return Outcome::Read;
        return _texts[number].join(pieces) == TextArgument::Outcome::Read ? Outcome::Read
                                                                          : Outcome::NoMemory;
    }

    const char* text(uint32 number) const { return _texts[number].text(); }

    TextArgument _texts[last + 1];  // by argument number
};

int32 start_numbered(int32 cid, const a_smtp_start& start) {
    for (;;) {
        // Kept: the reference to a session that is started stays with it.
        SendmailState* const session = manager->FindOrAddState(cid);
        if (session == nullptr) return MAIL_NO_MEMORY;
        {
            const std::lock_guard lock(*session);
            if (!session->retired) return session->startsmtp(start);
        }
        manager->ReleaseAndDeleteState(session);
    }
}

int32 start_default(const a_smtp_start& start) {
    const std::lock_guard lock(*zstate);
    return zstate->startsmtp(start);
}

int32 start_session(const ExternalCall& call) {
    if (!set_up_once()) return MAIL_NO_MEMORY;
    StartArguments arguments;
    const int32 result = arguments.read(call);
    if (result != MAIL_OK) return result;
    const IntegerArgument& cid = arguments.connection();
    return cid.has_value() ? start_numbered(cid.value(), arguments.start())
                           : start_default(arguments.start());
}

int32 send_over(SendmailState* session, const a_mail& mail) {
    const std::lock_guard lock(*session);
    return session->sendsmtp(mail);
}

int32 send_mail(const ExternalCall& call) {
    constexpr uint32 connection_number = 20;
    MailArguments arguments;
    switch (arguments.read(call)) {
    case MailArguments::Outcome::Read:
        break;
    case MailArguments::Outcome::Missing:
        return MAIL_NOTHING_TO_SEND;
    case MailArguments::Outcome::NoMemory:
        return MAIL_NO_MEMORY;
    }
    IntegerArgument cid;
    cid.read(call, connection_number);
    if (!cid.has_value()) return send_over(&*zstate, arguments.mail());
    SendmailState* const session = manager->FindState(cid.value());
    if (session == nullptr) return MAIL_NOTHING_TO_SEND;
    const int32 result = send_over(session, arguments.mail());
    // Kept: session number 0 is never released.
    if (cid.value() != 0) manager->ReleaseState(session);
    return result;
}

int32 stop(SendmailState* session, a_bool retire) {
    const std::lock_guard lock(*session);
    if (retire) session->retired = true;
    return session->stopsmtp();
}

int32 stop_session(const ExternalCall& call) {
    IntegerArgument cid;
    cid.read(call, 1);
    if (!cid.has_value()) return stop(&*zstate, false);
    SendmailState* const session = manager->FindState(cid.value());
    if (session == nullptr) return MAIL_NO_SUCH_SESSION;
    // Kept: session number 0 stays in the registry.
    const a_bool leaves = cid.value() != 0;
    const int32 result = stop(session, leaves);
    if (leaves) manager->ReleaseAndDeleteState(session);
    return result;
}

// Runs `procedure` while the sessions are there, and gives `without` once they are gone.
void call_with_sessions(an_extfn_api* api, void* arg_handle,
                        int32 (*procedure)(const ExternalCall& call), int32 without) {
    const UTLastingUse sessions;
    const ExternalCall call(api, arg_handle);
    call.set_status(sessions.is_granted() ? procedure(call) : without);
}

}  // namespace

void xp_startsmtp(an_extfn_api* api, void* arg_handle) {
    call_with_sessions(api, arg_handle, start_session, MAIL_NO_MEMORY);
}

void xp_sendmail(an_extfn_api* api, void* arg_handle) {
    call_with_sessions(api, arg_handle, send_mail, MAIL_NOTHING_TO_SEND);
}

void xp_stopsmtp(an_extfn_api* api, void* arg_handle) {
    call_with_sessions(api, arg_handle, stop_session, MAIL_NO_SUCH_SESSION);
}

void xp_startmail(an_extfn_api*, void*) {}

void xp_stopmail(an_extfn_api*, void*) {}
