#include "store/StoreEnvironment.h"

#include <algorithm>

namespace velmo {

std::optional<MailAccount> StoreEnvironment::account(const UUID& accountID) const {
    if (accounts.isBeingRemoved(accountID)) return std::nullopt;
    const auto& all = accounts.accounts.get();
    const auto found = std::ranges::find(all, accountID, &MailAccount::id);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

std::vector<MailAccount> StoreEnvironment::allAccounts() const {
    auto all = accounts.accounts.get();
    std::erase_if(all, [&](const MailAccount& each) { return accounts.isBeingRemoved(each.id); });
    return all;
}

}
