#include "providers/openssl/algorithm.h"
#include "providers/openssl/tlsconn.h"

namespace {

template <class Key>
bool has_stream(QXCIEnvironmentH, Key key) {
    return qxci::is_algorithm(provider_algorithm, key);
}

constexpr a_qxci_env_iface env_iface = {
    .create_func = qxci::create_environment<ProviderEnv>,
    .destroy_func = qxci::destroy_environment<ProviderEnv>,
    .stream_alg_func = has_stream<const char*>,
    .stream_alg_id_func = has_stream<a_qxci_byte>,
    .block_enc_alg_func = qxci::has_no_algorithm<const char*>,
    .block_enc_alg_id_func = qxci::has_no_algorithm<a_qxci_byte>,
    .block_hash_alg_func = qxci::has_no_algorithm<const char*>,
    .block_hash_alg_id_func = qxci::has_no_algorithm<a_qxci_byte>,
    .pw_hash_alg_func = qxci::has_no_algorithm<const char*>,
    .pw_hash_alg_id_func = qxci::has_no_algorithm<a_qxci_byte>,
};

constexpr a_qxci_error_iface error_iface = {.destroy_func = qxci::destroy_error<ProviderEnv>};

template <class Key>
constexpr auto create_stream = qxci::create<TlsStream, const a_qxci_stream_callbacks*, void*, Key>;

constexpr a_qxci_stream_iface stream_iface = {
    .create_func = create_stream<const char*>,
    .create_with_id_func = create_stream<a_qxci_byte>,
    .init_func = qxci::entry<&TlsStream::start>,
    .get_algorithm_id_func = qxci::entry<&TlsStream::algorithm_id>,
    .fini_func = qxci::entry<&TlsStream::finish>,
    .get_last_error_func = qxci::last_error<TlsStream>,
    .destroy_func = qxci::destroy<TlsStream>,
    .is_synchronous_func = [](QXCIStreamH) { return true; },
};

constexpr a_qxci_conn_iface conn_iface = {
    .create_func = qxci::create<TlsConn, const a_qxci_conn_callbacks*, a_qxci_user_option*, void*>,
    .read_func = qxci::entry<&TlsConn::read>,
    .write_func = qxci::entry<&TlsConn::write>,
    .flush_writes_func = qxci::entry<&TlsConn::flush>,
    .get_last_error_func = qxci::last_error<TlsConn>,
    .destroy_func = qxci::destroy<TlsConn>,
};

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

a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface) {
    return qxci::fill_table(iface, stream_iface);
}

a_qxci_result QXCIGetStreamConnIface(a_qxci_conn_iface* iface) {
    return qxci::fill_table(iface, conn_iface);
}
