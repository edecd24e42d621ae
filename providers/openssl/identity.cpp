#include "providers/openssl/identity.h"

#include <cstring>

#include "providers/openssl/algorithm.h"
#include "providers/openssl/opensslerror.h"
#include "providers/openssl/pemtext.h"
#include "providers/openssl/validity.h"

namespace {

struct a_password {
    const char* text;  // may be null
    bool asked;
};

int give_password(char* buf, int size, int, void* user_data) {
    a_password& password = *static_cast<a_password*>(user_data);
    password.asked = true;
    const size_t len = password.text == nullptr ? 0 : std::strlen(password.text);
    // A password that was cut would be another one.
    if (password.text == nullptr || len > static_cast<size_t>(size)) return -1;
    std::memcpy(buf, password.text, len);
    return static_cast<int>(len);
}

bool is_key_type(const EVP_PKEY& key) {
    for (const char* type : provider_algorithm.key_types) {
        if (type != nullptr && EVP_PKEY_is_a(&key, type)) return true;
    }
    return false;
}

}  // namespace

bool Identity::load(const qxci::Memory& memory, const a_setting_value& setting,
                    const char* password, qxci::ErrorRecord& error) {
    PemText text(memory);
    const bool read = setting.form == FORM_TEXT ? text.set(setting.text, setting.option, error)
                                                : text.read_file(setting.text, error);
    _source = text.source();
    return read && load(text, password, error);
}

bool Identity::load(const PemText& text, const char* password, qxci::ErrorRecord& error) {
    if (text.empty()) return error.fail(QxciErrNoCertificates, text.source());
    if (!text.is_pem()) return error.fail(QxciErrBadCertFile, text.source());
    // Two readers, since the key may stand before the certificates: each passes over the other's.
    const BioPtr certificates = text.open(), key = text.open();
    if (certificates == nullptr || key == nullptr) return error.fail(QxciErrNoMemory);
    return load_certificates(*certificates, text, error) && load_key(*key, text, password, error) &&
           check(text, error);
}

bool Identity::load_certificates(BIO& bio, const PemText& text, qxci::ErrorRecord& error) {
    // Every end of the loop leaves its reason behind, which alone tells the end of the text from a
    // certificate that cannot be read.
    ERR_clear_error();
    _certificate.reset(PEM_read_bio_X509(&bio, nullptr, no_password, nullptr));
    _chain.reset(sk_X509_new_null());
    if (_chain == nullptr) return error.fail(QxciErrNoMemory);
    while (_certificate != nullptr) {
        CertPtr issuer(PEM_read_bio_X509(&bio, nullptr, no_password, nullptr));
        if (issuer == nullptr) break;
        if (sk_X509_push(_chain.get(), issuer.get()) == 0) return error.fail(QxciErrNoMemory);
        static_cast<void>(issuer.release());  // the chain's now
    }
    if (!at_end_of_pem()) return fail_openssl(error, QxciErrBadCertFile, text.source());
    return _certificate != nullptr || error.fail(QxciErrNoCertificates, text.source());
}

bool Identity::load_key(BIO& bio, const PemText& text, const char* password,
                        qxci::ErrorRecord& error) {
    // OpenSSL says of a text without a key what it says of a kind of key that it does not know.
    if (!text.has_key()) return error.fail(QxciErrKeyMissing, text.source());
    ERR_clear_error();
    a_password answer = {password, false};
    _key.reset(PEM_read_bio_PrivateKey(&bio, nullptr, give_password, &answer));
    if (_key != nullptr) return true;
    if (answer.asked) {
        return error.fail(password == nullptr ? QxciErrMissingCertPassword : QxciErrBadCertPassword,
                          text.source());
    }
    return fail_openssl(error, QxciErrBadCertFile, text.source());
}

bool Identity::check(const PemText& text, qxci::ErrorRecord& error) const {
    if (!is_key_type(*_key)) return error.fail(provider_algorithm.wrong_key, text.source());
    if (X509_check_private_key(_certificate.get(), _key.get()) != 1) {
        return fail_openssl(error, QxciErrBadCert, text.source());
    }
    if (judge_dates(*_certificate) == X509_V_OK) return true;
    return error.fail(QxciErrSpecifiedCertExpired, text.source());
}

bool Identity::apply(SSL& ssl, qxci::ErrorRecord& error) const {
    if (!loaded()) return true;
    ERR_clear_error();
    const bool taken = SSL_use_certificate(&ssl, _certificate.get()) == 1 &&
                       SSL_use_PrivateKey(&ssl, _key.get()) == 1 &&
                       SSL_set1_chain(&ssl, _chain.get()) == 1;
    return taken || fail_openssl(error, QxciErrBadCert, _source);
}
