#ifndef QUOREL_HOST_OUTBOX_SQLITESTORE_H
#define QUOREL_HOST_OUTBOX_SQLITESTORE_H

#include "host/outbox/schema.h"
#include "host/outbox/sqlitedatabase.h"
#include "host/outbox/store.h"

namespace host::outbox {

/// The outbox in a file of SQLite's. What writes waits up to ten seconds for other writers.
class SqliteStore : public Store {
  public:
    /// `steps`: what installs it.
    SqliteStore(std::string file, std::string daemon, Steps steps = sqlite_steps())
        : _file(std::move(file)), _daemon(std::move(daemon)), _steps(steps) {}

    bool open(std::string& error) override;
    bool install(std::string& error) override;
    bool claim(int limit, Pause lease, std::vector<Delivery>& deliveries,
               std::string& error) override;
    bool load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
              std::string& error) override;
    bool exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                  std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) override;
    bool extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                std::string& error) override;
    bool accounts(std::vector<Account>& list, std::string& error) override;
    bool account_away(const std::string& account, Pause pause, const std::string& reason,
                      std::string& error) override;
    bool account_probe(const std::string& account, Pause pause, bool& mine,
                       std::string& error) override;
    bool account_back(const std::string& account, std::string& error) override;
    bool next_due(std::optional<Pause>& pause, std::string& error) override;
    bool wait(Pause longest, int wake, std::string& error) override;
    bool figures(Figures& all, std::string& error) override;
    bool troubles(int limit, std::vector<Trouble>& list, std::string& error) override;

  private:
    struct Candidate {
        std::string due;
        std::int64_t id;
    };

    std::size_t _version();
    bool _check_tables(std::string& error);
    std::string _from_now(Pause pause);
    std::vector<Account> _accounts();
    std::vector<Candidate> _candidates(int limit);
    void _claim(std::int64_t id, const std::string& until, std::vector<Delivery>& deliveries);
    Message _message(SqliteRows& row);
    bool _end(const Finish& end);
    Begun _begin(const Begin& begin, const std::string& until);
    int _room(const std::string& account, int per_minute, Pause& full);

    const std::string _file;
    const std::string _daemon;
    const Steps _steps;
    SqliteDatabase _db;
    std::int64_t _seen = 0;  // the data version that claim() knows
};

}  // namespace host::outbox

#endif
