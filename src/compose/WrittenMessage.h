#pragma once

#include "accounts/MailAccount.h"
#include "compose/OutboxItem.h"
#include "platform/Settings.h"

namespace velmo {

/// The setting with the person's name, as messages of the account carry it: "senderName.{UUID}".
std::string senderNameKey(const UUID& account);

/// From whom messages of the account come: its address, and the person's name if any.
IMAPAddress senderAddress(const Settings& settings, const MailAccount& account);

/// The message that was written, of now: with its styled form, and with the signature's pictures. An identifier of its
/// own where the item has none. Any thread.
OutgoingMessage writtenMessage(const OutboxItem& item, const MailAccount& sender, Settings& settings, Date now);

}
