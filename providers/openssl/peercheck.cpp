#include "providers/openssl/peercheck.h"

#include <cstring>

#include <openssl/x509v3.h>

#include "providers/openssl/ipaddress.h"
#include "providers/openssl/nameconstraints.h"
#include "providers/openssl/validity.h"

namespace {

/// The results that have a code of their own; all others are QxciErrBadCert.
constexpr struct {
    int result;
    a_dbqxci_error code;
} verify_errors[] = {
    {X509_V_ERR_CERT_HAS_EXPIRED, QxciErrCertExpired},
    {X509_V_ERR_CERT_NOT_YET_VALID, QxciErrCertExpired},
    {X509_V_ERR_OUT_OF_MEM, QxciErrNoMemory},
};

a_dbqxci_error code_of(int result) {
    for (const auto& row : verify_errors) {
        if (row.result == result) return row.code;
    }
    return QxciErrBadCert;
}

bool fail_verify(X509_STORE_CTX& context, qxci::ErrorRecord& error) {
    const int result = X509_STORE_CTX_get_error(&context);
    const X509* const faulty = X509_STORE_CTX_get_current_cert(&context);
    // Whoever it is, the code and the result get through without the name.
    const BioPtr subject = faulty == nullptr ? nullptr : subject_text(*faulty);
    return error.fail(code_of(result), subject == nullptr ? "" : text_of(*subject),
                      static_cast<uint32_t>(result));
}

/// A value with a zero byte inside equals no text, since its length differs.
bool equals(const ASN1_STRING& value, const char* text) {
    unsigned char* utf8 = nullptr;
    const int len = ASN1_STRING_to_UTF8(&utf8, &value);
    if (len < 0) return false;
    const bool equal = static_cast<size_t>(len) == std::strlen(text) &&
                       std::memcmp(utf8, text, static_cast<size_t>(len)) == 0;
    OPENSSL_free(utf8);
    return equal;
}

bool subject_has(const X509& certificate, int attribute, const char* text) {
    const X509_NAME* const subject = X509_get_subject_name(&certificate);
    // A name may hold an attribute several times; any of them will do.
    for (int at = -1; (at = X509_NAME_get_index_by_NID(subject, attribute, at)) >= 0;) {
        if (equals(*X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)), text)) return true;
    }
    return false;
}

/// Whether the name is among the alternative names. A wildcard stands for a whole label (RFC 6125
/// section 6.4.3); an IP address is never a DNS name, whatever a certificate calls it. OpenSSL
/// would take ".example" for every name that ends so, and fall back on the CN, which counts by
/// equality only.
bool has_host(X509& certificate, const char* name) {
    if (is_ip_address(name)) {
        const an_ip_address address = read_ip_address(name);
        return address.size > 0 && X509_check_ip(&certificate, address.bytes, address.size, 0) == 1;
    }
    constexpr unsigned rules =
        X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;
    return *name != '\0' && *name != '.' &&
           X509_check_host(&certificate, name, 0, rules, nullptr) == 1;
}

/// An authority's name constraints hold for a CN that looks like a host name even where there are
/// DNS names (RFC 5280 section 4.2.1.10 leaves that open). Said to the context, to which a session
/// does not pass such flags on unless it names a host.
void constrain_common_name(X509_STORE_CTX& context) {
    X509_VERIFY_PARAM_set_hostflags(X509_STORE_CTX_get0_param(&context),
                                    X509_CHECK_FLAG_ALWAYS_CHECK_SUBJECT);
}

constexpr struct a_demand {
    a_setting setting;
    int attribute;
    a_dbqxci_error code;
} demands[] = {
    {SETTING_COMPANY, NID_organizationName, QxciErrBadCompany},
    {SETTING_UNIT, NID_organizationalUnitName, QxciErrBadUnit},
    {SETTING_NAME, NID_commonName, QxciErrBadCommonName},
};

bool meets(X509& certificate, const a_demand& demand, const char* text) {
    if (text == nullptr || subject_has(certificate, demand.attribute, text)) return true;
    return demand.setting == SETTING_NAME && has_host(certificate, text);
}

}  // namespace

bool check_peer(X509_STORE_CTX& context, const Settings& settings, qxci::ErrorRecord& error) {
    constrain_common_name(context);
    leave_dates_aside(context);
    if (X509_verify_cert(&context) != 1 || !judge_chain_dates(context)) {
        return fail_verify(context, error);
    }
    X509* const certificate = X509_STORE_CTX_get0_cert(&context);
    for (const a_demand& demand : demands) {
        const char* const text = settings.get(demand.setting).text;
        if (!meets(*certificate, demand, text)) return error.fail(demand.code, text);
    }
    const char* const name = settings.get(SETTING_NAME).text;
    return name == nullptr || judge_name(context, name) || fail_verify(context, error);
}

BioPtr subject_text(const X509& certificate) {
    constexpr unsigned long format =
        XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr ||
        X509_NAME_print_ex(bio.get(), X509_get_subject_name(&certificate), 0, format) < 0 ||
        BIO_write(bio.get(), "", 1) != 1) {
        return nullptr;
    }
    return bio;
}

const char* text_of(BIO& bio) {
    char* text = nullptr;
    BIO_get_mem_data(&bio, &text);
    return text;
}
