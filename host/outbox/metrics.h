#ifndef QUOREL_HOST_OUTBOX_METRICS_H
#define QUOREL_HOST_OUTBOX_METRICS_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/outbox/counters.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// What the outbox holds, as its database tells it.
struct Snapshot {
    Figures figures;
    std::vector<Account> accounts;
};

/// The figures as Prometheus reads them (text format 0.0.4). Without `outbox` the database is away,
/// and only this process tells of itself.
[[nodiscard]] std::string metrics_text(const std::optional<Snapshot>& outbox, const Counts& counts);

/// Puts `text` in the place of the file: who reads it sees the old one or the new one. False with a
/// sentence in `error`.
bool replace_file(const std::string& path, std::string_view text, std::string& error);

}  // namespace host::outbox

#endif
