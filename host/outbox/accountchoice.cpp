#include "host/outbox/accountchoice.h"

#include <algorithm>

namespace host::outbox {

std::vector<Account*> ways_for(const Delivery& delivery, std::span<Account> accounts) {
    std::vector<Account*> ways;
    for (Account& account : accounts)
        if (!delivery.account || *delivery.account == account.name) ways.push_back(&account);
    const auto last = std::find_if(ways.begin(), ways.end(), [&delivery](const Account* account) {
        return account->name == delivery.last_account;
    });
    if (last != ways.end()) std::rotate(ways.begin(), last + 1, ways.end());
    return ways;
}

unsigned rounds_after(const Delivery& delivery, const Account& account,
                      std::span<const Account> accounts) {
    const auto attempts = static_cast<unsigned>(delivery.attempts) + 1;
    if (delivery.account || accounts.empty()) return attempts;
    const auto here = std::ranges::find(accounts, account.name, &Account::name);
    const bool others_left = std::any_of(here, accounts.end(), [&account](const Account& other) {
        return other.name != account.name && other.away.count() == 0 && other.full.count() == 0;
    });
    const auto count = static_cast<unsigned>(accounts.size());
    return others_left ? 0 : (attempts + count - 1) / count;
}

}  // namespace host::outbox
