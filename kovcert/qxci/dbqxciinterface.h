#ifndef QUOREL_KOVCERT_QXCI_DBQXCIINTERFACE_H
#define QUOREL_KOVCERT_QXCI_DBQXCIINTERFACE_H

/// One loaded provider: which file a kind of provider is in, how the file is opened and checked,
/// and the tables of functions that it fills.

#include "kovcert/qxci/qxci.h"
#include "utils/contain/utrefobj.h"
#include "utils/etc/uttypes.h"
#include "utils/unix/utmutex.h"

class DBQXCIError;
struct a_qxci_entry_points;

/// The kinds of provider.
enum a_qxci_dll_type : uint32 {
    QXCI_DLL_BASIC = 0,  ///< the built-in provider, no file
    QXCI_DLL_ECC = 1,
    QXCI_DLL_RSA = 2,
    QXCI_DLL_FIPS = 3,
    QXCI_DLL_OTHER = 4,  ///< a library that the owner names
};

/// The slots of an environment, one provider each.
enum _iface_index : uint32 {
    STATIC_IFACE = 0,
    RSA_IFACE = 1,
    ECC_IFACE = 2,
    FIPS_IFACE = 3,
    OTHER_IFACE = 4,
    MAX_IFACE_INDEX = 4,
};

/// The files. All are bare names, which the file locator (utils/unix/locate.h) finds.
inline constexpr const char* QXCI_ECC_DLL_NAME = "libnxecc12_r.so";
inline constexpr const char* QXCI_RSA_DLL_NAME = "libnxrsa12_r.so";
inline constexpr const char* QXCI_FIPS_DLL_NAME = "libnxfips12_r.so";
inline constexpr const char* QXCI_STUB_DLL_NAME = "libqxcistub_r.so";
/// Has to be there beside the FIPS library, and is not opened here.
inline constexpr const char* QXCI_FIPS_COMPANION_DLL_NAME = "libnxgse2.so";

/// A provider and its tables. A table that the provider does not offer holds null pointers, and so
/// do all of them before Load() and after Unload(). The environment holds one reference, and so
/// does every object made from the provider: the tables can be asked even after the environment is
/// done.
///
/// Threads: loading, unloading and the tables belong to one thread at a time. Objects may be
/// destroyed, and references released, on any thread, also while Finish() runs: either the object
/// is destroyed before the provider goes, or it comes too late and nothing is called any more.
class DBQXCIInterface : public c_utils_refobj {
  public:
    DBQXCIInterface() = default;
    /// Closes the library, if that is still open.
    ~DBQXCIInterface() override { Unload(); }

    /// Opens the library for `type`, checks it and fills the tables; for QXCI_DLL_BASIC takes the
    /// built-in provider's. `dll_name` is the library's bare name for QXCI_DLL_OTHER and values
    /// above; null: the stub's. An object that has been loaded before stays as it is, whatever the
    /// arguments, and the answer is true.
    ///
    /// When it fails, the library is closed, and `err` says why:
    ///
    ///   QxciErrMissingDll         not found, not to be opened, an entry point missing, or a getter
    ///                             failed; the name twice, as parameters 1 and 2
    ///   QxciErrFipsNotAvailable   the same for QXCI_DLL_FIPS; the name once
    ///   QxciErrDllMismatch        not of version 1.7 with impl_id 0
    ///
    /// A getter of the built-in provider that fails leaves the object loaded but not valid, and
    /// `err` untouched.
    a_bool Load(a_qxci_dll_type type, const char* dll_name, DBQXCIError* err);

    /// Closes the library and clears the tables; GetVersion() still tells what it was. For a
    /// provider that has no environment, or none any more, and hence no objects. Returns true.
    a_bool Unload();

    /// Destroys the provider's environment, if there is one, and unloads. Waits for an object that
    /// is being destroyed.
    void Finish();

    /// Destroys `handle` with destroy_func of the table `objects`. False when there is no such
    /// entry, or no longer; nothing is done then. Objects are destroyed one at a time, so that
    /// destroy_func may call the owner's callbacks, but must not come back here.
    template <class Table, class Handle>
    a_bool DestroyHandle(Table DBQXCIInterface::*objects, Handle handle) {
        const UTLock lock(_ending);
        const auto destroy = (this->*objects).destroy_func;
        if (destroy == nullptr) return false;
        destroy(handle);
        return true;
    }

    /// Sets every pointer of every table to null.
    void _clear();

    /// A load was done, successful or (for the built-in provider) not.
    a_bool IsLoaded() const { return _loaded; }
    /// The tables are filled.
    a_bool IsValid() const { return _valid; }
    a_qxci_version GetVersion() const { return _vers; }

    a_qxci_env_iface _env_iface = {};
    a_qxci_error_iface _error_iface = {};
    a_qxci_stream_iface _stream_iface = {};
    a_qxci_conn_iface _conn_iface = {};
    a_qxci_pw_hash_iface _pw_hash_iface = {};
    a_qxci_hash_iface _hash_iface = {};
    a_qxci_enc_iface _enc_iface = {};
    a_qxci_sig_iface _sig_iface = {};

    /// The provider's side of the environment, which creates it.
    QXCIEnvironmentH _qxci_env = nullptr;

  private:
    a_bool _LoadBuiltin();
    a_bool _LoadLibrary(const char* name, a_dbqxci_error* failure);
    a_bool _Fill(const a_qxci_entry_points& entries);

    UTMutex _ending;  // held while an object or the provider's environment is destroyed
    a_bool _valid = false;
    a_bool _loaded = false;
    void* _dll = nullptr;  // null for the built-in provider
    a_qxci_version _vers = {};
};

#endif
