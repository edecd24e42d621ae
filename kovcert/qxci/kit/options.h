#ifndef QUOREL_KOVCERT_QXCI_KIT_OPTIONS_H
#define QUOREL_KOVCERT_QXCI_KIT_OPTIONS_H

/// The lists of options that the owner passes; a null list is empty. An option without a name or a
/// value counts as having an empty one.

#include "kovcert/qxci/kit/names.h"
#include "kovcert/qxci/qxci.h"

namespace qxci {

inline const char* option_name(const a_qxci_user_option& option) {
    return option.opt_name == nullptr ? "" : option.opt_name;
}

inline const char* option_value(const a_qxci_user_option& option) {
    return option.opt_value == nullptr ? "" : option.opt_value;
}

/// The value of the first option with the name, which is marked as used; null without such an
/// option. It is the owner's, and valid during the call only.
inline const char* find_option(a_qxci_user_option* options, const char* name) {
    for (; options != nullptr; options = options->next) {
        if (!same_name(option_name(*options), name)) continue;
        options->used = true;
        return option_value(*options);
    }
    return nullptr;
}

/// The names of the options that an object accepts, the last one followed by null.
using an_option_list = const char* const*;

/// The name of the first option that is not among `known`; null when all are.
inline const char* find_unknown_option(const a_qxci_user_option* options, an_option_list known) {
    for (; options != nullptr; options = options->next) {
        const char* const name = option_name(*options);
        an_option_list at = known;
        while (*at != nullptr && !same_name(*at, name)) ++at;
        if (*at == nullptr) return name;
    }
    return nullptr;
}

}  // namespace qxci

#endif
