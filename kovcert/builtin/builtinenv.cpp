#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/builtin/builtinerror.h"
#include "kovcert/qxci/kit/providerkit.h"

namespace {

constexpr a_qxci_env_iface env_iface = {
    .create_func = qxci::create_environment<qxci::Environment>,
    .destroy_func = qxci::destroy_environment<qxci::Environment>,
    .stream_alg_func = qxci::has_no_algorithm<const char*>,
    .stream_alg_id_func = qxci::has_no_algorithm<a_qxci_byte>,
    .block_enc_alg_func = qxci::has_algorithm<builtin_enc_algorithms, const char*>,
    .block_enc_alg_id_func = qxci::has_algorithm<builtin_enc_algorithms, a_qxci_byte>,
    .block_hash_alg_func = qxci::has_algorithm<builtin_hash_algorithms, const char*>,
    .block_hash_alg_id_func = qxci::has_algorithm<builtin_hash_algorithms, a_qxci_byte>,
    .pw_hash_alg_func = qxci::has_algorithm<builtin_pw_hash_algorithms, const char*>,
    .pw_hash_alg_id_func = qxci::has_algorithm<builtin_pw_hash_algorithms, a_qxci_byte>,
};

constexpr a_qxci_error_iface error_iface = {.destroy_func = QXCIError_Destroy};

}  // namespace

a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
    return qxci::fill_table(iface, env_iface);
}

a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
    return qxci::fill_table(iface, error_iface);
}
