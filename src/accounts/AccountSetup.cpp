#include "accounts/AccountSetup.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/IMAPAddress.h"

namespace velmo {

void AccountSetup::choose(MailProvider provider) {
    draft = AccountDraft(provider);
    showsServerSettings = false;
    serversEditedByHand = false;
    formProvider = provider;
}

void AccountSetup::backToPicker() {
    formProvider = std::nullopt;
}

void AccountSetup::typeEmail(std::string email) {
    draft.update([&](AccountDraft& edited) {
        edited.email = std::move(email);
        if (edited.provider != MailProvider::other || serversEditedByHand.get()) return;
        if (auto servers = inferredServers(text::trimmedUnicode(edited.email))) {
            edited.incoming = std::move(servers->incoming);
            edited.outgoing = std::move(servers->outgoing);
        }
    });
}

void AccountSetup::typeUsername(std::string username) {
    draft.update([&](AccountDraft& edited) { edited.username = std::move(username); });
}

void AccountSetup::typePassword(std::string password) {
    draft.update([&](AccountDraft& edited) { edited.password = std::move(password); });
}

void AccountSetup::editIncoming(ServerConfig server) {
    serversEditedByHand = true;
    draft.update([&](AccountDraft& edited) { edited.incoming = std::move(server); });
}

void AccountSetup::editOutgoing(ServerConfig server) {
    serversEditedByHand = true;
    draft.update([&](AccountDraft& edited) { edited.outgoing = std::move(server); });
}

std::string AccountSetup::serverNote() const {
    const MailProvider provider = draft->provider;
    if (defaultServers(provider))
        return tr("Filled in for {}; nothing to do here unless its help page says so.", name(provider));
    if (domainOf(text::trimmedUnicode(draft->email)))
        return tr("Found from your address; change them if your provider gives different ones.");
    return tr("Filled in from your address once you've typed it.");
}

}
