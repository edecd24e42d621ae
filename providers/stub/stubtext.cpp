#include "providers/stub/stubtext.h"

namespace {

char lower_case(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool is_listed(const char* name, a_stub_option_names known) {
    for (; *known != nullptr; ++known) {
        if (stub_same_name(name, *known)) return true;
    }
    return false;
}

constexpr const char* tls_options[] = {
    "stub_script",
    "tls_type",
    "FIPS",
    "identity",
    "identity_file",
    "certificate_file",
    "identity_password",
    "certificate_password",
    "trusted_certificates",
    "trusted_root_file",
    "trusted_root",
    "trusted_root_files",
    "trusted_roots",
    "trusted_certificate",
    "certificate_company",
    "certificate_unit",
    "certificate_name",
    nullptr,
};

}  // namespace

const a_stub_option_names stub_tls_options = tls_options;

bool stub_same_name(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    while (*a != '\0' && lower_case(*a) == lower_case(*b)) {
        ++a;
        ++b;
    }
    return lower_case(*a) == lower_case(*b);
}

const char* stub_find_option(a_qxci_user_option* options, const char* name) {
    for (; options != nullptr; options = options->next) {
        if (!stub_same_name(options->opt_name, name)) continue;
        options->used = true;
        return options->opt_value == nullptr ? "" : options->opt_value;
    }
    return nullptr;
}

const char* stub_find_unknown_option(const a_qxci_user_option* options, a_stub_option_names known) {
    for (; options != nullptr; options = options->next) {
        const char* const name = options->opt_name == nullptr ? "" : options->opt_name;
        if (!is_listed(name, known)) return name;
    }
    return nullptr;
}
