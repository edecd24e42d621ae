#ifndef QUOREL_KOVCERT_QXCI_ENCRYPTLEVEL_H
#define QUOREL_KOVCERT_QXCI_ENCRYPTLEVEL_H

/// An encryption setting as people write it, and the level that it stands for.

#include "utils/contain/utlist.h"
#include "utils/etc/uttypes.h"
#include "utils/utmem/uttext.h"

class DBQXCIError;

/// The levels.
enum a_encrypt_level : uint32 {
    ENCRYPT_NONE = 0,
    ENCRYPT_SIMPLE = 1,
    ENCRYPT_ECC_TLS = 2,
    ENCRYPT_RSA_TLS = 3,
    ENCRYPT_RSA_TLS_FIPS = 4,
};

/// What the parameters of "tls" say about the stream.
struct a_tls_parms {
    UTText tls_type;      // "rsa" unless given
    a_bool fips = false;  // "FIPS" says yes (qxci_yes_or_no() in qxci.h)

    /// Reads "tls_type=...;FIPS=..."; other options are for others, null is an empty text. False on
    /// a syntax error or a "FIPS" that says neither yes nor no, with the reason in `err`.
    a_bool Parse(const char* parms, DBQXCIError* err);
};

/// One setting, an element of a list of those to choose from.
class c_encrypt_level : public c_utils_link {
  public:
    c_encrypt_level() = default;
    c_encrypt_level(const c_encrypt_level&) = delete;
    c_encrypt_level& operator=(const c_encrypt_level&) = delete;

    /// Takes a setting: "none", "simple", or "tls" with its parameters, without regard to case.
    /// Both texts are copied, even such as this object gave out, and kept whatever comes out;
    /// `parms` may be null. False for anything else: the level is then unknown, and get_error() is
    /// the text that is wrong.
    a_bool set_level(const char* algorithm, const char* parms);

    /// Makes the setting stand for `level`.
    void set_level(a_encrypt_level level);

    a_encrypt_level get_level() const { return _level; }
    /// "none", "simple", "ecc_tls", "rsa_tls" or "rsa_tls_fips"; "Unknown" before a level is set.
    const char* get_level_name() const;
    a_bool is_known() const { return _known; }
    /// TLS, as opposed to nothing that would keep anybody out.
    a_bool is_strong() const { return _strong; }

    // Each null when there is none.
    const char* get_algorithm() const { return _algorithm.get(); }
    const char* get_parms() const { return _parms.get(); }
    const char* get_error() const { return _errorStr.get(); }

  private:
    a_bool _SetTlsLevel();
    a_bool _Fail(const char* text);

    a_encrypt_level _level = ENCRYPT_NONE;
    a_bool _known = false;
    a_bool _strong = false;
    UTText _algorithm;
    UTSecretText _parms;  // passwords may be among them
    UTText _errorStr;
};

#endif
