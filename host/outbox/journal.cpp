#include "host/outbox/journal.h"

#include <cstdio>

#include "host/outbox/oneline.h"

namespace host::outbox {

void Journal::say(const std::string& line) {
    const std::lock_guard lock(_mutex);
    if (line == _last) return;
    _last = line;
    fprintf(stderr, "quorel-outbox: %s\n", on_one_line(line).c_str());
}

}  // namespace host::outbox
