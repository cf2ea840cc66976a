#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace velmo {

/// What a mailbox is for (RFC 6154, and habit).
enum class MailboxRole { inbox, flagged, snoozed, drafts, sent, archive, all, junk, trash, other };

/// The stored word, which equals the enumerator's name.
std::string_view rawText(MailboxRole role);
std::optional<MailboxRole> mailboxRoleFrom(std::string_view rawText);

/// The role that special-use attributes (in any case) give; absent when there is none among them.
std::optional<MailboxRole> mailboxRoleOfAttributes(const std::set<std::string>& attributes);

/// The role of a mailbox seen for itself: INBOX first, then its special-use attributes (in any case), then the last
/// component of its path.
MailboxRole mailboxRole(std::string_view path, const std::set<std::string>& attributes);

/// What a person sees: the localised "Inbox" for the inbox, otherwise the last component of the path, decoded.
std::string mailboxDisplayName(std::string_view path, const std::optional<std::string>& delimiter, MailboxRole role);

}
