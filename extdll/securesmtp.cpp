#include "extdll/securesmtp.h"

#include <algorithm>
#include <climits>
#include <new>

#include "kovcert/tlsstream.h"
#include "netlib/ipaddress.h"
#include "netlib/netutil.h"

namespace {

Socket& socket_of(void* context) {
    return static_cast<TlsContext*>(context)->_sock;
}

size_t TlsWriteCallback(void* context, const char* buf, size_t buflen) {
    const auto length = static_cast<unsigned int>(std::min<size_t>(buflen, INT_MAX));
    return static_cast<size_t>(socket_of(context).send(buf, length));  // -1: (size_t)-1
}

// A peer that has closed is success with no bytes, like one that has nothing to say.
int TlsReadCallback(void* context, char* buf, size_t buflen, size_t* read_len) {
    const auto length = static_cast<unsigned int>(std::min<size_t>(buflen, INT_MAX));
    const int count = socket_of(context).recv(buf, length);
    *read_len = static_cast<size_t>(count);
    return count != -1;
}

// Reads and writes wait on the socket.
void TlsYieldCallback(void*) {}

constexpr TlsCallbacks socket_callbacks = {
    .writeFunc = TlsWriteCallback,
    .readFunc = TlsReadCallback,
    .debugLogFunc = nullptr,
    .yieldFunc = TlsYieldCallback,
};

/// What is demanded of the server's certificate, as the provider's connection takes it. The strings
/// are borrowed.
class CertificateOptions {
  public:
    CertificateOptions() = default;
    CertificateOptions(const CertificateOptions&) = delete;
    CertificateOptions& operator=(const CertificateOptions&) = delete;

    /// Leaves out an option without a value.
    void add(const char* name, const char* value) {
        if (value == nullptr) return;
        a_qxci_user_option* const added = &_options[_count++];
        *added = {name, value, false, nullptr};
        *_end = added;
        _end = &added->next;
    }
    a_qxci_user_option* list() const { return _first; }

  private:
    a_qxci_user_option _options[4] = {};
    size_t _count = 0;
    a_qxci_user_option* _first = nullptr;
    a_qxci_user_option** _end = &_first;
};

}  // namespace

SecureSMTPClient::SecureSMTPClient(DBQXCIEnvironment* env, UTLangStringBase* langstring)
    : _qxcienv(env), _langstring(langstring) {}

SecureSMTPClient::~SecureSMTPClient() {
    _EndTls();
    _qxci_stream.reset();
}

void SecureSMTPClient::SetTrustedCertificate(const char* certfile, const char* company,
                                             const char* unit, const char* name) {
    if (certfile != nullptr) {
        static_cast<void>(_certfile.release());  // Kept: see the header
        _Keep(_certfile, certfile);
    }
    _Keep(_company, company);
    _Keep(_unit, unit);
    _Keep(_name, name);
}

void SecureSMTPClient::_Keep(UTText& copy, const char* text) {
    copy = ut_try_text(text);
    if (text != nullptr && copy == nullptr) _certificate_lost = true;
}

int SecureSMTPClient::Connect(const char* sender, const char* sender_name, const char* host,
                              int port, int timeout, const char* user, const char* password) {
    // Without one of the demands a certificate could pass that must not.
    if (_certificate_lost) return SMTP_NO_MEMORY;
    // Kept: the time-out is not set here. A name that does not resolve leaves an address that
    // cannot be connected to.
    IPAddress address;
    TcpUtil::Resolve(host, address, TcpUtil::ADDR_BOTH);
    address.setPortNumber(static_cast<uint16>(port));
    int result = _ConnectSocket(address);
    if (result == SMTP_OK) result = _Expect(REPLY_SERVICE_READY, SMTP_NOT_SECURE);
    if (result == SMTP_OK) result = _Introduce(sender, sender_name, timeout, SMTP_NOT_SECURE);
    if (result == SMTP_OK) result = _StartTls();
    if (result == SMTP_OK) result = _IntroduceSecurely(sender, sender_name, timeout);
    if (result == SMTP_OK) result = _LogIn(user, password, SMTP_NOT_SECURE);
    return result;
}

