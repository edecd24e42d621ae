#ifndef QUOREL_PROVIDERS_OPENSSL_PEMTEXT_H
#define QUOREL_PROVIDERS_OPENSSL_PEMTEXT_H

/// Certificates and keys as the owner gives them: the bytes of a file, or the text of an option.
/// They may hold a key, so the memory is wiped before it goes back.

#include "kovcert/qxci/kit/errorrecord.h"
#include "providers/openssl/openssllibrary.h"

class PemText {
  public:
    explicit PemText(const qxci::Memory& memory) : _memory(memory) {}
    PemText(const PemText&) = delete;
    PemText& operator=(const PemText&) = delete;
    ~PemText();

    /// Reads a regular file of at most 16 MiB. A missing one is QxciErrCantFindCertFile, any other
    /// that cannot be read QxciErrBadCertFile with the system's error number: EISDIR for a folder,
    /// EINVAL for a device or pipe, EFBIG.
    bool read_file(const char* file, qxci::ErrorRecord& error);

    /// Takes a text, which `option` named.
    bool set(const char* text, const char* option, qxci::ErrorRecord& error);

    bool empty() const { return _len == 0; }
    bool is_pem() const { return contains("-----BEGIN "); }
    bool has_key() const { return contains("PRIVATE KEY-----"); }
    /// What error records call it: the file, or the option.
    const char* source() const { return _source; }
    /// A reader from the start; null when there is no memory.
    BioPtr open() const;

  private:
    bool contains(const char* mark) const;
    bool read_descriptor(int descriptor, qxci::ErrorRecord& error);
    bool reserve(size_t room, qxci::ErrorRecord& error);
    bool bad_file(int system_error, qxci::ErrorRecord& error) const;

    const qxci::Memory& _memory;
    const char* _source = "";
    char* _data = nullptr;
    size_t _len = 0, _room = 0;
};

/// True when OpenSSL's newest error on this thread only says that a text has nothing further.
bool at_end_of_pem();

/// For OpenSSL, which otherwise asks at the terminal: there is no password.
int no_password(char* buf, int size, int writing, void* user_data);

#endif
