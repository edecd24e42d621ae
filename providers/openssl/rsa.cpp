#include "providers/openssl/algorithm.h"

const a_provider_algorithm provider_algorithm = {
    QXCI_STREAM_RSA_TLS, {"rsa", "rsa_tls"}, "rsa", {"RSA", "RSA-PSS"}, QxciErrBadRSACert,
};
