#include "providers/openssl/providerenv.h"
#include "providers/openssl/tlsconn.h"

namespace {

void destroy_error(QXCIEnvironmentH env, a_qxci_error* error) {
    ErrorRecord::destroy(ProviderEnv::of(env)->memory, error);
}

constexpr a_qxci_error_iface error_iface = {.destroy_func = destroy_error};

template <class Iface>
a_qxci_result fill(Iface* iface, const Iface& entries) {
    if (iface == nullptr) return QXCI_ERROR;
    *iface = entries;
    return QXCI_OK;
}

}  // namespace

a_qxci_version QXCIGetVersion() {
    return {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
}

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    return fill(iface, env_iface);
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    return fill(iface, error_iface);
}

a_qxci_result QXCIGetStreamIface(a_qxci_stream_iface* iface) {
    return fill(iface, stream_iface);
}

a_qxci_result QXCIGetStreamConnIface(a_qxci_conn_iface* iface) {
    return fill(iface, conn_iface);
}
