#include "providers/openssl/validity.h"

#include <time.h>

#include "providers/openssl/clock.h"

namespace {

static_assert(sizeof(time_t) == sizeof(int64_t));

/// False for a text that is no time.
bool read_time(const ASN1_TIME* text, int64_t& seconds) {
    tm broken_down;
    if (text == nullptr || ASN1_TIME_to_tm(text, &broken_down) != 1) return false;
    seconds = timegm(&broken_down);
    return true;
}

int pass_over_dates(int verified, X509_STORE_CTX* context) {
    const int result = X509_STORE_CTX_get_error(context);
    if (result != X509_V_ERR_CERT_NOT_YET_VALID && result != X509_V_ERR_CERT_HAS_EXPIRED) {
        return verified;
    }
    // The rest of the chain is to be verified all the same, which a 0 would end.
    X509_STORE_CTX_set_error(context, X509_V_OK);
    return 1;
}

}  // namespace

int judge_dates(const X509& certificate) {
    const int64_t now = calendar_s();
    int64_t first, last;
    if (!read_time(X509_get0_notBefore(&certificate), first)) {
        return X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD;
    }
    if (!read_time(X509_get0_notAfter(&certificate), last)) {
        return X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD;
    }
    if (now < first) return X509_V_ERR_CERT_NOT_YET_VALID;
    return now >= last ? X509_V_ERR_CERT_HAS_EXPIRED : X509_V_OK;
}

void leave_dates_aside(X509_STORE_CTX& context) {
    X509_STORE_CTX_set_verify_cb(&context, pass_over_dates);
}

bool judge_chain_dates(X509_STORE_CTX& context) {
    const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(&context);
    for (int depth = sk_X509_num(chain) - 1; depth >= 0; --depth) {
        X509* const certificate = sk_X509_value(chain, depth);
        const int result = judge_dates(*certificate);
        if (result == X509_V_OK) continue;
        X509_STORE_CTX_set_error(&context, result);
        X509_STORE_CTX_set_error_depth(&context, depth);
        X509_STORE_CTX_set_current_cert(&context, certificate);
        return false;
    }
    return true;
}
