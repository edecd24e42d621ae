#include <cstring>
#include <initializer_list>

#include "providers/stub/stubmix.h"
#include "providers/stub/stubobject.h"

namespace {

constexpr const char* known_options[] = {"stub_key", "stub_script", nullptr};

/// A signature is the hash of the key, the kind and the texts: who can verify it can make it.
class StubSigner : public StubObject {
  public:
    using a_handle = QXCISignatureHandlerH;
    using StubObject::StubObject;

    a_qxci_result init(a_qxci_user_option* options) {
        if (prepare(StubOperation::object, options, known_options) != QXCI_OK) return QXCI_ERROR;
        const char* const key = qxci::find_option(options, "stub_key");
        if (key == nullptr) return fail(QxciErrKeyMissing);
        _keyed.add_text(key);
        return QXCI_OK;
    }

    a_qxci_result sign_db(const char* a, const char* b, const char* c, char* out, size_t* out_len) {
        return c != nullptr ? sign(a, b, c, out, out_len) : fail(QxciErrOptionError, "c");
    }
    a_qxci_result sign_conn(const char* a, const char* b, char* out, size_t* out_len) {
        return sign(a, b, nullptr, out, out_len);
    }
    a_qxci_result verify_db(const char* a, const char* b, const char* c, const char* sig,
                            bool* ok) {
        if (ok != nullptr) *ok = false;
        return c != nullptr ? verify(a, b, c, sig, ok) : fail(QxciErrOptionError, "c");
    }
    a_qxci_result verify_conn(const char* a, const char* b, const char* sig, bool* ok) {
        return verify(a, b, nullptr, sig, ok);
    }

  private:
    /// `c` is null for a connection signature.
    a_qxci_result make(const char* a, const char* b, const char* c,
                       char (&text)[StubMix::text_size]) {
        if (a == nullptr || b == nullptr) {
            return fail(QxciErrOptionError, a == nullptr ? "a" : "b");
        }
        StubMix mix = _keyed;
        mix.add_text(c != nullptr ? "db" : "conn");
        for (const char* part : {a, b, c}) {
            if (part != nullptr) mix.add_text(part);
        }
        mix.end_as_text(text);
        return QXCI_OK;
    }

    a_qxci_result sign(const char* a, const char* b, const char* c, char* out, size_t* out_len) {
        char text[StubMix::text_size];
        if (make(a, b, c, text) != QXCI_OK) return QXCI_ERROR;
        if (check_room(out, out_len, sizeof text) != QXCI_OK) return QXCI_ERROR;
        std::memcpy(out, text, sizeof text);
        return QXCI_OK;
    }

    a_qxci_result verify(const char* a, const char* b, const char* c, const char* sig, bool* ok) {
        if (ok == nullptr) return fail(QxciErrOptionError, "ok");
        *ok = false;
        if (sig == nullptr) return fail(QxciErrOptionError, "sig");
        char text[StubMix::text_size];
        if (make(a, b, c, text) != QXCI_OK) return QXCI_ERROR;
        *ok = std::strcmp(sig, text) == 0;
        return QXCI_OK;
    }

    StubMix _keyed;
};

constexpr a_qxci_sig_iface sig_iface = {
    .create_func = qxci::create<StubSigner, a_qxci_user_option*>,
    .create_dbsig_func = stub_work<&StubSigner::sign_db>,
    .create_connsig_func = stub_work<&StubSigner::sign_conn>,
    .verify_dbsig_func = stub_work<&StubSigner::verify_db>,
    .verify_connsig_func = stub_work<&StubSigner::verify_conn>,
    .get_last_error_func = qxci::last_error<StubSigner>,
    .destroy_func = qxci::destroy<StubSigner>,
};

}  // namespace

a_qxci_result QXCIGetSignatureHandlerIface(a_qxci_sig_iface* iface) {
    return qxci::fill_table(iface, sig_iface);
}
