#pragma once

#include "terminal/Session.h"

#include <optional>
#include <string>

namespace velmo {

/// What a person may write after --mailbox and --to, for the help.
constexpr const char* mailboxWordHelp = "A role (inbox, archive, junk…) or the name of a mailbox, as: velmo mailboxes";

/// The path of a mailbox as people write it.
std::string shownPath(const std::string& path);

/// The mailbox of the account that a person means: by its path as it is shown or as the server spells it, or else by
/// its role, or else by its path without regard to case.
std::optional<MailboxRecord> mailboxMeant(Session& session, const UUID& accountID, const std::string& word);

/// There is no mailbox of that name.
CommandError noMailbox(const std::string& word);

}
