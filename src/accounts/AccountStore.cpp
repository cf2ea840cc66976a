#include "accounts/AccountStore.h"

#include "accounts/ServerProbe.h"
#include "base/Localisation.h"
#include "formats/IMAPAddress.h"
#include "platform/CaseFolding.h"
#include "platform/Log.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr std::string_view accountsKey = "mailAccounts";

std::string keychainWord(UUID accountID) {
    return "mail-account." + accountID.text();
}

std::string incomingWord() {
    return trNoted("Fills in \"Checking the %@ server…\"", "incoming");
}

std::string outgoingWord() {
    return trNoted("Fills in \"Checking the %@ server…\"", "outgoing");
}

auto position(const std::vector<MailAccount>& list, UUID accountID) {
    return std::ranges::find(list, accountID, &MailAccount::id);
}

/// Keeps what has begun from being cut off halfway, until the end of the scope.
Async<void> withoutCancellation(std::function<Async<void>()> operation) {
    co_await ignoreCancellation();
    std::exception_ptr failure;
    try {
        co_await operation();
    } catch (...) {
        failure = std::current_exception();
    }
    co_await allowCancellation();
    if (failure) std::rethrow_exception(failure);
}

}

AccountStore::Activity AccountStore::Activity::signingIn(MailProvider provider) {
    Activity activity;
    activity.kind = Kind::signingIn;
    activity.provider = provider;
    return activity;
}

AccountStore::Activity AccountStore::Activity::checking(std::string server) {
    Activity activity;
    activity.kind = Kind::checking;
    activity.server = std::move(server);
    return activity;
}

std::string AccountStore::Activity::label() const {
    if (kind == Kind::signingIn) return tr("Signing in…");
    return server == outgoingWord() ? tr("Checking the outgoing server…") : tr("Checking the incoming server…");
}

AccountStore::AccountStore(Executors executors, Clock& clock) : executors_(std::move(executors)), clock_(clock) {}

AccountStore::AccountStore(Executors executors, Clock& clock, Settings& settings, Keychain& keychain)
    : executors_(std::move(executors)), clock_(clock), settings_(&settings), keychain_(&keychain) {
    refresh();
}

// --- The list ----------------------------------------------------------------------------------------------------

bool AccountStore::contains(UUID accountID) const {
    return position(*accounts, accountID) != accounts->end();
}

void AccountStore::refresh() {
    const auto stored = settings_ != nullptr ? settings_->data(accountsKey) : std::nullopt;
    if (!stored) return;
    if (auto list = accountsFromJSON(*stored))
        accounts = std::move(*list);
    else
        log("Accounts").error("The stored account list can't be read");
}

/// The list may have been changed by another process since it was read here.
void AccountStore::change(const std::function<void(std::vector<MailAccount>&)>& edit) {
    auto list = *accounts;
    if (settings_ == nullptr) {
        edit(list);
    } else {
        settings_->update(accountsKey, [&](const std::optional<SettingsValue>& present) -> SettingsValue {
            const auto* stored = present ? std::get_if<SettingsData>(&*present) : nullptr;
            auto held = stored != nullptr ? accountsFromJSON(stored->bytes) : std::nullopt;
            if (held) list = *std::move(held);
            edit(list);
            return SettingsData{accountsJSON(list)};
        });
    }
    accounts = std::move(list);
}

Async<void> AccountStore::add(MailAccount account, std::string secret) {
    co_await checkCancellation();
    co_await withoutCancellation([&]() -> Async<void> {
        co_await storeSecret(account.id, secret);
        std::exception_ptr failure;
        try {
            change([&account](auto& list) { list.push_back(account); });
        } catch (const UserError&) {
            failure = std::current_exception();
        }
        if (!failure) co_return;
        co_await deleteSecret(account.id);
        std::rethrow_exception(failure);
    });
}

Async<void> AccountStore::replace(MailAccount account, std::optional<std::string> secret) {
    if (signInKind(account.provider) != SignInKind::oauth) {
        const std::string password = secret ? *secret : co_await secretFor(account);
        co_await probeIMAP(executors_.io, clock_, account.incoming, account.username, password);
        co_await probeSMTP(executors_.io, clock_, account.outgoing, account.username, password);
    }
    if (!contains(account.id)) co_return;
    co_await withoutCancellation([&]() -> Async<void> {
        if (secret) co_await storeSecret(account.id, *secret);
        accessTokens_.erase(account.id);
        change([&account](auto& list) {
            const auto held = std::ranges::find(list, account.id, &MailAccount::id);
            if (held != list.end()) *held = account;
        });
        const auto operation = onChange;
        if (operation) co_await operation(account);
    });
}

Async<void> AccountStore::remove(UUID accountID) {
    const auto found = position(*accounts, accountID);
    if (found == accounts->end() || !removing_.insert(accountID).second) co_return;
    // A copy, since the list may change while this waits.
    const MailAccount account = *found; // NOLINT(performance-unnecessary-copy-initialization)
    const std::shared_ptr<void> whenDone(nullptr, [&](void*) { removing_.erase(accountID); });
    co_await withoutCancellation([&]() -> Async<void> {
        // A copy, since the operation may be replaced while it runs.
        if (const auto operation = onRemove) {
            try {
                co_await operation(account);
            } catch (const std::exception& error) {
                log("Accounts").error("Dropping the data of an account failed: {}", pub(error.what()));
            }
        }
        accessTokens_.erase(accountID);
        co_await deleteSecret(accountID);
        if (settings_ != nullptr)
            for (const char* prefix : {"signature.", "signature.rich."}) settings_->remove(prefix + accountID.text());
        change([accountID](auto& list) {
            std::erase_if(list, [&](const MailAccount& each) { return each.id == accountID; });
        });
    });
}

