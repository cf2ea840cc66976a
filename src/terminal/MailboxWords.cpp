#include "terminal/MailboxWords.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/CaseFolding.h"
#include "protocols/MailboxNames.h"
#include "terminal/InputText.h"

#include <algorithm>

namespace velmo {

std::string shownPath(const std::string& path) {
    return decodedMailboxName(path);
}

std::optional<MailboxRecord> mailboxMeant(Session& session, const UUID& accountID, const std::string& word) {
    const auto all = session.app.mail().mailboxes.of(accountID);
    const std::string path = canonicalMailboxPath(word);
    const auto role = mailboxRoleFrom(text::lowered(word));
    const std::string folded = foldedCase(word);
    const auto first = [&all](auto matches) -> std::optional<MailboxRecord> {
        const auto found = std::ranges::find_if(all, matches);
        return found == all.end() ? std::nullopt : std::optional(*found);
    };
    if (auto found = first([&](const auto& mailbox) { return shownPath(mailbox.path) == path; })) return found;
    if (auto found = first([&](const auto& mailbox) { return mailbox.path == path; })) return found;
    if (role && *role != MailboxRole::other)
        if (auto found = session.app.store().mailboxes().mailbox(*role, accountID)) return found;
    return first([&](const auto& mailbox) { return foldedCase(shownPath(mailbox.path)) == folded; });
}

CommandError noMailbox(const std::string& word) {
    return CommandError(tr("There is no mailbox {}. Those there are: velmo mailboxes.", shownWord(word)));
}

}
