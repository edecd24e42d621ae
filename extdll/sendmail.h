#ifndef QUOREL_EXTDLL_SENDMAIL_H
#define QUOREL_EXTDLL_SENDMAIL_H

/// Mail sessions: one SMTP client per connection number, kept from xp_startsmtp to xp_stopsmtp, and
/// the process-wide registry of them.
///
/// Locks. SendmailManager::_cs guards the list and every session's refcount and is held only inside
/// the manager's own operations. A session's `cs` is held for the whole of a start, send or stop,
/// so that one thread at a time uses its client. No thread holds both: a session is looked up,
/// then locked, then unlocked, then released.
///
/// The pool may have no mutex to give. The registry then has no sessions, and hands out none that
/// has none; the default session cannot be started.

#include <memory>

#include "kovcert/qxci/dbqxci.h"
#include "netlib/netsmtp.h"
#include "utils/etc/uttypes.h"
#include "utils/lang/utlangstring.h"
#include "utils/unix/utlasting.h"
#include "utils/unix/utptmutex.h"

/// The message texts, in the operating system's language once a session has been started.
extern UTLasting<UTLangString> langstring;

/// Status codes of the mail procedures themselves. Those of SMTPClient pass through unchanged, and
/// where a procedure itself ends in one of them, it is the same.
enum a_mail_status : int32 {
    MAIL_OK = SMTP_OK,
    MAIL_BAD_START_ARGUMENTS = 2,       // xp_startsmtp: 1 to 7 missing, no host, or 8 to 11 in part
    MAIL_NO_SUCH_SESSION = 3,           // xp_stopsmtp
    MAIL_NOTHING_TO_SEND = 5,           // xp_sendmail: argument missing, no session or no recipient
    MAIL_NO_MEMORY = SMTP_NO_MEMORY,    // xp_sendmail: or a piece of an argument cannot be read;
                                        // xp_startsmtp: or no mutex, or the library has ended
    MAIL_NOT_STARTED = 25,              // xp_sendmail: the session has no client
    MAIL_NOT_SECURE = SMTP_NOT_SECURE,  // xp_startsmtp: TLS was asked for and cannot be had
};

/// What xp_startsmtp is given. All strings may be null but for sender and host; none is kept
/// longer than the call.
struct a_smtp_start {
    const char* sender;
    const char* sender_name;
    const char* host;
    int32 port;
    int32 timeout;  // seconds
    const char* auth_username;
    const char* auth_password;
    const char* trusted_certificate;  // null: in clear text
    const char* cert_company;
    const char* cert_unit;
    const char* cert_name;
};

/// What xp_sendmail is given; any may be null. The lists are addresses separated by ";".
struct a_mail {
    const char* recipient;
    const char* subject;
    const char* cc_recipient;
    const char* bcc_recipient;
    const char* query;  // not used
    const char* message;
    const char* include_file;
    const char* content_type;
    const char* type;  // not used
};

/// One session. It is a lock by itself, for UTLock; startsmtp(), sendsmtp() and stopsmtp() are
/// called with it held.
class SendmailState {
  public:
    explicit SendmailState(int32 connection);
    /// Leaves the client alone: a session is deleted only after stopsmtp(). The TLS environment
    /// that a failed start has left goes.
    ~SendmailState();
    SendmailState(const SendmailState&) = delete;
    SendmailState& operator=(const SendmailState&) = delete;

    /// False when there was no mutex for it: then it cannot be started.
    a_bool is_usable() const { return cs.exists(); }

    /// Enter and leave `cs`, which is not recursive; nothing for a session that is not usable.
    void lock() {
        if (is_usable()) cs.mutex()->lock();
    }
    void unlock() {
        if (is_usable()) cs.mutex()->unlock();
    }

    /// Opens a connection in place of the one that is open. After a failure there is none, but the
    /// TLS environment, once made, stays for the next start.
    int32 startsmtp(const a_smtp_start& start);
    /// Sends one message.
    int32 sendsmtp(const a_mail& mail);
    /// Closes the connection and ends the TLS environment, if there are any; always MAIL_OK.
    int32 stopsmtp();

    SendmailState* next = nullptr;  // guarded by SendmailManager::_cs
    const int32 cid;
    SMTPClient* smtp_handle = nullptr;  // owned, guarded by cs; null when not connected
    UTCriticalSection cs;
    DBQXCIEnvironment* qxcienv = nullptr;  // owned, guarded by cs; made by the first secure start
    uint32 refcount = 0;                   // guarded by SendmailManager::_cs
    /// Stopped, and about to leave the registry if it has not yet: whoever looked it up to start it
    /// takes another one, for nobody could stop this one any more. Guarded by cs.
    a_bool retired = false;

  private:
    int32 _MakeClient(const a_smtp_start& start, std::unique_ptr<SMTPClient>* client);
    int32 _NeedEnvironment();
    void _EndEnvironment();
};

/// The registry. The list counts as one reference of each session in it, each caller that looked
/// one up as another.
class SendmailManager {
  public:
    SendmailManager() = default;
    /// Sessions that were not stopped stay behind.
    ~SendmailManager() = default;
    SendmailManager(const SendmailManager&) = delete;
    SendmailManager& operator=(const SendmailManager&) = delete;

    /// The session of that number, made if there is none. Adds the caller's reference. Null when
    /// there is no memory for it.
    SendmailState* FindOrAddState(int32 cid);
    /// The same, but null if there is none.
    SendmailState* FindState(int32 cid);
    /// Gives the caller's reference back; the last one deletes the session.
    void ReleaseState(SendmailState* state);
    /// Also takes the session out of the list, if it is in it.
    void ReleaseAndDeleteState(SendmailState* state);

  private:
    // The caller holds _cs.
    SendmailState* findState(int32 cid) const;
    void linkState(SendmailState* state);
    void unlinkState(SendmailState* state);

    SendmailState* _head = nullptr;  // newest first; guarded by _cs
    UTCriticalSection _cs;
};

#endif
