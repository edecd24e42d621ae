// xp_startsmtp, xp_sendmail, xp_stopsmtp: mail from SQL. xp_startmail, xp_stopmail: nothing.

#include <atomic>

#include "extdll/extcall.h"
#include "extdll/mailargs.h"
#include "extdll/procedures.h"
#include "extdll/sendmail.h"
#include "netlib/netutil.h"
#include "utils/lang/utlangstring.h"
#include "utils/locale/utlocale.h"

namespace {

// Made in this order at load, destroyed in the reverse with the library.
UTLasting<UTCriticalSection> NetInterface_cs;  // guards the one-time setup
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
    // Without the lock first: every start comes here, and only one has something to do.
    if (NetInterfaceLoaded != 0) return true;
    const UTLock lock(NetInterface_cs->mutex());
    if (!lock.is_held()) return false;
    if (NetInterfaceLoaded != 0) return true;
    if (!TcpUtil::Init()) return false;
    ls_char_functions.init();
    langstring->Init(nullptr, nullptr, false);
    NetInterfaceLoaded = 1;
    return true;
}

int32 start_numbered(int32 cid, const a_smtp_start& start) {
    for (;;) {
        // Kept: the reference to a session that is started stays with it.
        SendmailState* const session = manager->FindOrAddState(cid);
        if (session == nullptr) return MAIL_NO_MEMORY;
        {
            const UTLock lock(*session);
            // Between the look-up and the lock another call may have stopped it.
            if (!session->retired) return session->startsmtp(start);
        }
        manager->ReleaseAndDeleteState(session);
    }
}

int32 start_default(const a_smtp_start& start) {
    const UTLock lock(*zstate);
    return zstate->startsmtp(start);
}

int32 start_session(const ExternalCall& call) {
    if (!set_up_once()) return MAIL_NO_MEMORY;
    StartArguments arguments;
    const int32 bad = arguments.read(call);
    if (bad != MAIL_OK) return bad;
    const IntegerArgument& cid = arguments.connection();
    return cid.has_value() ? start_numbered(cid.value(), arguments.start())
                           : start_default(arguments.start());
}

int32 send_over(SendmailState* session, const a_mail& mail) {
    const UTLock lock(*session);
    return session->sendsmtp(mail);
}

int32 send_mail(const ExternalCall& call) {
    MailArguments arguments;
    const int32 bad = arguments.read(call);
    if (bad != MAIL_OK) return bad;
    const IntegerArgument& cid = arguments.connection();
    if (!cid.has_value()) return send_over(&*zstate, arguments.mail());
    SendmailState* const session = manager->FindState(cid.value());
    if (session == nullptr) return MAIL_NOTHING_TO_SEND;
    const int32 result = send_over(session, arguments.mail());
    // Kept: session number 0 is never released.
    if (cid.value() != 0) manager->ReleaseState(session);
    return result;
}

int32 stop(SendmailState* session, bool retire) {
    const UTLock lock(*session);
    if (retire) session->retired = true;
    return session->stopsmtp();
}

int32 stop_session(const ExternalCall& call) {
    IntegerArgument cid;
    cid.read(call, STOP_CONNECTION);
    if (!cid.has_value()) return stop(&*zstate, false);
    SendmailState* const session = manager->FindState(cid.value());
    if (session == nullptr) return MAIL_NO_SUCH_SESSION;
    // Kept: session number 0 stays in the registry.
    const bool leaves = cid.value() != 0;
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