void AccountStore::move(UUID accountID, std::ptrdiff_t target) {
    const auto from = position(*accounts, accountID) - accounts->begin();
    if (from == std::ssize(*accounts) || target == from || target < 0 || target >= std::ssize(*accounts)) return;
    change([&](auto& list) {
        const auto found = position(list, accountID);
        if (found == list.end()) return;
        MailAccount account = *found;
        list.erase(found);
        list.insert(list.begin() + std::min(target, std::ssize(list)), std::move(account));
    });
}

// --- Secrets -----------------------------------------------------------------------------------------------------

Async<void> AccountStore::storeSecret(UUID accountID, std::string secret) {
    if (keychain_ == nullptr) co_return;
    const auto done = co_await callOn(executors_.background, [&] {
        const std::string word = keychainWord(accountID);
        // An old secret must not outlive a new one that could not be stored.
        if (auto removed = keychain_->remove(applicationIdentifier, word); !removed) return removed;
        return keychain_->add(applicationIdentifier, word, secret);
    });
    if (!done) throw done.error();
}

Async<void> AccountStore::deleteSecret(UUID accountID) {
    if (keychain_ == nullptr) co_return;
    const auto done = co_await callOn(
        executors_.background, [&] { return keychain_->remove(applicationIdentifier, keychainWord(accountID)); });
    if (!done) log("Accounts").error("A secret could not be deleted: {}", pub(done.error().sentence()));
}

Async<std::string> AccountStore::secretFor(MailAccount account) {
    if (keychain_ == nullptr) throw AccountError::authenticationFailed(account.incoming.host);
    auto found = co_await callOn(executors_.background,
                                 [&] { return keychain_->find(applicationIdentifier, keychainWord(account.id)); });
    if (const auto* unavailable = std::get_if<KeychainUnavailable>(&found)) throw *unavailable;
    if (auto* secret = std::get_if<std::string>(&found)) co_return std::move(*secret);
    throw AccountError::authenticationFailed(account.incoming.host);
}

Async<MailCredential> AccountStore::credential(MailAccount account) {
    std::string secret = co_await secretFor(account);
    if (signInKind(account.provider) != SignInKind::oauth)
        co_return MailCredential::password(account.username, std::move(secret));
    const AccessToken token = co_await accessTokenFor(account, std::move(secret));
    co_return MailCredential::oauth(account.username, token.token);
}

Async<AccessToken> AccountStore::accessTokenFor(MailAccount account, std::string refreshToken) {
    const auto cached = accessTokens_.find(account.id);
    if (cached != accessTokens_.end()) {
        if (cached->second.expires > clock_.now()) co_return cached->second;
        accessTokens_.erase(cached);
    }
    const auto refresh = refreshAccessToken;
    if (!refresh) throw AccountError::signInNotConfigured(account.provider);
    AccessToken fresh = co_await refresh(account.provider, std::move(refreshToken));
    // The account may have been removed meanwhile.
    if (contains(account.id) && !removing_.contains(account.id)) accessTokens_.insert_or_assign(account.id, fresh);
    co_return fresh;
}

// --- Adding by a form --------------------------------------------------------------------------------------------

Async<bool> AccountStore::addAccount(AccountDraft draft) {
    if (activity.get()) co_return false;
    errorMessage = std::nullopt;
    const MailProvider provider = draft.provider;
    std::exception_ptr failure;
    try {
        co_await proveAndAdd(std::move(draft));
    } catch (const AccountError& error) {
        const bool isGoogleLogin =
            provider == MailProvider::google && error.kind() == AccountError::Kind::authenticationFailed;
        failure = isGoogleLogin ? std::make_exception_ptr(AccountError::googleAppPasswordRejected())
                                : std::current_exception();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure && !isCancellation(failure)) fail(failure);
    activity = std::nullopt;
    co_return !failure;
}

Async<void> AccountStore::proveAndAdd(AccountDraft draft) {
    const NormalisedLogin login = normalised(draft);
    if (!domainOf(login.email)) throw AccountError::invalidEmail();
    const bool isKnown = std::ranges::any_of(*accounts, [folded = foldedCase(login.email)](const MailAccount& each) {
        return foldedCase(each.email) == folded;
    });
    if (isKnown) throw AccountError::duplicate(login.email);

    activity = Activity::checking(incomingWord());
    co_await probeIMAP(executors_.io, clock_, draft.incoming, login.username, login.secret);
    activity = Activity::checking(outgoingWord());
    co_await probeSMTP(executors_.io, clock_, draft.outgoing, login.username, login.secret);

    MailAccount account;
    account.id = UUID::random();
    account.email = login.email;
    account.provider = draft.provider;
    account.username = login.username;
    account.incoming = draft.incoming;
    account.outgoing = draft.outgoing;
    co_await add(std::move(account), login.secret);
}

// --- Failures ----------------------------------------------------------------------------------------------------

void AccountStore::fail(const std::exception_ptr& error) {
    errorMessage = sentenceOf(error);
    failureCount = failureCount.get() + 1;
}

void AccountStore::fail(const UserError& error) {
    errorMessage = error.sentence();
    failureCount = failureCount.get() + 1;
}

}
