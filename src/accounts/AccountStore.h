#pragma once

#include "accounts/AccountDraft.h"
#include "accounts/AccountError.h"
#include "accounts/MailAccount.h"
#include "base/Async.h"
#include "base/Clock.h"
#include "base/Observed.h"
#include "platform/Keychain.h"
#include "platform/Settings.h"
#include "protocols/MailCredential.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// A short-lived token that stands for a sign-in.
struct AccessToken {
    std::string token;
    Date expires;
};

/// The account list, the secret of each account, and what goes wrong with them, in words for the person.
///
/// Lives on the main executor, where every operation starts and gives its result; secrets are fetched on the background
/// executor. The list is stored as the setting "mailAccounts", each secret in the keychain under
/// `applicationIdentifier` and "mail-account.{UUID}".
class AccountStore {
  public:
    /// What the store is doing.
    struct Activity {
        enum class Kind { signingIn, checking };

        static Activity signingIn(MailProvider provider);
        /// `server` is the localised word "incoming" or "outgoing".
        static Activity checking(std::string server);

        /// "Signing in…", "Checking the incoming server…" or "Checking the outgoing server…".
        std::string label() const;

        Kind kind = Kind::signingIn;
        std::optional<MailProvider> provider;
        std::string server;

        friend bool operator==(const Activity&, const Activity&) = default;
    };

    /// For previews: an empty list; nothing is read or stored, and no secret is touched.
    AccountStore(Executors executors, Clock& clock);

    /// Reads the stored list; one that cannot be read counts as empty, and stays until the next change. `clock`,
    /// `settings` and `keychain` outlive the store, and the store outlives its operations.
    AccountStore(Executors executors, Clock& clock, Settings& settings, Keychain& keychain);

    /// In the person's order.
    Observed<std::vector<MailAccount>> accounts;
    /// Absent when idle.
    Observed<std::optional<Activity>> activity;
    /// The last failure in words for the person.
    Observed<std::optional<std::string>> errorMessage;
    /// Raised by one at every failure, since the words may repeat.
    Observed<int> failureCount;

    /// Takes over what other processes have done to the list.
    void refresh();

    /// Stores the account in the place of the one with its ID, and its secret where a new one is given, once its
    /// servers have accepted them; `onChange` follows. Throws AccountError, KeychainUnavailable or FileError, and then
    /// nothing has changed. Does nothing for an account that is gone.
    Async<void> replace(MailAccount account, std::optional<std::string> secret);

    /// Lets go of connections that were made with what was replaced.
    std::function<Async<void>(MailAccount)> onChange;

    /// Drops what others keep for an account that is being removed.
    std::function<Async<void>(MailAccount)> onRemove;

    /// Gets a new access token for a refresh token; throws when the provider refuses. Absent: nobody can sign in anew.
    std::function<Async<AccessToken>(MailProvider, std::string refreshToken)> refreshAccessToken;

    /// Stores the secret, then the account at the end of the list. Throws KeychainUnavailable or FileError when either
    /// cannot be kept; then nothing of the account is. Once begun it is not cut off by a cancellation.
    Async<void> add(MailAccount account, std::string secret);

    /// Removes the account, its secret and its settings, after `onRemove`. Does nothing for an unknown account, or one
    /// that is being removed. Throws FileError when the list cannot be kept. Once begun it is not cut off by a
    /// cancellation.
    Async<void> remove(UUID accountID);

    /// Moves an account to a position in the list; does nothing for an unknown account or a position outside it.
    /// Throws FileError.
    void move(UUID accountID, std::ptrdiff_t position);

    /// What to sign in with. Throws AccountError::authenticationFailed with the incoming host when there is no secret,
    /// KeychainUnavailable when nobody can tell now, and what the refresh of an expired access token throws.
    Async<MailCredential> credential(MailAccount account);

    /// Tries a draft at its incoming, then its outgoing server, and adds it when both accept it. Gives whether it was
    /// added; `errorMessage` tells why not. Never throws; false at once, with nothing changed, while `activity` stands.
    /// A cancelled attempt gives false, without words, and leaves nothing behind.
    Async<bool> addAccount(AccountDraft draft);

    /// True from the beginning of an account's removal until it is off the list.
    bool isBeingRemoved(const UUID& accountID) const { return removing_.contains(accountID); }

    /// Records a failure.
    void fail(const std::exception_ptr& error);
    void fail(const UserError& error);

  private:
    void change(const std::function<void(std::vector<MailAccount>&)>& edit);
    Async<void> storeSecret(UUID accountID, std::string secret);
    Async<void> deleteSecret(UUID accountID);
    Async<std::string> secretFor(MailAccount account);
    Async<AccessToken> accessTokenFor(MailAccount account, std::string refreshToken);
    Async<void> proveAndAdd(AccountDraft draft);
    bool contains(UUID accountID) const;

    Executors executors_;
    Clock& clock_;
    Settings* settings_ = nullptr;
    Keychain* keychain_ = nullptr;
    std::map<UUID, AccessToken> accessTokens_;
    std::set<UUID> removing_;
};

}
