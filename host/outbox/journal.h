#ifndef QUOREL_HOST_OUTBOX_JOURNAL_H
#define QUOREL_HOST_OUTBOX_JOURNAL_H

#include <mutex>
#include <string>

namespace host::outbox {

/// What the daemon tells people: lines on standard error, which the service manager dates and
/// keeps. Many sessions meet the same trouble at once, so a line that was the last one is not
/// repeated. Safe on any thread.
class Journal {
  public:
    void say(const std::string& line);

  private:
    std::mutex _mutex;
    std::string _last;  // guarded by _mutex
};

}  // namespace host::outbox

#endif
