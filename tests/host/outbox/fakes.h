#ifndef QUOREL_TESTS_HOST_OUTBOX_FAKES_H
#define QUOREL_TESTS_HOST_OUTBOX_FAKES_H

// An outbox in memory and a library that gives what it is told, for the daemon's parts.

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "host/engine.h"
#include "host/outbox/store.h"

/// One delivery after the other, of as many messages; keeps what it is told.
class FakeStore : public host::outbox::Store {
  public:
    using Pause = host::outbox::Pause;

    std::vector<host::outbox::Account> account_list;
    std::deque<host::outbox::Delivery> due;
    std::vector<host::outbox::Finish> ends;
    std::vector<std::string> begun_accounts;
    std::map<std::string, int> away;  ///< how often account_away() came
    std::vector<std::string> back;
    int failures = 0;  ///< that many operations fail from now on
    int opened = 0;
    bool all_lost = false;  ///< no claim holds

    bool open(std::string& error) override {
        ++opened;
        return works(error);
    }
    bool install(std::string&) override { return true; }
    bool claim(int limit, Pause, std::vector<host::outbox::Delivery>& deliveries,
               std::string& error) override {
        for (; limit > 0 && !due.empty(); --limit, due.pop_front())
            deliveries.push_back(due.front());
        return works(error);
    }
    bool load(std::span<const std::int64_t> ids, std::vector<host::outbox::Message>& loaded,
              std::string& error) override {
        for (const std::int64_t id : ids) {
            host::outbox::Message& message = loaded.emplace_back();
            message.id = id;
            message.recipients = "a@b.test, b@b.test, c@b.test";
            message.message_id = "<1@a.test>";
        }
        return works(error);
    }
    bool exchange(std::span<const host::outbox::Finish> told,
                  std::span<const host::outbox::Begin> begins, Pause, std::vector<bool>& held,
                  std::vector<host::outbox::Begun>& begun, std::string& error) override {
        if (!works(error)) return false;
        ends.insert(ends.end(), told.begin(), told.end());
        held.assign(told.size(), true);
        for (const auto& begin : begins) {
            begun_accounts.push_back(begin.account);
            begun.push_back({host::outbox::Begun::Yes, 1, Pause(0)});
        }
        return true;
    }
    bool extend(std::span<const host::outbox::Held> claims, Pause, std::vector<bool>& held,
                std::string& error) override {
        held.assign(claims.size(), !all_lost);
        return works(error);
    }
    bool accounts(std::vector<host::outbox::Account>& list, std::string& error) override {
        list = account_list;
        return works(error);
    }
    bool account_away(const std::string& account, Pause, const std::string&,
                      std::string&) override {
        ++away[account];
        return true;
    }
    bool account_probe(const std::string&, Pause, bool& mine, std::string&) override {
        return mine = true;
    }
    bool account_back(const std::string& account, std::string&) override {
        back.push_back(account);
        return true;
    }
    bool next_due(std::optional<Pause>&, std::string&) override { return true; }
    bool wait(Pause, int, std::string&) override { return true; }
    bool figures(host::outbox::Figures&, std::string&) override { return true; }
    bool troubles(int, std::vector<host::outbox::Trouble>&, std::string&) override { return true; }

  private:
    bool works(std::string& error) {
        if (failures == 0) return true;
        --failures;
        error = "it is away";
        return false;
    }
};

/// Gives each call the next of its statuses; none left: 0. `dies` ends the call instead.
class FakeEngine : public host::Engine {
  public:
    static constexpr int dies = -99;
    mutable std::map<std::string, std::deque<int>, std::less<>> statuses;

    host::CallEnd call(std::string_view procedure, an_extfn_api& api, void* handle,
                       const Interrupted&, std::string& error) const override {
        std::int32_t status = 0;
        if (auto& queue = statuses[std::string(procedure)]; !queue.empty()) {
            status = queue.front();
            queue.pop_front();
        }
        error = "the worker died";
        if (status == dies) return host::CallEnd::Ended;
        an_extfn_value value{};
        value.data = &status;
        value.piece_len = sizeof status;
        value.type = EXTFN_TYPE_INT32;
        api.set_value(handle, 0, &value, 0);
        return host::CallEnd::Returned;
    }
    void cancel(void*) const override {}
};

#endif
