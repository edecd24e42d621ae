#include "host/outbox/journal.h"

#include <algorithm>
#include <cstdio>

namespace host::outbox {

void Journal::say(const std::string& line) {
    const std::lock_guard lock(_mutex);
    if (line == _last) return;
    _last = line;
    // What a database or a file's name says cannot make a line of its own.
    std::string shown = line;
    std::replace_if(
        shown.begin(), shown.end(), [](char c) { return c >= 0 && c < ' '; }, ' ');
    fprintf(stderr, "quorel-outbox: %s\n", shown.c_str());
}

}  // namespace host::outbox
