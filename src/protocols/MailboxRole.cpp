#include "protocols/MailboxRole.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "protocols/MailboxNames.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

using enum MailboxRole;
using Entry = std::pair<std::string_view, MailboxRole>;

constexpr std::array<Entry, 10> roleWords{{{"inbox", inbox},
                                           {"flagged", flagged},
                                           {"snoozed", snoozed},
                                           {"drafts", drafts},
                                           {"sent", sent},
                                           {"archive", archive},
                                           {"all", all},
                                           {"junk", junk},
                                           {"trash", trash},
                                           {"other", other}}};

/// The first of these that a mailbox has decides.
constexpr std::array<Entry, 7> attributeRoles{{{"\\sent", sent},
                                               {"\\drafts", drafts},
                                               {"\\trash", trash},
                                               {"\\junk", junk},
                                               {"\\archive", archive},
                                               {"\\all", all},
                                               {"\\flagged", flagged}}};

constexpr std::array<Entry, 18> nameRoles{{{"sent", sent},
                                           {"sent items", sent},
                                           {"sent messages", sent},
                                           {"sent mail", sent},
                                           {"drafts", drafts},
                                           {"draft", drafts},
                                           {"trash", trash},
                                           {"deleted", trash},
                                           {"deleted items", trash},
                                           {"deleted messages", trash},
                                           {"bin", trash},
                                           {"junk", junk},
                                           {"spam", junk},
                                           {"junk e-mail", junk},
                                           {"junk email", junk},
                                           {"bulk mail", junk},
                                           {"archive", archive},
                                           {"archives", archive}}};

}

std::string_view rawText(MailboxRole role) {
    return std::ranges::find(roleWords, role, &Entry::second)->first;
}

std::optional<MailboxRole> mailboxRoleFrom(std::string_view rawText) {
    const auto found = std::ranges::find(roleWords, rawText, &Entry::first);
    if (found == roleWords.end()) return std::nullopt;
    return found->second;
}

std::optional<MailboxRole> mailboxRoleOfAttributes(const std::set<std::string>& attributes) {
    std::set<std::string> present;
    for (const std::string& attribute : attributes) present.insert(text::lowered(attribute));
    for (const auto& [attribute, role] : attributeRoles) {
        if (present.contains(std::string(attribute))) return role;
    }
    return std::nullopt;
}

MailboxRole mailboxRole(std::string_view path, const std::set<std::string>& attributes) {
    if (text::equalsIgnoringCase(path, "INBOX")) return inbox;
    if (const auto role = mailboxRoleOfAttributes(attributes)) return *role;
    const std::size_t separator = path.find_last_of("/.");
    const std::string last = text::lowered(separator == std::string_view::npos ? path : path.substr(separator + 1));
    if (last == "snoozed") return snoozed;
    const auto found = std::ranges::find(nameRoles, last, &Entry::first);
    return found == nameRoles.end() ? other : found->second;
}

std::string mailboxDisplayName(std::string_view path, const std::optional<std::string>& delimiter, MailboxRole role) {
    if (role == inbox) return tr("Inbox");
    if (!delimiter || delimiter->empty()) return decodedMailboxName(path);
    const std::size_t separator = path.rfind(*delimiter);
    return decodedMailboxName(separator == std::string_view::npos ? path : path.substr(separator + delimiter->size()));
}

}