// What has arrived behind the reply to STARTTLS was not protected (RFC 3207, section 6). The stream
// that may hold it goes with it unread: it is no reply, nor part of the TLS session.
int SecureSMTPClient::_StartTls() {
    if (FindServerCapability("STARTTLS") == nullptr) return SMTP_NOT_SECURE;
    int result = _Say("STARTTLS\r\n", REPLY_SERVICE_READY, SMTP_NOT_SECURE);
    if (result == SMTP_OK) result = _MakeTlsConnection();
    if (result != SMTP_OK) return result;
    _istrm.reset(new (std::nothrow) TlsIStream(_tlsconn.get(), &_heap));
    _ostrm.reset(new (std::nothrow) TlsOStream(_tlsconn.get()));
    const bool there = _istrm != nullptr && !_istrm->eof() && _ostrm != nullptr;
    return there ? SMTP_OK : SMTP_NO_MEMORY;
}

int SecureSMTPClient::_MakeTlsConnection() {
    DBQXCIError err;
    const a_qxci_stream_callbacks no_callbacks = {};
    _qxci_stream.reset(
        _qxcienv->CreateStreamWithID(&no_callbacks, nullptr, QXCI_STREAM_RSA_TLS, &err));
    if (_qxci_stream == nullptr) return SMTP_NO_MEMORY;
    if (_qxci_stream->Init(QXCI_CLIENT, nullptr) != QXCI_OK) return SMTP_NOT_SECURE;

    CertificateOptions options;
    if (_certfile != nullptr) {
        options.add("trusted_certificate", _certfile.get());
        options.add("certificate_company", _company.get());
        options.add("certificate_unit", _unit.get());
        options.add("certificate_name", _name.get());
    }
    _tlscontext.reset(new (std::nothrow) TlsContext{_socket});
    if (_tlscontext == nullptr) return SMTP_NO_MEMORY;
    err.Clear();
    _tlsconn.reset(new (std::nothrow)
                       TlsConnection(_qxci_stream.get(), _qxcienv, &socket_callbacks,
                                     _tlscontext.get(), nullptr, &err, options.list()));
    if (_tlsconn == nullptr) return SMTP_NO_MEMORY;
    return _tlsconn->IsValid() ? SMTP_OK : SMTP_NOT_SECURE;
}

// A greeting that TLS has spoilt is a failure of TLS. A server that merely says the wrong thing has
// no TLS error.
int SecureSMTPClient::_IntroduceSecurely(const char* sender, const char* sender_name, int timeout) {
    const int result = _Introduce(sender, sender_name, timeout, SMTP_NOT_SECURE);
    return result != SMTP_OK && _HasTlsFailed() ? SMTP_NOT_SECURE : result;
}

// The text tells of a session that was shut down, too, but there may be no texts.
a_bool SecureSMTPClient::_HasTlsFailed() const {
    if (_tlsconn->getLastError()->isError()) return true;
    char text[256] = "";
    _tlsconn->getErrorString(_langstring, text, sizeof text);
    return text[0] != '\0';
}

// The provider says good-bye when its connection goes, which needs the socket. A server that does
// not read must not hold that up.
void SecureSMTPClient::_EndTls() {
    if (_tlsconn == nullptr) return;
    constexpr int32 patience_in_ms = 1000;
    _socket.setTimeout(patience_in_ms);
    _tlsconn->shut_down();
    _istrm.reset();
    _ostrm.reset();
    _tlsconn.reset();
    _tlscontext.reset();
}

void SecureSMTPClient::_Shutdown() {
    _EndTls();
    SMTPClient::_Shutdown();
}

size_t SecureSMTPClient::_recvData(char* data, size_t len) {
    size_t count = 0;
    do {
        count = SMTPClient::_recvData(data, len);
    } while (count == 0 && _istrm != nullptr && !_istrm->eof());
    return count;
}
