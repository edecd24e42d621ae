#ifndef QUOREL_PROVIDERS_OPENSSL_ERRORRECORD_H
#define QUOREL_PROVIDERS_OPENSSL_ERRORRECORD_H

/// An error record whose parameter, of which there is one at most, lives in the owner's memory. The
/// first failure wins. When there is no memory for the parameter, the record goes without.

#include "providers/openssl/ownermemory.h"

class ErrorRecord {
  public:
    explicit ErrorRecord(const OwnerMemory& memory) : _memory(memory) {}
    ErrorRecord(const ErrorRecord&) = delete;
    ErrorRecord& operator=(const ErrorRecord&) = delete;
    ~ErrorRecord() { clear(); }

    void clear();

    /// Records a failure; false, for the caller to return.
    bool fail(a_dbqxci_error code, const char* parm = nullptr, uint32_t system_code = 0);

    /// The same with the newest of OpenSSL's errors on this thread as the system code. They are
    /// taken off the thread; when one of them says that memory ran out, so does the record.
    bool fail_openssl(a_dbqxci_error code, const char* parm = nullptr);

    /// Hands the record, with its parameter, over to one of the owner's, which may be null.
    void give_to(a_qxci_error* to);

    /// Frees the parameters of a record that was handed over; leaves its fields.
    static void destroy(const OwnerMemory& memory, a_qxci_error* record);

    const a_qxci_error* get() const { return &_record; }

  private:
    const OwnerMemory& _memory;
    a_qxci_error _record = {};
};

#endif
