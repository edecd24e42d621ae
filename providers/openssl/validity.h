#ifndef QUOREL_PROVIDERS_OPENSSL_VALIDITY_H
#define QUOREL_PROVIDERS_OPENSSL_VALIDITY_H

/// Whether certificates are valid now, by the provider's own clock. OpenSSL's is a time_t, which in
/// the 32-bit packages of the system ends in 2038.

#include "providers/openssl/openssllibrary.h"

/// X509_V_OK, or OpenSSL's verify result for what is wrong with the certificate's dates.
int judge_dates(const X509& certificate);

/// Makes the verification of the context's chain pass over what OpenSSL says about dates, which is
/// for judge_chain_dates() to say.
void leave_dates_aside(X509_STORE_CTX& context);

/// Judges each certificate of a chain that has been verified, from the authority down. False with
/// the result and the certificate in the context, as after a verification.
bool judge_chain_dates(X509_STORE_CTX& context);

#endif
