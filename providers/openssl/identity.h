#ifndef QUOREL_PROVIDERS_OPENSSL_IDENTITY_H
#define QUOREL_PROVIDERS_OPENSSL_IDENTITY_H

/// Who this side says it is: a certificate, the chain of its authorities, and its private key, all
/// in one PEM text. The first certificate is this side's own.

#include "providers/openssl/openssllibrary.h"
#include "providers/openssl/settings.h"

class PemText;

class Identity {
  public:
    /// `setting` is set, and its text outlives this; `password` is for an encrypted key and may be
    /// null. False with the reason in `error`: the errors of PemText and
    ///   QxciErrNoCertificates, QxciErrKeyMissing        the text has none
    ///   QxciErrMissingCertPassword, QxciErrBadCertPassword
    ///   QxciErrSpecifiedCertExpired                     or not yet valid
    ///   QxciErrBadRSACert, QxciErrBadECCCert            another kind of key than the provider's
    ///   QxciErrBadCert                                  the key belongs to another certificate
    /// each with the file.
    bool load(const qxci::Memory& memory, const a_setting_value& setting, const char* password,
              qxci::ErrorRecord& error);

    bool loaded() const { return _certificate != nullptr; }

    /// Makes the session show it. QxciErrBadCert with the file when the session's security level
    /// finds it too weak.
    bool apply(SSL& ssl, qxci::ErrorRecord& error) const;

  private:
    bool load(const PemText& text, const char* password, qxci::ErrorRecord& error);
    bool load_certificates(BIO& bio, const PemText& text, qxci::ErrorRecord& error);
    bool load_key(BIO& bio, const PemText& text, const char* password, qxci::ErrorRecord& error);
    bool check(const PemText& text, qxci::ErrorRecord& error) const;

    const char* _source = nullptr;  // the file, or the option
    CertPtr _certificate;
    ChainPtr _chain;
    KeyPtr _key;
};

#endif
