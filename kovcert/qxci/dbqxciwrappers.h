#ifndef QUOREL_KOVCERT_QXCI_DBQXCIWRAPPERS_H
#define QUOREL_KOVCERT_QXCI_DBQXCIWRAPPERS_H

/// What the library has of a provider's objects: the handle, a reference on the provider's tables,
/// and the last error. Every operation forwards to the table's entry of that
/// name, whose contract is in qxci.h.
///
/// Objects come from DBQXCIEnvironment (connections from DBQXCIStream) and are the caller's, who
/// deletes them before the environment's Fini(). A deletion that Fini() overtakes, or that comes
/// later still, is safe: the object is destroyed first, or else what it holds of the provider stays
/// in memory for good.
///
/// Threads: one object is used by one thread at a time, though not always by the same one. Using
/// one takes no lock, so no operation runs on it while the environment finishes; deleting it does,
/// and may happen on any thread at any time.

#include <cstddef>
#include <type_traits>

#include "kovcert/qxci/dbqxciinterface.h"
#include "kovcert/qxci/qxci.h"
#include "kovcert/qxci/qxcierror.h"
#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"

class DBQXCIEnvironment;

/// For wrappers that do not keep the slot they come from.
struct a_no_slot {
    explicit a_no_slot(_iface_index) {}
};

/// What all of them share. `Iface` is the table of DBQXCIInterface that has their operations.
template <class Handle, class Table, Table DBQXCIInterface::*Iface, class Slot = a_no_slot>
class DBQXCIWrapper : public c_utils_base {
  public:
    using a_handle = Handle;
    static constexpr Table DBQXCIInterface::*iface = Iface;

    /// Takes over `handle` and adds a reference to `source`, which may be null and is in slot
    /// `index`. `env` gives the error record its mutex.
    DBQXCIWrapper(Handle handle, DBQXCIEnvironment* env, DBQXCIInterface* source,
                  enum _iface_index index)
        : _handle(handle), _iface(source), _iface_index(index) {
        if (_iface != nullptr) _iface->AddRef();
        _last_error.createMutex(env);
    }
    DBQXCIWrapper(const DBQXCIWrapper&) = delete;
    DBQXCIWrapper& operator=(const DBQXCIWrapper&) = delete;

    /// Copies what the provider says about its last failure. The record is the wrapper's, good
    /// until the next call on it; QxciErrUnknown when the provider does not tell.
    const DBQXCIError* GetLastError() {
        if (_Has(&Table::get_last_error_func)) {
            _last_error.CloneFrom((_iface->*Iface).get_last_error_func(_handle));
        } else {
            _last_error.setErrorCode(QxciErrUnknown);
        }
        return &_last_error;
    }

  protected:
    /// Kept: without an entry to destroy the handle with, which is so after the environment's
    /// Fini(), the reference is not given back.
    ~DBQXCIWrapper() {
        if (_iface != nullptr && _iface->DestroyHandle(Iface, _handle)) {
            _iface->Release();
        } else {
            _last_error.setErrorCode(QxciErrUnknown);
        }
    }

    /// Whether there is a handle, and the entry to call on it.
    template <class Entry>
    a_bool _Has(Entry Table::*entry) const {
        return _handle != nullptr && _iface != nullptr && (_iface->*Iface).*entry != nullptr;
    }

    /// Calls the entry on the handle and returns what it returns. When the entry is missing, the
    /// last error is QxciErrUnknown and the result is `failure`.
    template <class Result, class... Parms>
    Result _Forward(Result (*Table::*entry)(Handle, Parms...), std::type_identity_t<Result> failure,
                    std::type_identity_t<Parms>... args) {
        if (!_Has(entry)) {
            _last_error.setErrorCode(QxciErrUnknown);
            return failure;
        }
        return ((_iface->*Iface).*entry)(_handle, args...);
    }

    /// The version of the provider; all 0 when there is none.
    a_qxci_version GetQXCIVersion() const {
        return _iface != nullptr ? _iface->GetVersion() : a_qxci_version{};
    }

    const Handle _handle;           // owned
    DBQXCIInterface* const _iface;  // one reference
    [[no_unique_address]] const Slot _iface_index;
    DBQXCIError _last_error;
};

