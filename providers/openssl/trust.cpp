#include "providers/openssl/trust.h"

#include <cerrno>
#include <cstring>

#include "providers/openssl/opensslerror.h"
#include "providers/openssl/pemtext.h"

namespace {

/// OpenSSL sorts its store anew for each certificate, so that a file of tens of thousands, which
/// may still be short enough, takes minutes.
constexpr int most_certificates = 4096;

bool is_full(const X509_STORE& store) {
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(&store)) >= most_certificates;
}

bool add(X509_STORE& store, CertPtr certificate, const PemText& text, qxci::ErrorRecord& error) {
    if (certificate == nullptr) return fail_openssl(error, QxciErrBadCertFile, text.source());
    if (is_full(store)) return error.fail(QxciErrBadCertFile, text.source(), E2BIG);
    if (X509_STORE_add_cert(&store, certificate.get()) == 1) return true;
    return fail_openssl(error, QxciErrOpenSSLError, text.source());
}

bool add_pem(X509_STORE& store, const PemText& text, BIO& bio, qxci::ErrorRecord& error) {
    for (int count = 0;; ++count) {
        CertPtr certificate(PEM_read_bio_X509(&bio, nullptr, no_password, nullptr));
        if (certificate == nullptr && at_end_of_pem()) {
            return count > 0 || error.fail(QxciErrNoCertificates, text.source());
        }
        if (!add(store, std::move(certificate), text, error)) return false;
    }
}

bool add_der(X509_STORE& store, const PemText& text, BIO& bio, qxci::ErrorRecord& error) {
    if (!add(store, CertPtr(d2i_X509_bio(&bio, nullptr)), text, error)) return false;
    // Bytes behind the certificate of a DER file say that it is not what it seems to be.
    return BIO_pending(&bio) == 0 || error.fail(QxciErrBadCertFile, text.source());
}

bool add_all(X509_STORE& store, const PemText& text, qxci::ErrorRecord& error) {
    if (text.empty()) return error.fail(QxciErrNoCertificates, text.source());
    const BioPtr bio = text.open();
    if (bio == nullptr) return error.fail(QxciErrNoMemory);
    ERR_clear_error();  // for at_end_of_pem(), which looks at the newest
    return text.is_pem() ? add_pem(store, text, *bio, error) : add_der(store, text, *bio, error);
}

bool add_file(X509_STORE& store, const qxci::Memory& memory, const char* file,
              qxci::ErrorRecord& error) {
    PemText text(memory);
    return text.read_file(file, error) && add_all(store, text, error);
}

/// `files` has ";" between the names.
bool add_files(X509_STORE& store, const qxci::Memory& memory, const char* files,
               qxci::ErrorRecord& error) {
    char* const names = memory.copy(files);
    if (names == nullptr) return error.fail(QxciErrNoMemory);
    bool found = false, done = true;
    char* rest = nullptr;
    for (char* file = strtok_r(names, ";", &rest); done && file != nullptr;
         file = strtok_r(nullptr, ";", &rest)) {
        found = true;
        done = add_file(store, memory, file, error);
    }
    memory.free(names);
    return found ? done : error.fail(QxciErrNoCertificates, files);
}

bool add_setting(X509_STORE& store, const qxci::Memory& memory, const a_setting_value& setting,
                 qxci::ErrorRecord& error) {
    if (setting.form == FORM_FILE) return add_file(store, memory, setting.text, error);
    if (setting.form == FORM_FILES) return add_files(store, memory, setting.text, error);
    PemText text(memory);
    return text.set(setting.text, setting.option, error) && add_all(store, text, error);
}

}  // namespace

StorePtr load_trust(const qxci::Memory& memory, const a_setting_value& setting,
                    qxci::ErrorRecord& error) {
    StorePtr store(X509_STORE_new());
    if (store == nullptr) {
        error.fail(QxciErrNoMemory);
        return nullptr;
    }
    if (!add_setting(*store, memory, setting, error)) return nullptr;
    return store;
}
