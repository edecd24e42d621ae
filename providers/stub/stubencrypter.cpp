#include <cstring>

#include "providers/stub/stubalgorithms.h"
#include "providers/stub/stubobject.h"

namespace {

constexpr size_t block_size = 16;
constexpr size_t max_key = 32;
constexpr const char* known_options[] = {"iv", "stub_script", nullptr};

/// Exclusive-or with the key, again and again; encryption and decryption are the same.
class StubEncrypter : public StubObject {
  public:
    using a_handle = QXCIBlockEncrypterH;
    using StubObject::StubObject;

    template <class Key>
    a_qxci_result init(Key algorithm, const a_qxci_byte* key, size_t key_len,
                       a_qxci_user_option* options) {
        if (prepare(StubOperation::object, options, known_options) != QXCI_OK) return QXCI_ERROR;
        _algorithm = qxci::find_algorithm(stub_encrypters, algorithm);
        if (_algorithm == nullptr) return fail(QxciErrBadEncryptionAlgorithm);
        if (key == nullptr || key_len == 0) return fail(QxciErrKeyMissing);
        if (key_len != _algorithm->size) return fail(QxciErrOptionError, "key");
        std::memcpy(_key, key, key_len);
        return QXCI_OK;
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }

    a_qxci_result encrypt(a_qxci_byte* data, size_t len, unsigned flags) {
        return apply_key(_encrypted, data, len, flags);
    }
    a_qxci_result decrypt(a_qxci_byte* data, size_t len, unsigned flags) {
        return apply_key(_decrypted, data, len, flags);
    }

  private:
    a_qxci_result apply_key(size_t& position, a_qxci_byte* data, size_t len, unsigned flags) {
        if ((flags & ~unsigned{QXCI_ENC_CONTINUE}) != 0) return fail(QxciErrBadOption, "flags");
        if (data == nullptr && len != 0) return fail(QxciErrOptionError, "data");
        if (len % block_size != 0) return fail(QxciErrOptionError, "len");
        if ((flags & QXCI_ENC_CONTINUE) == 0) position = 0;
        for (size_t i = 0; i < len; ++i) data[i] ^= _key[position++ % _algorithm->size];
        return QXCI_OK;
    }

    const a_stub_algorithm* _algorithm = nullptr;
    a_qxci_byte _key[max_key] = {};
    size_t _encrypted = 0;  // bytes, since a message began
    size_t _decrypted = 0;
};

template <class Key>
constexpr auto create =
    qxci::create<StubEncrypter, Key, const a_qxci_byte*, size_t, a_qxci_user_option*>;

constexpr a_qxci_enc_iface enc_iface = {
    .create_func = create<const char*>,
    .create_with_id_func = create<a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&StubEncrypter::algorithm_id>,
    .encrypt_func = stub_work<&StubEncrypter::encrypt>,
    .decrypt_func = stub_work<&StubEncrypter::decrypt>,
    .get_block_size_func = [](QXCIBlockEncrypterH) { return block_size; },
    .get_last_error_func = qxci::last_error<StubEncrypter>,
    .destroy_func = qxci::destroy<StubEncrypter>,
};

}  // namespace

a_qxci_result QXCIGetBlockEncrypterIface(a_qxci_enc_iface* iface) {
    return qxci::fill_table(iface, enc_iface);
}
