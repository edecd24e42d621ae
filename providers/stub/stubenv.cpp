#include "providers/stub/stubalgorithms.h"
#include "providers/stub/stubobject.h"

namespace {

constexpr a_qxci_env_iface env_iface = {
    .create_func = qxci::create_environment<StubEnv>,
    .destroy_func = qxci::destroy_environment<StubEnv>,
    .stream_alg_func = qxci::has_algorithm<stub_streams, const char*>,
    .stream_alg_id_func = qxci::has_algorithm<stub_streams, a_qxci_byte>,
    .block_enc_alg_func = qxci::has_algorithm<stub_encrypters, const char*>,
    .block_enc_alg_id_func = qxci::has_algorithm<stub_encrypters, a_qxci_byte>,
    .block_hash_alg_func = qxci::has_algorithm<stub_hashers, const char*>,
    .block_hash_alg_id_func = qxci::has_algorithm<stub_hashers, a_qxci_byte>,
    .pw_hash_alg_func = qxci::has_algorithm<stub_pw_hashers, const char*>,
    .pw_hash_alg_id_func = qxci::has_algorithm<stub_pw_hashers, a_qxci_byte>,
};

constexpr a_qxci_error_iface error_iface = {.destroy_func = qxci::destroy_error<StubEnv>};

}  // namespace

a_qxci_version QXCIGetVersion() {
    return {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    return qxci::fill_table(iface, env_iface);
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    return qxci::fill_table(iface, error_iface);
}
