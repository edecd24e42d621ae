#ifndef QUOREL_HOST_OUTBOX_SCHEMA_H
#define QUOREL_HOST_OUTBOX_SCHEMA_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace host::outbox {

/// The SQL in schema/: the first of them makes the tables, each other one brings them to its own
/// version, that of its number from 1 on. Each notes its version in the table of versions.
using Steps = std::span<const std::string_view>;
Steps sqlite_steps();
Steps postgres_steps();

/// Whether tables of this version are those that the steps lead to; else a sentence in `error`.
/// 0: there are none. `where` is what `quorel-outbox --install` was to be called with.
bool is_current(std::size_t version, Steps steps, const std::string& where, std::string& error);
/// The same for what can be brought up to date.
bool is_upgradable(std::size_t version, Steps steps, std::string& error);

}  // namespace host::outbox

#endif
