#include "host/sqlite/shell/inputhistory.h"

#include <cstdlib>

#include <sys/file.h>
#include <sys/stat.h>

#include "host/descriptor.h"

namespace host {

namespace {

constexpr int most_entries = 1000;

// Makes the folders above `file`, for this user alone.
void make_folders(const std::string& file) {
    for (std::size_t end = file.find('/', 1); end != std::string::npos;
         end = file.find('/', end + 1))
        mkdir(file.substr(0, end).c_str(), 0700);
}

// The file exists before anything is written to it, so that nobody else can ever read it.
bool make_private_file(const std::string& file) {
    make_folders(file);
    return open_file(file.c_str(), O_RDWR | O_CREAT, 0600).is_open();
}

History* new_history(const std::string& file) {
    History* made = history_init();
    HistEvent event{};
    history(made, &event, H_SETSIZE, most_entries);
    history(made, &event, H_SETUNIQUE, 1);
    if (!file.empty()) history(made, &event, H_LOAD, file.c_str());
    return made;
}

// Shells that run at the same time share the file: each reads it anew before it writes it.
void add_to_file(const std::string& file, const std::string& entry) {
    const Descriptor lock = open_file(file.c_str(), O_RDWR);
    if (!lock.is_open()) return;
    flock(lock.number(), LOCK_EX);
    History* kept = new_history(file);
    HistEvent event{};
    history(kept, &event, H_ENTER, entry.c_str());
    history(kept, &event, H_SAVE, file.c_str());
    history_end(kept);
}

std::string usable_file() {
    std::string file = InputHistory::path();
    return !file.empty() && make_private_file(file) ? file : std::string();
}

}  // namespace

InputHistory::InputHistory() : _file(usable_file()), _entries(new_history(_file)) {}

void InputHistory::add(const std::string& entry, bool keep) {
    HistEvent event{};
    history(_entries, &event, H_ENTER, entry.c_str());
    if (keep && !_file.empty()) add_to_file(_file, entry);
}

std::string InputHistory::path() {
    const char* state = getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/') return std::string(state) + "/quorelsql/history";
    const char* home = getenv("HOME");
    if (home == nullptr || *home != '/') return {};
    return std::string(home) + "/.local/state/quorelsql/history";
}

}  // namespace host