/// Block encryption in place.
class DBQXCIBlockEncrypter final
    : public DBQXCIWrapper<QXCIBlockEncrypterH, a_qxci_enc_iface, &DBQXCIInterface::_enc_iface,
                           _iface_index> {
  public:
    using DBQXCIWrapper::DBQXCIWrapper;

    a_qxci_byte GetAlgorithmID();  // 0 when missing
    a_qxci_result Encrypt(a_qxci_byte* data, size_t len, unsigned flags);
    a_qxci_result Decrypt(a_qxci_byte* data, size_t len, unsigned flags);
    size_t GetBlockSize();  // 0 when missing
    /// The library that a FIPS encrypter comes from; null for every other.
    const char* GetDLLName() const;
    using DBQXCIWrapper::GetQXCIVersion;
};

/// Hashing of data that comes in pieces.
class DBQXCIBlockHasher final
    : public DBQXCIWrapper<QXCIBlockHasherH, a_qxci_hash_iface, &DBQXCIInterface::_hash_iface> {
  public:
    using DBQXCIWrapper::DBQXCIWrapper;

    a_qxci_byte GetAlgorithmID();  // 0 when missing
    size_t GetMaxHashSize();       // 0 when missing
    size_t GetBlockSize();         // 0 when missing
    a_qxci_result BeginHash();
    a_qxci_result AddData(const a_qxci_byte* data, size_t len);
    a_qxci_result EndHash(a_qxci_byte* out, size_t* out_len);
    using DBQXCIWrapper::GetQXCIVersion;
};

/// Hashing of passwords for storing.
class DBQXCIPasswordHasher final : public DBQXCIWrapper<QXCIPasswordHasherH, a_qxci_pw_hash_iface,
                                                        &DBQXCIInterface::_pw_hash_iface> {
  public:
    using DBQXCIWrapper::DBQXCIWrapper;

    a_qxci_byte GetAlgorithmID();  // 0 when missing
    size_t GetMaxHashSize();       // 0 when missing
    a_qxci_result Hash(const a_qxci_byte* in, size_t in_len, a_qxci_byte* out, size_t* out_len);
    using DBQXCIWrapper::GetQXCIVersion;
};

/// Signatures of databases and connections.
class DBQXCISignatureHandler final
    : public DBQXCIWrapper<QXCISignatureHandlerH, a_qxci_sig_iface, &DBQXCIInterface::_sig_iface> {
  public:
    using DBQXCIWrapper::DBQXCIWrapper;

    a_qxci_result CreateDBSig(const char* a, const char* b, const char* c, char* out,
                              size_t* out_len);
    a_qxci_result CreateConnSig(const char* a, const char* b, char* out, size_t* out_len);
    a_qxci_result VerifyDBSig(const char* a, const char* b, const char* c, const char* sig,
                              a_bool* ok);
    a_qxci_result VerifyConnSig(const char* a, const char* b, const char* sig, a_bool* ok);
    using DBQXCIWrapper::GetQXCIVersion;
};

/// A TLS connection of a stream, which it must not outlive.
class DBQXCIStreamConn final
    : public DBQXCIWrapper<QXCIStreamConnH, a_qxci_conn_iface, &DBQXCIInterface::_conn_iface> {
  public:
    using DBQXCIWrapper::DBQXCIWrapper;

    // QXCI_IO_ERROR when missing; *got is then left alone.
    a_qxci_io_result Read(a_qxci_byte* buf, size_t len, size_t* got);
    a_qxci_io_result Write(const a_qxci_byte* data, size_t len);
    a_qxci_io_result FlushWrites();
};

/// A provider's TLS stream: what its connections have in common. It does not outlive the
/// environment that made it.
class DBQXCIStream final
    : public DBQXCIWrapper<QXCIStreamH, a_qxci_stream_iface, &DBQXCIInterface::_stream_iface> {
  public:
    DBQXCIStream(QXCIStreamH handle, DBQXCIEnvironment* env, DBQXCIInterface* source,
                 enum _iface_index index)
        : DBQXCIWrapper(handle, env, source, index), _env(env) {}

    /// Once, before the first connection. The options are the caller's.
    a_qxci_result Init(a_qxci_side side, a_qxci_user_option* options);
    a_qxci_result Fini();
    a_qxci_byte GetAlgorithmID();  // 0 when missing

    /// A new connection, the caller's, which uses `cb` (copied) with `user_data` to send and
    /// receive raw bytes. Null with the reason in `err`, which is not null, when the provider
    /// cannot.
    DBQXCIStreamConn* CreateConn(const a_qxci_conn_callbacks* cb, a_qxci_user_option* options,
                                 void* user_data, DBQXCIError* err);

    /// The side that Init() was given; QXCI_CLIENT before.
    a_qxci_side GetSide() const { return _side; }
    using DBQXCIWrapper::GetQXCIVersion;

  private:
    a_qxci_side _side = QXCI_CLIENT;
    DBQXCIEnvironment* const _env;  // not owned
};

#endif
