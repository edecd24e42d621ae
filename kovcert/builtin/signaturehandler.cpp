#include <cstring>
#include <initializer_list>

#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinhex.h"
#include "kovcert/qxci/kit/providerkit.h"
#include "utils/digest/utdigest.h"
#include "utils/dss/utdsa.h"
#include "utils/etc/utbytes.h"
#include "utils/utmem/utwipe.h"

namespace {

constexpr const char* known_options[] = {"dsa_p", "dsa_q", "dsa_g", "dsa_x", "dsa_y", nullptr};

// What keeps the two kinds of signature apart.
constexpr const char* database_kind = "QXCI database signature";
constexpr const char* connection_kind = "QXCI connection signature";

/// A number of any number of hex digits, at least one.
bool parse_number(const char* text, UTBigInt& number) {
    while (text[0] == '0' && text[1] != '\0') ++text;
    const size_t digits = std::strlen(text);
    a_wiped_bytes<UTBigInt::max_bits / 4 + 2> padded;
    a_wiped_bytes<UTBigInt::max_bits / 8> bytes;
    if (digits == 0 || digits > 2 * bytes.size) return false;
    // Two digits make a byte, so that an odd number of them gets a zero in front.
    char* const even = reinterpret_cast<char*>(padded.data);
    even[0] = '0';
    std::memcpy(even + digits % 2, text, digits + 1);
    const size_t len = (digits + 1) / 2;
    return parse_hex(even, bytes.data, len) && number.set_bytes(bytes.data, len);
}

void add_with_length(UTSHA1& digest, const char* text) {
    // With its length, so that no two lists of texts come to the same bytes.
    const size_t len = std::strlen(text);
    a_byte prefix[8];
    ut_store_be64(prefix, len);
    digest.add(prefix, sizeof prefix);
    digest.add(text, len);
}

class SignatureHandler : public qxci::Object {
  public:
    using a_handle = QXCISignatureHandlerH;
    using an_owner = qxci::Environment;
    using Object::Object;

    a_qxci_result init(a_qxci_user_option* options) {
        const char* const unknown = qxci::find_unknown_option(options, known_options);
        if (unknown != nullptr) return fail(QxciErrBadOption, unknown);
        UTBigInt p, q, g, x, y;
        const bool has_p = take_number(options, "dsa_p", p);
        const bool has_q = take_number(options, "dsa_q", q);
        const bool has_g = take_number(options, "dsa_g", g);
        const bool has_x = take_number(options, "dsa_x", x);
        const bool has_y = take_number(options, "dsa_y", y);
        if (last_error()->code != QxciErrOK) return QXCI_ERROR;
        if (!has_p || !has_q || !has_g || !(has_x || has_y)) return fail(QxciErrKeyMissing);
        if (!_dsa.set_domain(p, q, g)) return fail(QxciErrOptionError, "dsa_p");
        // In this order: the private key is held against the public one that is there.
        if (has_y && !_dsa.set_public_key(y)) return fail(QxciErrOptionError, "dsa_y");
        if (has_x && !_dsa.set_private_key(x)) return fail(QxciErrOptionError, "dsa_x");
        return QXCI_OK;
    }

    a_qxci_result sign_database(const char* a, const char* b, const char* c, char* out,
                                size_t* out_len) {
        return sign({database_kind, a, b, c}, out, out_len);
    }
    a_qxci_result sign_connection(const char* a, const char* b, char* out, size_t* out_len) {
        return sign({connection_kind, a, b}, out, out_len);
    }
    a_qxci_result verify_database(const char* a, const char* b, const char* c, const char* sig,
                                  bool* ok) {
        return verify({database_kind, a, b, c}, sig, ok);
    }
    a_qxci_result verify_connection(const char* a, const char* b, const char* sig, bool* ok) {
        return verify({connection_kind, a, b}, sig, ok);
    }

  private:
    /// The kind of signature, then the owner's texts.
    using a_text_list = std::initializer_list<const char*>;

    a_qxci_result sign(a_text_list texts, char* out, size_t* out_len) {
        a_byte digest[UTSHA1::digest_size], signature[UTDSA::max_signature_size];
        if (hash(texts, digest) != QXCI_OK) return QXCI_ERROR;
        if (!_dsa.can_sign()) return fail(QxciErrKeyMissing);
        const size_t len = _dsa.signature_size();
        if (check_room(out, out_len, 2 * len + 1) != QXCI_OK) return QXCI_ERROR;
        _dsa.sign(digest, signature);
        *format_hex(out, signature, len) = '\0';
        return QXCI_OK;
    }

    a_qxci_result verify(a_text_list texts, const char* sig, bool* ok) {
        if (ok == nullptr) return fail(QxciErrOptionError, "ok");
        // Whoever looks at nothing else takes a failure for a signature that is wrong.
        *ok = false;
        a_byte digest[UTSHA1::digest_size], signature[UTDSA::max_signature_size];
        if (hash(texts, digest) != QXCI_OK) return QXCI_ERROR;
        if (sig == nullptr) return fail(QxciErrOptionError, "sig");
        *ok = parse_hex(sig, signature, _dsa.signature_size()) && _dsa.verify(digest, signature);
        return QXCI_OK;
    }

    /// False when there is no such option. One whose value is no number is a failure.
    bool take_number(a_qxci_user_option* options, const char* name, UTBigInt& number) {
        const char* const text = qxci::find_option(options, name);
        if (text == nullptr) return false;
        if (!parse_number(text, number)) fail(QxciErrOptionError, name);
        return true;
    }

    a_qxci_result hash(a_text_list texts, a_byte* out) {
        static constexpr const char* names[] = {"kind", "a", "b", "c"};
        UTSHA1 digest;
        const char* const* name = names;
        for (const char* text : texts) {
            if (text == nullptr) return fail(QxciErrOptionError, *name);
            add_with_length(digest, text);
            ++name;
        }
        digest.end(out);
        return QXCI_OK;
    }

    UTDSA _dsa;  // has a public key whenever it has a private one
};

constexpr a_qxci_sig_iface sig_iface = {
    .create_func = qxci::create<SignatureHandler, a_qxci_user_option*>,
    .create_dbsig_func = qxci::entry<&SignatureHandler::sign_database>,
    .create_connsig_func = qxci::entry<&SignatureHandler::sign_connection>,
    .verify_dbsig_func = qxci::entry<&SignatureHandler::verify_database>,
    .verify_connsig_func = qxci::entry<&SignatureHandler::verify_connection>,
    .get_last_error_func = qxci::last_error<SignatureHandler>,
    .destroy_func = qxci::destroy<SignatureHandler>,
};

}  // namespace

a_qxci_result QXCIGetSignatureHandlerIface(a_qxci_sig_iface* iface) {
    return qxci::fill_table(iface, sig_iface);
}
