#ifndef QUOREL_EXTDLL_SECURESMTP_H
#define QUOREL_EXTDLL_SECURESMTP_H

/// The SMTP client over TLS: RFC 3207 (STARTTLS). It does not go on in clear text when the server
/// does not offer TLS or the handshake fails.

#include <memory>

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/tlssession.h"
#include "netlib/netsmtp.h"

/// What the TLS callbacks of a client get.
struct TlsContext {
    Socket& _sock;  // the client's
};

class SecureSMTPClient : public SMTPClient {
  public:
    /// `env` has been initialised and outlives the client; `langstring`, which may be null, too.
    SecureSMTPClient(DBQXCIEnvironment* env, UTLangStringBase* langstring);
    /// Ends the TLS session, with a notification to the server if it still stands, and closes the
    /// connection if it is still open; without QUIT.
    ~SecureSMTPClient() override;

    /// What the server's certificate must be: issued under one of those in the file `certfile`, its
    /// subject's company and unit equal to what is given here, and `name` equal to a common name of
    /// its subject or matching one of the hosts that it is for; each may be null. Without a file
    /// the others are ignored, and the provider decides what it trusts. To be called before
    /// Connect(), which passes them to the provider, or, where there was no memory for a copy, says
    /// only that.
    ///
    /// Kept: a null `certfile` leaves the file of an earlier call in place, and the copy of an
    /// earlier file is never freed.
    void SetTrustedCertificate(const char* certfile, const char* company, const char* unit,
                               const char* name);

    /// Opens the session as the base does, with TLS between two greetings. Its codes are those of
    /// the base, but for a name that does not resolve, SMTP_NOT_CONNECTED, and a dialogue that is
    /// not the one expected, SMTP_NOT_SECURE, which is the code of everything about TLS too.
    /// SMTP_NO_MEMORY also says that there is no provider. SMTP_TIMED_OUT does not occur.
    ///
    /// Kept: `timeout` is recorded but not applied, so that a server that falls silent holds the
    /// call until it closes or resets the connection; but what could not be sent is not waited on.
    /// A failure leaves the connection open until the client is destroyed; QUIT is not sent.
    int Connect(const char* sender, const char* sender_name, const char* host, int port,
                int timeout, const char* user, const char* password) override;

    void _Shutdown() override;
    /// Reads again until something has come or the stream has ended: the TLS stream may give
    /// nothing while a record is incomplete.
    size_t _recvData(char* data, size_t len) override;

  protected:
    DBQXCIEnvironment* _qxcienv;  // not owned
    std::unique_ptr<DBQXCIStream> _qxci_stream;
    std::unique_ptr<TlsConnection> _tlsconn;
    UTLangStringBase* _langstring;  // not owned
    std::unique_ptr<TlsContext> _tlscontext;
    UTText _certfile;  // null: none
    UTText _company;
    UTText _unit;
    UTText _name;
    a_bool _certificate_lost = false;  // no memory for one of these four

  private:
    void _Keep(UTText& copy, const char* text);
    int _IntroduceSecurely(const char* sender, const char* sender_name, int timeout);
    int _StartTls();
    int _MakeTlsConnection();
    a_bool _HasTlsFailed() const;
    void _EndTls();
};

#endif
