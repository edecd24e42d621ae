#ifndef QUOREL_PROVIDERS_OPENSSL_NAMECONSTRAINTS_H
#define QUOREL_PROVIDERS_OPENSSL_NAMECONSTRAINTS_H

/// The name constraints of authorities (RFC 5280 section 4.2.1.10), held against the name that a
/// peer was asked for, in whichever field of its certificate that was found.
///
/// OpenSSL holds them against a certificate's alternative names, and against what it takes for a
/// host name in the CN. A host may also be called "localhost", or have a dot at the end.

#include "providers/openssl/openssllibrary.h"

/// Whether every authority in the chain, which has been verified, may vouch for `name`: an IP
/// address, or else a DNS name, or a text with a blank, on which they say nothing. False with the
/// result and the peer's certificate in the context, as after a verification.
bool judge_name(X509_STORE_CTX& context, const char* name);

#endif
