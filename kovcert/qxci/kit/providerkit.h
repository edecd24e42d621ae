#ifndef QUOREL_KOVCERT_QXCI_KIT_PROVIDERKIT_H
#define QUOREL_KOVCERT_QXCI_KIT_PROVIDERKIT_H

/// The provider kit: what every provider written in C++20 needs besides its cryptography. It is
/// optional, consists of headers only, and needs no more than qxci.h, the C++ standard library and
/// the C library. It throws nothing and takes all memory from the owner's callbacks.
///
///   memory.h       Memory, the owner's memory and log
///   errorrecord.h  ErrorRecord, the reason for a failure; parmlist.h, its parameters
///   environment.h  Environment, what a provider creates its objects in
///   object.h       Object, what hashers, encrypters, streams, connections derive from; create
///                  and destroy, the entries that begin and end them
///   tables.h       entry<&Class::method>, the entries between these; fill_table for the getters
///   algorithms.h   algorithms by number and by name
///   options.h      lists of options; names.h, names without regard to case
///
/// A whole provider, of a hash that adds bytes up:
///
///     #include "kovcert/qxci/kit/providerkit.h"
///
///     namespace {
///
///     struct an_algorithm {
///         a_qxci_byte id;
///         const char* names[1];
///     };
///     constexpr an_algorithm algorithms[] = {{254, {"SUM"}}};
///
///     class Sum : public qxci::Object {
///       public:
///         using a_handle = QXCIBlockHasherH;
///         using an_owner = qxci::Environment;
///         using Object::Object;
///
///         template <class Key>  // by number or by name
///         a_qxci_result init(Key key) {
///             const bool known = qxci::find_algorithm(algorithms, key) != nullptr;
///             return known ? QXCI_OK : fail(QxciErrBadHashAlgorithm);
///         }
///         a_qxci_byte algorithm_id() const { return 254; }
///         size_t size() const { return 1; }
///
///         a_qxci_result begin() {
///             _begun = true;
///             _sum = 0;
///             return QXCI_OK;
///         }
///         a_qxci_result add(const a_qxci_byte* data, size_t len) {
///             if (!_begun) return fail(QxciErrInitError);
///             for (size_t i = 0; i < len; ++i) _sum = static_cast<a_qxci_byte>(_sum + data[i]);
///             return QXCI_OK;
///         }
///         a_qxci_result end(a_qxci_byte* out, size_t* out_len) {
///             if (!_begun) return fail(QxciErrInitError);
///             if (check_room(out, out_len, 1) != QXCI_OK) return QXCI_ERROR;
///             *out = _sum;
///             _begun = false;
///             return QXCI_OK;
///         }
///
///       private:
///         bool _begun = false;
///         a_qxci_byte _sum = 0;
///     };
///
///     }  // namespace
///
///     a_qxci_version QXCIGetVersion() {
///         return {QXCI_API_MAJOR, QXCI_API_MINOR, QXCI_IMPL_ID, 1};
///     }
///
///     a_qxci_result QXCIGetEnvIface(a_qxci_env_iface* iface) {
///         a_qxci_env_iface entries = {};
///         entries.create_func = qxci::create_environment<qxci::Environment>;
///         entries.destroy_func = qxci::destroy_environment<qxci::Environment>;
///         entries.block_hash_alg_func = qxci::has_algorithm<algorithms, const char*>;
///         entries.block_hash_alg_id_func = qxci::has_algorithm<algorithms, a_qxci_byte>;
///         return qxci::fill_table(iface, entries);
///     }
///
///     a_qxci_result QXCIGetErrorIface(a_qxci_error_iface* iface) {
///         return qxci::fill_table(
///             iface, {.destroy_func = qxci::destroy_error<qxci::Environment>});
///     }
///
///     a_qxci_result QXCIGetBlockHasherIface(a_qxci_hash_iface* iface) {
///         constexpr a_qxci_hash_iface entries = {
///             .create_func = qxci::create<Sum, const char*>,
///             .create_with_id_func = qxci::create<Sum, a_qxci_byte>,
///             .get_algorithm_id_func = qxci::entry<&Sum::algorithm_id>,
///             .get_max_hash_size_func = qxci::entry<&Sum::size>,
///             .get_block_size_func = qxci::entry<&Sum::size>,
///             .begin_hash_func = qxci::entry<&Sum::begin>,
///             .add_data_func = qxci::entry<&Sum::add>,
///             .end_hash_func = qxci::entry<&Sum::end>,
///             .get_last_error_func = qxci::last_error<Sum>,
///             .destroy_func = qxci::destroy<Sum>,
///         };
///         return qxci::fill_table(iface, entries);
///     }
///
/// Build it as a shared library without exceptions and RTTI, with the C++ library linked in and
/// nothing exported but the entry points, for which providers/exports.map is the version script
/// (in CMake, quorel::kit has the headers and the language's version):
///
///     g++ -std=c++20 -fno-exceptions -fno-rtti -fPIC -shared -static-libstdc++ -static-libgcc
///         -Wl,-z,defs -Wl,--version-script,providers/exports.map -I . -o libsum.so sum.cpp
///
/// Hidden visibility is not enough: the C++ library's own symbols would still be exported, into
/// somebody else's process, and some of them keep the file mapped when the owner unloads it. A
/// provider that is unloaded leaves nothing behind, no threads, no handlers, no memory of the C++
/// library's (std::mutex brings its reserve for exceptions along).

#if __cplusplus < 202002L
#error "The provider kit needs C++20: -std=c++20, or quorel::kit in CMake."
#endif

#include "kovcert/qxci/kit/algorithms.h"
#include "kovcert/qxci/kit/object.h"
#include "kovcert/qxci/kit/options.h"

#endif
