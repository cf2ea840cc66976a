#include "accounts/AccountError.h"

#include "base/Localisation.h"

namespace velmo {

AccountError::AccountError(Kind kind, std::string sentence, std::string detail, std::optional<MailProvider> provider)
    : UserError(std::move(sentence)), kind_(kind), detail_(std::move(detail)), provider_(provider) {}

AccountError AccountError::duplicate(std::string email) {
    return {Kind::duplicate, tr("{} is already added.", email), email};
}

AccountError AccountError::cannotConnect(std::string host) {
    return {Kind::cannotConnect, tr("Couldn't connect to {}. Check the server and your connection.", host), host};
}

AccountError AccountError::authenticationFailed(std::string server) {
    return {Kind::authenticationFailed, tr("The {} server didn't accept that email and password.", server), server};
}

AccountError AccountError::unexpectedResponse(std::string server) {
    return {Kind::unexpectedResponse, tr("The {} server responded in a way Velmo-Mail doesn't understand.", server),
            server};
}

AccountError AccountError::signInNotConfigured(MailProvider provider) {
    return {
        Kind::signInNotConfigured, tr("{} sign-in isn't available in this build yet.", name(provider)), {}, provider};
}

AccountError AccountError::signInFailed(MailProvider provider) {
    return {Kind::signInFailed, tr("{} sign-in didn't complete. Please try again.", name(provider)), {}, provider};
}

AccountError AccountError::invalidEmail() {
    return {Kind::invalidEmail, tr("Enter a full email address, like {}.", "name@example.com")};
}

AccountError AccountError::googleAppPasswordRejected() {
    return {Kind::googleAppPasswordRejected,
            tr("Google didn't accept that. Use an app password, not your Google password, and check 2-Step "
               "Verification is on.")};
}

AccountError AccountError::invalidLogin() {
    return {Kind::invalidLogin, tr("The login name or the password contains a line break or another character that "
                                   "can't be sent to a mail server.")};
}

}
