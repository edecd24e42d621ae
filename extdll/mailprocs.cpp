// xp_startsmtp, xp_sendmail, xp_stopsmtp: mail from SQL. xp_startmail, xp_stopmail: nothing.

#include <atomic>
#include <mutex>

#include "extdll/extcall.h"
#include "extdll/mailargs.h"
#include "extdll/procedures.h"
#include "extdll/sendmail.h"
#include "netlib/netutil.h"
#include "utils/lang/utlangstring.h"
#include "utils/locale/utlocale.h"

namespace {

/// A critical section that lasts as long as the library is loaded.
struct LastingSection {
    LastingSection() { ut_safe_pthread_mutex_init(&cs, nullptr); }
    ~LastingSection() { ut_safe_pthread_mutex_destroy(&cs); }
    LastingSection(const LastingSection&) = delete;
    LastingSection& operator=(const LastingSection&) = delete;

    a_critical_sect cs;
};

// Made in this order at load, destroyed in the reverse at unload.
LastingSection NetInterface_cs;  // guards the one-time setup
UTLocale locale;

}  // namespace

UTLangString langstring(locale);

namespace {

SendmailManager manager;
SendmailState zstate(0);  // the default session, of calls without a connection number

// 1 once the setup is done; atomic because it is looked at without the lock first.
std::atomic<int> NetInterfaceLoaded = 0;

// What the network and the message texts need once, at the first start. A language file that cannot
// be found is no obstacle to mail.
void set_up_once() {
    if (NetInterfaceLoaded != 0) return;
    const CriticalSection lock(NetInterface_cs.cs);
    if (NetInterfaceLoaded != 0) return;
    TcpUtil::Init();
    ls_char_functions.init();
    langstring.Init(nullptr, nullptr, false);
    NetInterfaceLoaded = 1;
}

/// The arguments of xp_startsmtp by number; a host may pass twelve, or the first seven and the
/// connection number.
class StartArguments {
  public:
    StartArguments() {
        _texts[auth_username].keep_secret();
        _texts[auth_password].keep_secret();
    }

    /// False when one of the first seven cannot be read, or there is no host.
    bool read(const ExternalCall& call) {
        for (const uint32 number : {sender, host}) {
            if (!read_text(call, number)) return false;
        }
        if (!_port.read(call, port) || !_timeout.read(call, timeout)) return false;
        for (const uint32 number : {sender_name, auth_username, auth_password}) {
            if (!read_text(call, number)) return false;
        }
        if (text(host) == nullptr) return false;
        return read_connection(call);
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

    bool read_text(const ExternalCall& call, uint32 number) {
        const TextArgument::Outcome outcome = _texts[number].read(call, number);
        return outcome == TextArgument::Outcome::Read || outcome == TextArgument::Outcome::Null;
    }

    // False for a certificate argument that came only in part: what asked for TLS must not be lost.
    bool read_connection(const ExternalCall& call) {
        if (_connection.read(call, connection_of_twelve) && _connection.has_value()) {
            for (const uint32 number : {trusted_cert, cert_company, cert_unit, cert_name}) {
                const TextArgument::Outcome outcome = _texts[number].read(call, number);
                if (outcome == TextArgument::Outcome::Broken) return false;
                if (outcome == TextArgument::Outcome::NoMemory) return false;
            }
            return true;
        }
        // Kept: with a NULL twelfth argument the eighth is the number, even if it was meant as a
        // certificate, and the session is not secured.
        _connection.read(call, connection_of_eight);
        return true;
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
        SendmailState* const session = manager.FindOrAddState(cid);
        {
            const std::lock_guard lock(*session);
            if (!session->retired) return session->startsmtp(start);
        }
        manager.ReleaseAndDeleteState(session);
    }
}

int32 start_default(const a_smtp_start& start) {
    const std::lock_guard lock(zstate);
    return zstate.startsmtp(start);
}

int32 start_session(const ExternalCall& call) {
    set_up_once();
    StartArguments arguments;
    if (!arguments.read(call)) return MAIL_BAD_START_ARGUMENTS;
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
    if (!cid.has_value()) return send_over(&zstate, arguments.mail());
    SendmailState* const session = manager.FindState(cid.value());
    if (session == nullptr) return MAIL_NOTHING_TO_SEND;
    const int32 result = send_over(session, arguments.mail());
    // Kept: session number 0 is never released.
    if (cid.value() != 0) manager.ReleaseState(session);
    return result;
}

int32 stop(SendmailState* session, a_bool retire) {
    const std::lock_guard lock(*session);
    session->retired = retire;
    return session->stopsmtp();
}

int32 stop_session(const ExternalCall& call) {
    IntegerArgument cid;
    cid.read(call, 1);
    if (!cid.has_value()) return stop(&zstate, false);
    SendmailState* const session = manager.FindState(cid.value());
    if (session == nullptr) return MAIL_NO_SUCH_SESSION;
    // Kept: session number 0 stays in the registry.
    const a_bool leaves = cid.value() != 0;
    const int32 result = stop(session, leaves);
    if (leaves) manager.ReleaseAndDeleteState(session);
    return result;
}

}  // namespace

void xp_startsmtp(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    call.set_status(start_session(call));
}

void xp_sendmail(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    call.set_status(send_mail(call));
}

void xp_stopsmtp(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    call.set_status(stop_session(call));
}

void xp_startmail(an_extfn_api*, void*) {}

void xp_stopmail(an_extfn_api*, void*) {}
