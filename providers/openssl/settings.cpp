#include "providers/openssl/settings.h"

#include "kovcert/qxci/kit/options.h"

namespace {

constexpr struct an_option {
    const char* name;
    a_setting setting;
    a_setting_form form;
    an_option_scope scope;  // SCOPE_ENVIRONMENT: known there only
} known_options[] = {
    {"tls_type", SETTING_TLS_TYPE, FORM_TEXT, SCOPE_ENVIRONMENT},
    {"FIPS", SETTING_FIPS, FORM_TEXT, SCOPE_ENVIRONMENT},
    {"identity", SETTING_IDENTITY, FORM_TEXT, SCOPE_OBJECT},
    {"identity_file", SETTING_IDENTITY, FORM_FILE, SCOPE_OBJECT},
    {"certificate_file", SETTING_IDENTITY, FORM_FILE, SCOPE_OBJECT},
    {"identity_password", SETTING_IDENTITY_PASSWORD, FORM_TEXT, SCOPE_OBJECT},
    {"certificate_password", SETTING_IDENTITY_PASSWORD, FORM_TEXT, SCOPE_OBJECT},
    {"trusted_certificate", SETTING_TRUSTED, FORM_FILE, SCOPE_OBJECT},
    {"trusted_certificates", SETTING_TRUSTED, FORM_FILES, SCOPE_OBJECT},
    {"trusted_root_file", SETTING_TRUSTED, FORM_FILE, SCOPE_OBJECT},
    {"trusted_root_files", SETTING_TRUSTED, FORM_FILES, SCOPE_OBJECT},
    {"trusted_root", SETTING_TRUSTED, FORM_TEXT, SCOPE_OBJECT},
    {"trusted_roots", SETTING_TRUSTED, FORM_TEXT, SCOPE_OBJECT},
    {"certificate_company", SETTING_COMPANY, FORM_TEXT, SCOPE_OBJECT},
    {"certificate_unit", SETTING_UNIT, FORM_TEXT, SCOPE_OBJECT},
    {"certificate_name", SETTING_NAME, FORM_TEXT, SCOPE_OBJECT},
};

const an_option* find_option(const char* name, an_option_scope scope) {
    for (const an_option& option : known_options) {
        const bool offered = scope == SCOPE_ENVIRONMENT || option.scope == SCOPE_OBJECT;
        if (offered && qxci::same_name(option.name, name)) return &option;
    }
    return nullptr;
}

}  // namespace

bool Settings::read(a_qxci_user_option* options, an_option_scope scope, qxci::ErrorRecord& error) {
    for (; options != nullptr; options = options->next) {
        if (!take(*options, scope, error)) return false;
    }
    return true;
}

bool Settings::take(a_qxci_user_option& option, an_option_scope scope, qxci::ErrorRecord& error) {
    const char* const name = qxci::option_name(option);
    const an_option* const known = find_option(name, scope);
    if (known == nullptr) return scope == SCOPE_ENVIRONMENT || error.fail(QxciErrBadOption, name);
    // Under one name the first counts, as everywhere. Two names for one thing are a contradiction
    // in what is meant for this object, but not in an environment's, which is meant for whoever
    // comes.
    if (has(known->setting)) {
        const bool same = _values[known->setting].option == known->name;  // the pointer
        return same || scope == SCOPE_ENVIRONMENT || error.fail(QxciErrOptionError, known->name);
    }
    option.used = true;
    char* const copy = _memory.copy(qxci::option_value(option));
    if (copy == nullptr) return error.fail(QxciErrNoMemory);
    _values[known->setting] = {copy, known->form, known->name};
    const bool needs_value =
        known->setting == SETTING_IDENTITY || known->setting == SETTING_TRUSTED;
    return !needs_value || *copy != '\0' || error.fail(QxciErrOptionError, known->name);
}

void Settings::clear() {
    for (a_value& value : _values) {
        _memory.wipe_and_free(value.text);
        value = {};
    }
}

a_setting_value Settings::get(a_setting setting) const {
    const a_value& value = _values[setting];
    if (value.text == nullptr && _outer != nullptr) return _outer->get(setting);
    return {value.text, value.form, value.option};
}
