#include "protocols/MailConnectionError.h"

#include "base/Localisation.h"

#include <utility>

namespace velmo {

MailConnectionError::MailConnectionError(Kind kind, std::string host, std::string sentence)
    : UserError(std::move(sentence)), kind_(kind), host_(std::move(host)) {}

MailConnectionError MailConnectionError::cannotConnect(std::string host) {
    std::string sentence = tr("Couldn't connect to {}. Check the server and your connection.", host);
    return {Kind::cannotConnect, std::move(host), std::move(sentence)};
}

MailConnectionError MailConnectionError::closed(std::string host) {
    std::string sentence = tr("{} closed the connection.", host);
    return {Kind::closed, std::move(host), std::move(sentence)};
}

MailConnectionError MailConnectionError::tooMuch(std::string host) {
    std::string sentence = tr("{} sent more than a mail server has to say, so the connection was closed.", host);
    return {Kind::tooMuch, std::move(host), std::move(sentence)};
}

}
