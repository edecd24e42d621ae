#ifndef QUOREL_HOST_SQLITE_SHELL_INPUTHISTORY_H
#define QUOREL_HOST_SQLITE_SHELL_INPUTHISTORY_H

/// What was typed in earlier, in this shell and in those before it.

#include <string>

#include <histedit.h>

namespace host {

class InputHistory {
  public:
    /// Loads what is kept in path(), which is made, for this user alone, when it is missing.
    InputHistory();
    InputHistory(const InputHistory&) = delete;
    InputHistory& operator=(const InputHistory&) = delete;
    ~InputHistory() { history_end(_entries); }

    /// Adds an entry; `keep` adds it to the file too, beside what other shells have added there.
    void add(const std::string& entry, bool keep);

    [[nodiscard]] History* entries() const { return _entries; }  ///< still this object's

    /// quorelsql/history below XDG_STATE_HOME, else below ~/.local/state; empty when neither that
    /// variable nor HOME is set.
    static std::string path();

  private:
    std::string _file;  // empty: none
    History* _entries;
};

}  // namespace host

#endif
