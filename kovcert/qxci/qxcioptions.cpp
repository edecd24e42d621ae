#include "kovcert/qxci/qxcioptions.h"

#include <array>
#include <cstring>
#include <new>

#include "kovcert/qxci/qxcierror.h"
#include "utils/dbutils/dboptions.h"
#include "utils/etc/utascii.h"
#include "utils/utmem/utmem.h"
#include "utils/utmem/utwipe.h"

namespace {

/// One block holds the record, its name and its value.
a_qxci_user_option* new_option(const a_db_option& from) {
    const size_t name_size = std::strlen(from.key) + 1;
    const size_t value_size = std::strlen(from.value) + 1;
    char* const block =
        static_cast<char*>(ut_alloc(sizeof(a_qxci_user_option) + name_size + value_size));
    char* const name = block + sizeof(a_qxci_user_option);
    char* const value = name + name_size;
    std::memcpy(name, from.key, name_size);
    std::memcpy(value, from.value, value_size);
    return new (block) a_qxci_user_option{name, value, false, nullptr};
}

}  // namespace

a_bool ParseQXCIOptionString(const char* text, a_qxci_user_option** list, DBQXCIError* err) {
    *list = nullptr;
    a_db_option* parsed = nullptr;
    std::array<char, 256> bad_key;
    if (!db_parse_options(text, &parsed, bad_key.data(), bad_key.size())) {
        err->Set(QxciErrOptionError, bad_key.data());
        return false;
    }
    a_qxci_user_option** tail = list;
    for (const a_db_option* option = parsed; option != nullptr; option = option->next) {
        *tail = new_option(*option);
        tail = &(*tail)->next;
    }
    db_free_options(parsed);
    return true;
}

void FreeQXCIOptions(a_qxci_user_option* list) {
    while (list != nullptr) {
        a_qxci_user_option* const next = list->next;
        // It may be a password, such as that of an identity.
        ut_wipe(const_cast<char*>(list->opt_value), std::strlen(list->opt_value));
        ut_free(list);
        list = next;
    }
}

const char* FindQXCIOption(a_qxci_user_option* list, const char* name) {
    while (list != nullptr && !ut_equal_nocase(list->opt_name, name)) list = list->next;
    if (list == nullptr) return nullptr;
    list->used = true;
    return list->opt_value;
}
