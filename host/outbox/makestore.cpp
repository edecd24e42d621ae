#include <algorithm>

#include "host/outbox/pgstore.h"
#include "host/outbox/sqlitestore.h"
#include "host/text.h"

namespace host::outbox {

namespace {

// A URI, or words "name=value" of which the first begins with a name.
bool is_conninfo(std::string_view where) {
    if (where.starts_with("postgresql://") || where.starts_with("postgres://")) return true;
    const auto end = std::ranges::find_if_not(
        where, [](char c) { return is_letter(c) || is_digit(c) || c == '_'; });
    const std::string_view rest(end, where.end());
    const std::size_t sign = rest.find_first_not_of(" \t\n");
    return end != where.begin() && sign != std::string_view::npos && rest[sign] == '=';
}

}  // namespace

std::unique_ptr<Store> make_store(const std::string& where, const std::string& daemon,
                                  std::string& error) {
    if (is_conninfo(where)) return make_pg_store(where, daemon, postgres_steps(), error);
    return std::make_unique<SqliteStore>(where, daemon);
}

}  // namespace host::outbox
