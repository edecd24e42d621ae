#include <cstring>

#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/builtin/builtinobject.h"
#include "kovcert/builtin/builtintext.h"
#include "utils/aes/utaes.h"

namespace {

constexpr const char* known_options[] = {"iv", nullptr};

class BlockEncrypter : public BuiltinObject {
  public:
    using a_handle = QXCIBlockEncrypterH;
    using BuiltinObject::BuiltinObject;

    /// `algorithm` is a name or a number.
    template <class Key>
    a_qxci_result init(Key algorithm, const a_byte* key, size_t key_len,
                       a_qxci_user_option* options) {
        _algorithm = find_algorithm(builtin_enc_algorithms, algorithm);
        if (_algorithm == nullptr) return fail(QxciErrBadEncryptionAlgorithm);
        if (key == nullptr || key_len == 0) return fail(QxciErrKeyMissing);
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
        const char* const unknown = find_unknown_option(options, known_options);
        if (unknown != nullptr) return fail(QxciErrBadOption, unknown);
        const char* const iv = find_option(options, "iv");
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

constexpr a_qxci_enc_iface enc_iface = {
    .create_func =
        [](QXCIEnvironmentH env, const char* name, const a_qxci_byte* key, size_t key_len,
           a_qxci_user_option* options, a_qxci_error* error) {
            return create_object<BlockEncrypter>(env, error, name, key, key_len, options);
        },
    .create_with_id_func =
        [](QXCIEnvironmentH env, a_qxci_byte id, const a_qxci_byte* key, size_t key_len,
           a_qxci_user_option* options, a_qxci_error* error) {
            return create_object<BlockEncrypter>(env, error, id, key, key_len, options);
        },
    .get_algorithm_id_func = object_algorithm_id<BlockEncrypter>,
    .encrypt_func =
        [](QXCIBlockEncrypterH encrypter, a_qxci_byte* data, size_t len, unsigned flags) {
            return operate_on<BlockEncrypter>(encrypter).encrypt(data, len, flags);
        },
    .decrypt_func =
        [](QXCIBlockEncrypterH encrypter, a_qxci_byte* data, size_t len, unsigned flags) {
            return operate_on<BlockEncrypter>(encrypter).decrypt(data, len, flags);
        },
    .get_block_size_func = [](QXCIBlockEncrypterH) { return UTAES::block_size; },
    .get_last_error_func = object_last_error<BlockEncrypter>,
    .destroy_func = destroy_object<BlockEncrypter>,
};

}  // namespace

a_qxci_result QXCIGetBlockEncrypterIface(a_qxci_enc_iface* iface) {
    return fill_iface(iface, enc_iface);
}
