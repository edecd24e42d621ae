#include "host/outbox/stores.h"

#include <utility>

#include "host/outbox/groupcommit.h"

namespace host::outbox {

namespace {

class ThreadStore : public Store {
  public:
    ThreadStore(std::unique_ptr<Store> own, std::shared_ptr<GroupCommit> together)
        : _own(std::move(own)), _together(std::move(together)) {}

    bool open(std::string& error) override { return _own->open(error); }
    bool install(std::string& error) override { return _own->install(error); }
    bool load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
              std::string& error) override {
        return _own->load(messages, loaded, error);
    }
    bool accounts(std::vector<Account>& list, std::string& error) override {
        return _own->accounts(list, error);
    }
    bool next_due(std::optional<Pause>& pause, std::string& error) override {
        return _own->next_due(pause, error);
    }
    bool wait(Pause longest, int wake, std::string& error) override {
        return _own->wait(longest, wake, error);
    }
    bool figures(Figures& all, std::string& error) override { return _own->figures(all, error); }
    bool troubles(int limit, std::vector<Trouble>& list, std::string& error) override {
        return _own->troubles(limit, list, error);
    }

    bool exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                  std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) override {
        return _together->exchange(ends, begins, lease, held, begun, error);
    }

    // One writer after the other, without the pauses of a database that is found busy.
    bool claim(int limit, Pause lease, std::vector<Delivery>& deliveries,
               std::string& error) override {
        return _write(&Store::claim, error, limit, lease, deliveries);
    }
    bool extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                std::string& error) override {
        return _write(&Store::extend, error, claims, lease, held);
    }
    bool account_away(const std::string& account, Pause pause, const std::string& reason,
                      std::string& error) override {
        return _write(&Store::account_away, error, account, pause, reason);
    }
    bool account_probe(const std::string& account, Pause pause, bool& mine,
                       std::string& error) override {
        return _write(&Store::account_probe, error, account, pause, mine);
    }
    bool account_back(const std::string& account, std::string& error) override {
        return _write(&Store::account_back, error, account);
    }

  private:
    template <typename Member, typename... Values>
    bool _write(Member member, std::string& error, Values&... values) {
        return _together->run(
            [&](Store& store, std::string& words) { return (store.*member)(values..., words); },
            error);
    }

    const std::unique_ptr<Store> _own;
    const std::shared_ptr<GroupCommit> _together;
};

}  // namespace

Stores::Stores(std::string where, std::string daemon)
    : _where(std::move(where)), _daemon(std::move(daemon)) {}

Stores::~Stores() = default;

std::unique_ptr<Store> Stores::make(std::string& error) {
    std::unique_ptr<Store> own = make_store(_where, _daemon, error);
    std::unique_ptr<Store> writer;
    if (_together == nullptr) writer = make_store(_where, _daemon, error);
    if (writer != nullptr) _together = std::make_shared<GroupCommit>(std::move(writer));
    if (own == nullptr || _together == nullptr) return nullptr;
    return std::make_unique<ThreadStore>(std::move(own), _together);
}

}  // namespace host::outbox
