#ifndef QUOREL_PROVIDERS_OPENSSL_TRUST_H
#define QUOREL_PROVIDERS_OPENSSL_TRUST_H

/// The certificates that the owner trusts: one or more in PEM, or one in DER.
///
/// What is given is trusted as it stands, so that an intermediate authority's or the peer's own
/// certificate serves as well as a root's. The machine's own certificates play no part. There are
/// 4,096 at most.

#include "providers/openssl/openssllibrary.h"
#include "providers/openssl/settings.h"

/// The store with the certificates of the setting, which is set; null with the reason in `error`:
/// those of PemText, QxciErrNoCertificates when there is none in it, QxciErrBadCertFile when one
/// cannot be read or is one too many (E2BIG), each with the file.
StorePtr load_trust(const qxci::Memory& memory, const a_setting_value& setting,
                    qxci::ErrorRecord& error);

#endif
