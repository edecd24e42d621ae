#ifndef QUOREL_KOVCERT_QXCI_QXCIOPTIONS_H
#define QUOREL_KOVCERT_QXCI_QXCIOPTIONS_H

/// Lists of options as the provider interface passes them, made from option strings.

#include "kovcert/qxci/qxci.h"
#include "utils/etc/uttypes.h"

class DBQXCIError;

/// Parses "name=value;..." (utils/dbutils/dboptions.h has the rules; null is an empty text) into a
/// list in the order of the text, *list, which FreeQXCIOptions() frees. False on a syntax error:
/// *list is null and `err` is QxciErrOptionError with the name that the text goes wrong at.
a_bool ParseQXCIOptionString(const char* text, a_qxci_user_option** list, DBQXCIError* err);

/// Frees a list that was parsed; null is ignored. Values are wiped first, since passwords are among
/// them.
void FreeQXCIOptions(a_qxci_user_option* list);

/// The value of the first option called `name`, without regard to case, which is marked as used;
/// null when there is none.
const char* FindQXCIOption(a_qxci_user_option* list, const char* name);

#endif
