#include <cstring>

#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/builtin/builtinhex.h"
#include "kovcert/qxci/kit/providerkit.h"
#include "utils/aes/utaes.h"

namespace {

constexpr const char* known_options[] = {"iv", nullptr};

class BlockEncrypter : public qxci::Object {
  public:
    using a_handle = QXCIBlockEncrypterH;
    using an_owner = qxci::Environment;
    using Object::Object;

    /// `algorithm` is a name or a number.
    template <class Key>
    a_qxci_result init(Key algorithm, const a_byte* key, size_t key_len,
                       a_qxci_user_option* options) {
        _algorithm = qxci::find_algorithm(builtin_enc_algorithms, algorithm);
        if (_algorithm == nullptr) return fail(QxciErrBadEncryptionAlgorithm);
        if (key == nullptr || key_len == 0) return fail(QxciErrKeyMissing);
        // The cipher, not the key, says how long a key is: AES itself takes both lengths.
        const size_t wanted = _algorithm->id == QXCI_ENC_AES128 ? 16 : 32;
        if (key_len != wanted || !_aes.set_key(key, key_len)) {
            return fail(QxciErrOptionError, "key");
        }
        return take_options(options);
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }

    a_qxci_result encrypt(a_byte* data, size_t len, unsigned flags) {
        if (check(data, len, flags) != QXCI_OK) return QXCI_ERROR;
        if ((flags & QXCI_ENC_CONTINUE) == 0) std::memcpy(_encrypted_to, _iv, sizeof _iv);
        _aes.encrypt_cbc(_encrypted_to, data, len);
        return QXCI_OK;
    }

    a_qxci_result decrypt(a_byte* data, size_t len, unsigned flags) {
        if (check(data, len, flags) != QXCI_OK) return QXCI_ERROR;
        if ((flags & QXCI_ENC_CONTINUE) == 0) std::memcpy(_decrypted_to, _iv, sizeof _iv);
        _aes.decrypt_cbc(_decrypted_to, data, len);
        return QXCI_OK;
    }

  private:
    a_qxci_result take_options(a_qxci_user_option* options) {
        const char* const unknown = qxci::find_unknown_option(options, known_options);
        if (unknown != nullptr) return fail(QxciErrBadOption, unknown);
        const char* const iv = qxci::find_option(options, "iv");
        if (iv != nullptr && !parse_hex(iv, _iv, sizeof _iv)) {
            return fail(QxciErrOptionError, "iv");
        }
        std::memcpy(_encrypted_to, _iv, sizeof _iv);
        std::memcpy(_decrypted_to, _iv, sizeof _iv);
        return QXCI_OK;
    }

    a_qxci_result check(const a_byte* data, size_t len, unsigned flags) {
        if ((flags & ~unsigned{QXCI_ENC_CONTINUE}) != 0) return fail(QxciErrBadOption, "flags");
        if (data == nullptr && len != 0) return fail(QxciErrOptionError, "data");
        if (len % UTAES::block_size != 0) return fail(QxciErrOptionError, "len");
        return QXCI_OK;
    }

    const a_builtin_algorithm* _algorithm = nullptr;
    UTAES _aes;
    a_byte _iv[UTAES::block_size] = {};
    a_byte _encrypted_to[UTAES::block_size];  // what a call that continues goes on from
    a_byte _decrypted_to[UTAES::block_size];
};

template <class Key>
constexpr auto create =
    qxci::create<BlockEncrypter, Key, const a_byte*, size_t, a_qxci_user_option*>;

constexpr a_qxci_enc_iface enc_iface = {
    .create_func = create<const char*>,
    .create_with_id_func = create<a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&BlockEncrypter::algorithm_id>,
    .encrypt_func = qxci::entry<&BlockEncrypter::encrypt>,
    .decrypt_func = qxci::entry<&BlockEncrypter::decrypt>,
    .get_block_size_func = [](QXCIBlockEncrypterH) { return UTAES::block_size; },
    .get_last_error_func = qxci::last_error<BlockEncrypter>,
    .destroy_func = qxci::destroy<BlockEncrypter>,
};

}  // namespace

a_qxci_result QXCIGetBlockEncrypterIface(a_qxci_enc_iface* iface) {
    return qxci::fill_table(iface, enc_iface);
}
