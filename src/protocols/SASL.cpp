#include "protocols/SASL.h"

#include "base/Text.h"

namespace velmo {

std::string plainResponse(const MailCredential& credential) {
    std::string message(1, '\0');
    message += credential.username();
    message += '\0';
    message += credential.secret();
    return text::base64(message);
}

std::string xoauth2Response(const MailCredential& credential) {
    return text::base64("user=" + credential.username() + "\x01" + "auth=Bearer " + credential.secret() + "\x01\x01");
}

std::vector<std::string> secretForms(const MailCredential& credential) {
    const std::string& secret = credential.secret();
    if (secret.empty()) return {};
    return {secret, text::base64(secret), plainResponse(credential), xoauth2Response(credential)};
}

}
