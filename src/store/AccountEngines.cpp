#include "store/AccountEngines.h"

#include <utility>

namespace velmo {

std::shared_ptr<SyncEngine> AccountEngines::engine(const MailAccount& account) {
    auto& held = engines_[account.id];
    if (!held) held = makeEngine(account);
    return held;
}

std::shared_ptr<SyncEngine> AccountEngines::engineOf(const UUID& accountID) {
    const auto account = environment_.account(accountID);
    return account ? engine(*account) : nullptr;
}

std::shared_ptr<SyncEngine> AccountEngines::makeEngine(const MailAccount& account) {
    auto credential = [&accounts = environment_.accounts, account] { return accounts.credential(account); };
    auto onMain = [main = environment_.executors.main, credential]() -> Async<MailCredential> {
        return runOn(main, credential);
    };
    return std::make_shared<SyncEngine>(account.id, account.incoming, std::move(onMain), *environment_.clock,
                                        environment_.executors.io);
}

void AccountEngines::remove(const UUID& accountID) {
    const auto held = engines_.extract(accountID);
    if (!held) return;
    std::erase_if(closing_, [](const Task& task) { return task.isFinished(); });
    auto close = [engine = held.mapped()]() -> Async<void> { co_await engine->disconnect(); };
    closing_.emplace_back(environment_.executors.io, std::move(close));
}

Async<void> AccountEngines::disconnectAll() {
    for (const auto& [id, engine] : std::exchange(engines_, {})) co_await engine->disconnect();
    auto closing = std::exchange(closing_, {});
    for (Task& task : closing) co_await task.finished();
}

}
