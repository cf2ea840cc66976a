#include "store/StoreEnvironment.h"

#include <algorithm>

namespace velmo {

std::optional<MailAccount> StoreEnvironment::account(const UUID& accountID) const {
    const auto& all = accounts.accounts.get();
    const auto found = std::ranges::find(all, accountID, &MailAccount::id);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

}
