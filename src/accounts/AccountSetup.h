#pragma once

#include "accounts/AccountDraft.h"
#include "base/Observed.h"

#include <optional>
#include <string>

namespace velmo {

/// The state of one form that adds an account: first a picker of providers, then the fields. Lives on the main
/// executor, as long as its form.
class AccountSetup {
  public:
    /// The provider whose fields are shown; absent while the picker is.
    Observed<std::optional<MailProvider>> formProvider;
    Observed<AccountDraft> draft;
    Observed<bool> showsServerSettings;
    /// Once true, typing an address no longer fills in the servers.
    Observed<bool> serversEditedByHand;

    bool showsPicker() const { return !formProvider.get(); }

    /// Starts a fresh draft for `provider` and shows its fields.
    void choose(MailProvider provider);
    void backToPicker();

    /// Under `other`, fills in the servers that the address suggests.
    void typeEmail(std::string email);
    void typeUsername(std::string username);
    void typePassword(std::string password);
    void editIncoming(ServerConfig server);
    void editOutgoing(ServerConfig server);

    /// What the form says about where the servers come from.
    std::string serverNote() const;
};

}
