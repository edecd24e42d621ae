#ifndef QUOREL_KOVCERT_BUILTIN_BUILTINHEX_H
#define QUOREL_KOVCERT_BUILTIN_BUILTINHEX_H

#include "kovcert/qxci/qxci.h"

/// Turns `text`, which must consist of exactly 2 * len hex digits, into bytes. False for any other
/// text; `bytes` is then undefined.
bool parse_hex(const char* text, a_qxci_byte* bytes, size_t len);

/// Stores 2 * len lower-case hex digits without a zero byte; returns the place behind them.
char* format_hex(char* text, const a_qxci_byte* bytes, size_t len);

#endif
