#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINTEXT_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINTEXT_H

/// Text that owners give to the built-in provider and get from it: names, options, hex.

#include "kovcert/qxci/qxci.h"

/// The value of the first option with the name, which is marked as used; null without such an
/// option. An option without a value counts as having an empty one.
const char* find_option(a_qxci_user_option* options, const char* name);

/// The name of the first option that is none of the `known` ones, a list that ends with null; null
/// when all are known.
const char* find_unknown_option(const a_qxci_user_option* options, const char* const* known);

/// Turns `text`, which must consist of exactly 2 * len hex digits, into bytes. False for any other
/// text; `bytes` is then undefined.
bool parse_hex(const char* text, a_qxci_byte* bytes, size_t len);

/// Stores 2 * len lower-case hex digits without a zero byte; returns the place behind them.
char* format_hex(char* text, const a_qxci_byte* bytes, size_t len);

#endif
