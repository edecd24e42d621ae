#include "providers/openssl/algorithm.h"

const a_provider_algorithm provider_algorithm = {
    QXCI_STREAM_ECC_TLS, {"ecc", "ecc_tls"}, "ecc", {"EC", "ED25519", "ED448"}, QxciErrBadECCCert,
};
