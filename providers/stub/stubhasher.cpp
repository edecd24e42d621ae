#include "providers/stub/stubalgorithms.h"
#include "providers/stub/stubmix.h"
#include "providers/stub/stubobject.h"

namespace {

class StubHasher : public StubObject {
  public:
    using a_handle = QXCIBlockHasherH;
    using StubObject::StubObject;

    template <class Key>
    a_qxci_result init(Key algorithm) {
        if (prepare(StubOperation::object) != QXCI_OK) return QXCI_ERROR;
        _algorithm = qxci::find_algorithm(stub_hashers, algorithm);
        return _algorithm != nullptr ? QXCI_OK : fail(QxciErrBadHashAlgorithm);
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }
    size_t hash_size() const { return _algorithm->size; }

    a_qxci_result begin() {
        _mix = {};
        _mix.add(&_algorithm->id, 1);
        _begun = true;
        return QXCI_OK;
    }

    a_qxci_result add(const a_qxci_byte* data, size_t len) {
        if (!_begun) return fail(QxciErrInitError);
        if (data == nullptr && len != 0) return fail(QxciErrOptionError, "data");
        _mix.add(data, len);
        return QXCI_OK;
    }

    a_qxci_result end(a_qxci_byte* out, size_t* out_len) {
        if (!_begun) return fail(QxciErrInitError);
        if (check_room(out, out_len, hash_size()) != QXCI_OK) return QXCI_ERROR;
        _mix.end(out, hash_size());
        _begun = false;
        return QXCI_OK;
    }

  private:
    const a_stub_algorithm* _algorithm = nullptr;
    bool _begun = false;
    StubMix _mix;
};

constexpr a_qxci_hash_iface hash_iface = {
    .create_func = qxci::create<StubHasher, const char*>,
    .create_with_id_func = qxci::create<StubHasher, a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&StubHasher::algorithm_id>,
    .get_max_hash_size_func = qxci::entry<&StubHasher::hash_size>,
    .get_block_size_func = [](QXCIBlockHasherH) { return size_t{1}; },
    .begin_hash_func = stub_work<&StubHasher::begin>,
    .add_data_func = stub_work<&StubHasher::add>,
    .end_hash_func = stub_work<&StubHasher::end>,
    .get_last_error_func = qxci::last_error<StubHasher>,
    .destroy_func = qxci::destroy<StubHasher>,
};

}  // namespace

a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface) {
    return qxci::fill_table(iface, hash_iface);
}
