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
    const bool others_left = account.name != accounts.back().name;
    const auto count = static_cast<unsigned>(accounts.size());
    return others_left ? 0 : (attempts + count - 1) / count;
}

}  // namespace host::outbox
