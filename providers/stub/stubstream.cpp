#include "providers/stub/stubstream.h"

#include "providers/stub/qxcistub.h"

namespace {

constexpr a_qxci_stream_iface stream_iface = {
    .create_func = [](QXCIEnvironmentH env, const a_qxci_stream_callbacks*, void*, const char* name,
                      a_qxci_error* error) { return stub_create<StubStream>(env, error, name); },
    .create_with_id_func =
        [](QXCIEnvironmentH env, const a_qxci_stream_callbacks*, void*, a_qxci_byte id,
           a_qxci_error* error) { return stub_create<StubStream>(env, error, id); },
    .init_func =
        [](QXCIStreamH stream, a_qxci_side side, a_qxci_user_option* options) {
            return stub_operate<StubStream>(stream).start(side, options);
        },
    .get_algorithm_id_func = stub_algorithm_id<StubStream>,
    .fini_func = [](QXCIStreamH stream) { return stub_operate<StubStream>(stream).finish(); },
    .get_last_error_func = stub_last_error<StubStream>,
    .destroy_func = stub_destroy<StubStream>,
    .is_synchronous_func = [](QXCIStreamH) { return true; },
};

}  // namespace

a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface) {
    return stub_fill(iface, stream_iface);
}
