#ifndef QUOREL_PROVIDERS_OPENSSL_SETTINGS_H
#define QUOREL_PROVIDERS_OPENSSL_SETTINGS_H

/// The options, sorted by what they mean. An environment, a stream and a connection each have
/// settings of their own; what a connection does not say holds as the stream, else the environment,
/// says it.

#include "kovcert/qxci/kit/errorrecord.h"

enum a_setting {
    SETTING_TLS_TYPE,
    SETTING_FIPS,
    SETTING_IDENTITY,  // PEM: own certificate, its chain, and its key
    SETTING_IDENTITY_PASSWORD,
    SETTING_TRUSTED,  // certificates to trust
    SETTING_COMPANY,  // these three: demanded of the peer's certificate
    SETTING_UNIT,
    SETTING_NAME,
    SETTING_COUNT
};

/// How the value of an option is to be read.
enum a_setting_form {
    FORM_TEXT,  // as it stands
    FORM_FILE,  // names a file
    FORM_FILES  // names files, with ";" between them
};

struct a_setting_value {
    const char* text;  // null: not set
    a_setting_form form;
    const char* option;  // the name that it was set by
};

/// Who the options are for.
enum an_option_scope {
    SCOPE_ENVIRONMENT,  // whichever provider: unknown ones are passed over
    SCOPE_OBJECT        // this one: an unknown one is QxciErrBadOption
};

class Settings {
  public:
    /// `outer` holds for what is not set here, and lives longer; null: there is none.
    Settings(const qxci::Memory& memory, const Settings* outer) : _memory(memory), _outer(outer) {}
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;
    ~Settings() { clear(); }

    /// Takes copies of the options and marks them as used. The first of several with the same name
    /// counts, and the others are not marked; an environment's that differ in name but not in
    /// meaning likewise, else such a one is QxciErrOptionError. False with the reason in `error`.
    bool read(a_qxci_user_option* options, an_option_scope scope, qxci::ErrorRecord& error);

    /// Forgets what was read.
    void clear();

    /// What holds, here or further out.
    a_setting_value get(a_setting setting) const;

    /// Whether it is set here.
    bool has(a_setting setting) const { return _values[setting].text != nullptr; }

  private:
    bool take(a_qxci_user_option& option, an_option_scope scope, qxci::ErrorRecord& error);

    const qxci::Memory& _memory;
    const Settings* const _outer;
    struct a_value {
        char* text;  // owned
        a_setting_form form;
        const char* option;
    } _values[SETTING_COUNT] = {};
};

#endif
