#include "accounts/AccountDraft.h"

#include "base/Text.h"

namespace velmo {

namespace {

/// LF, VT, FF, CR, NEL, and the line and paragraph separators.
bool isLineBreak(char32_t c) {
    return (c >= 10 && c <= 13) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

template <class Predicate>
std::string without(std::string_view utf8, Predicate isDropped) {
    std::string kept;
    for (std::size_t position = 0; position < utf8.size();) {
        const std::size_t start = position;
        if (!isDropped(text::nextCodePoint(utf8, position))) kept.append(utf8.substr(start, position - start));
    }
    return kept;
}

std::string normalisedSecret(const AccountDraft& draft) {
    const std::string secret = without(text::repairedUTF8(draft.password), isLineBreak);
    // Google shows its app passwords in groups of four, and people paste them so.
    if (draft.provider == MailProvider::google) return without(secret, text::isUnicodeSpace);
    return std::string(text::trimmedUnicode(secret));
}

}

AccountDraft::AccountDraft(MailProvider chosen) : provider(chosen) {
    if (auto servers = defaultServers(chosen)) {
        incoming = std::move(servers->incoming);
        outgoing = std::move(servers->outgoing);
    }
}

NormalisedLogin normalised(const AccountDraft& draft) {
    NormalisedLogin login;
    login.email = text::trimmedUnicode(text::repairedUTF8(draft.email));
    login.username = text::trimmedUnicode(text::repairedUTF8(draft.username));
    if (login.username.empty()) login.username = login.email;
    login.secret = normalisedSecret(draft);
    return login;
}

}
