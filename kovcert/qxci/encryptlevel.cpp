#include "kovcert/qxci/encryptlevel.h"

#include <utility>

#include "kovcert/qxci/qxcierror.h"
#include "kovcert/qxci/qxcioptions.h"
#include "utils/etc/utascii.h"

a_bool a_tls_parms::Parse(const char* parms, DBQXCIError* err) {
    a_qxci_user_option* options = nullptr;
    if (!ParseQXCIOptionString(parms, &options, err)) return false;
    const char* const type = FindQXCIOption(options, "tls_type");
    const char* const fips_value = FindQXCIOption(options, "FIPS");
    // A copy, since the options go with the text that they were read from.
    tls_type = ut_text(type != nullptr ? type : "rsa");
    const int wanted = fips_value != nullptr ? qxci_yes_or_no(fips_value) : 0;
    FreeQXCIOptions(options);
    fips = wanted == 1;
    if (wanted == -1) err->Set(QxciErrOptionError, "FIPS");
    return wanted != -1;
}

a_bool c_encrypt_level::set_level(const char* algorithm, const char* parms) {
    // Both first: they may be texts of this setting.
    UTText new_algorithm = ut_text(algorithm);
    UTSecretText new_parms(ut_strdup(parms));
    _algorithm = std::move(new_algorithm);
    _parms = std::move(new_parms);
    _level = ENCRYPT_NONE;
    _known = false;
    _strong = false;
    _errorStr.reset();
    algorithm = _algorithm.get();
    if (algorithm == nullptr) return false;
    if (ut_equal_nocase(algorithm, "tls")) return _SetTlsLevel();
    if (ut_equal_nocase(algorithm, "none")) {
        set_level(ENCRYPT_NONE);
    } else if (ut_equal_nocase(algorithm, "simple")) {
        set_level(ENCRYPT_SIMPLE);
    } else {
        return _Fail(algorithm);
    }
    return true;
}

a_bool c_encrypt_level::_SetTlsLevel() {
    _strong = true;
    a_tls_parms tls;
    DBQXCIError err;
    if (!tls.Parse(_parms.get(), &err)) return _Fail(err.GetParm(0));
    if (ut_equal_nocase(tls.tls_type.get(), "rsa")) {
        set_level(tls.fips ? ENCRYPT_RSA_TLS_FIPS : ENCRYPT_RSA_TLS);
    } else if (ut_equal_nocase(tls.tls_type.get(), "ecc")) {
        set_level(ENCRYPT_ECC_TLS);
    } else {
        return _Fail(tls.tls_type.get());
    }
    return true;
}

a_bool c_encrypt_level::_Fail(const char* text) {
    _errorStr = ut_text(text);
    return false;
}

void c_encrypt_level::set_level(a_encrypt_level level) {
    _level = level;
    _known = true;
    _strong = level >= ENCRYPT_ECC_TLS;
}

const char* c_encrypt_level::get_level_name() const {
    static constexpr const char* names[] = {"none", "simple", "ecc_tls", "rsa_tls", "rsa_tls_fips"};
    return _known ? names[_level] : "Unknown";
}
