#include "providers/stub/stubstream.h"

namespace {

template <class Key>
constexpr auto create = qxci::create<StubStream, const a_qxci_stream_callbacks*, void*, Key>;

constexpr a_qxci_stream_iface stream_iface = {
    .create_func = create<const char*>,
    .create_with_id_func = create<a_qxci_byte>,
    .init_func = qxci::entry<&StubStream::start>,
    .get_algorithm_id_func = qxci::entry<&StubStream::algorithm_id>,
    .fini_func = qxci::entry<&StubStream::finish>,
    .get_last_error_func = qxci::last_error<StubStream>,
    .destroy_func = qxci::destroy<StubStream>,
    .is_synchronous_func = [](QXCIStreamH) { return true; },
};

}  // namespace

a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface) {
    return qxci::fill_table(iface, stream_iface);
}
