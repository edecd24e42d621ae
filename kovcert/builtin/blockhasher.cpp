#include <variant>

#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/qxci/kit/providerkit.h"
#include "utils/digest/utcrc32.h"
#include "utils/digest/utdigest.h"
#include "utils/etc/utbytes.h"

namespace {

/// The checksum in the form of the digests.
struct CRC32Digest : UTCRC32 {
    static constexpr size_t digest_size = 4;
    static constexpr size_t block_size = 1;
    void end(a_byte* out) const { ut_store_be32(out, value()); }
};

class BlockHasher : public qxci::Object {
  public:
    using a_handle = QXCIBlockHasherH;
    using an_owner = qxci::Environment;
    using Object::Object;

    /// `algorithm` is a name or a number.
    template <class Key>
    a_qxci_result init(Key algorithm) {
        _algorithm = qxci::find_algorithm(builtin_hash_algorithms, algorithm);
        if (_algorithm == nullptr) return fail(QxciErrBadHashAlgorithm);
        start_digest();
        return QXCI_OK;
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }

    size_t hash_size() const {
        return std::visit([](const auto& digest) { return digest.digest_size; }, _digest);
    }

    size_t block_size() const {
        return std::visit([](const auto& digest) { return digest.block_size; }, _digest);
    }

    a_qxci_result begin() {
        start_digest();
        _begun = true;
        return QXCI_OK;
    }

    a_qxci_result add(const a_byte* data, size_t len) {
        if (!_begun) return fail(QxciErrInitError);
        if (data == nullptr && len != 0) return fail(QxciErrOptionError, "data");
        std::visit([&](auto& digest) { digest.add(data, len); }, _digest);
        return QXCI_OK;
    }

    a_qxci_result end(a_byte* out, size_t* out_len) {
        if (!_begun) return fail(QxciErrInitError);
        // Before the digest is ended, so that the caller can ask again with more room.
        if (check_room(out, out_len, hash_size()) != QXCI_OK) return QXCI_ERROR;
        std::visit([&](auto& digest) { digest.end(out); }, _digest);
        _begun = false;
        return QXCI_OK;
    }

  private:
    void start_digest() {
        switch (_algorithm->id) {
        case QXCI_HASH_SHA1:
            _digest.emplace<UTSHA1>();
            break;
        case QXCI_HASH_MD5:
            _digest.emplace<UTMD5>();
            break;
        case QXCI_HASH_CRC32:
            _digest.emplace<CRC32Digest>();
            break;
        default:
            _digest.emplace<UTSHA256>();
        }
    }

    const a_builtin_algorithm* _algorithm = nullptr;
    bool _begun = false;
    std::variant<UTSHA256, UTSHA1, UTMD5, CRC32Digest> _digest;
};

constexpr a_qxci_hash_iface hash_iface = {
    .create_func = qxci::create<BlockHasher, const char*>,
    .create_with_id_func = qxci::create<BlockHasher, a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&BlockHasher::algorithm_id>,
    .get_max_hash_size_func = qxci::entry<&BlockHasher::hash_size>,
    .get_block_size_func = qxci::entry<&BlockHasher::block_size>,
    .begin_hash_func = qxci::entry<&BlockHasher::begin>,
    .add_data_func = qxci::entry<&BlockHasher::add>,
    .end_hash_func = qxci::entry<&BlockHasher::end>,
    .get_last_error_func = qxci::last_error<BlockHasher>,
    .destroy_func = qxci::destroy<BlockHasher>,
};

}  // namespace

a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface) {
    return qxci::fill_table(iface, hash_iface);
}
