#ifndef QUOREL_PROVIDERS_OPENSSL_PEERCHECK_H
#define QUOREL_PROVIDERS_OPENSSL_PEERCHECK_H

/// What a peer's certificate must stand up to once the peer has sent it.

#include "providers/openssl/openssllibrary.h"
#include "providers/openssl/settings.h"

/// Verifies the chain of the context, then compares the certificate with what the settings demand:
///   company, unit   one of the subject's O, or OU, values, byte for byte in UTF-8
///   name            one of its CN values likewise, or an alternative name of the certificate: an
///                   IP address if it is one itself, else a DNS name, which may begin with "*."
/// A name must also be one that the chain's authorities may vouch for (nameconstraints.h).
/// False with the reason in `error`: QxciErrCertExpired or QxciErrBadCert with the subject of the
/// certificate at fault and OpenSSL's verify result as the system code; QxciErrBadCompany,
/// QxciErrBadUnit or QxciErrBadCommonName with what was asked for.
bool check_peer(X509_STORE_CTX& context, const Settings& settings, qxci::ErrorRecord& error);

/// A reader of the certificate's subject as text, such as "CN=mail.example,O=Example"; null when
/// there is no memory. Its data ends with a zero byte.
BioPtr subject_text(const X509& certificate);
const char* text_of(BIO& bio);

#endif
