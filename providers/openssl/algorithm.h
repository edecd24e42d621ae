#ifndef QUOREL_PROVIDERS_OPENSSL_ALGORITHM_H
#define QUOREL_PROVIDERS_OPENSSL_ALGORITHM_H

/// What the libraries built from these sources differ in. Both talk to peers with certificates of
/// any kind; the kind of key matters for the identity that they show themselves.

#include "kovcert/qxci/qxci.h"

struct a_provider_algorithm {
    a_qxci_byte id;
    const char* names[2];
    const char* tls_type;      // the value of the option "tls_type" that asks for it
    const char* key_types[3];  // OpenSSL's names; the last one used is followed by null
    a_dbqxci_error wrong_key;  // for an identity with another kind of key
};

extern const a_provider_algorithm provider_algorithm;

#endif
