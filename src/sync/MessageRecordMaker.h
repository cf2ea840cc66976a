#pragma once

#include "records/MessageRecord.h"
#include "sync/MailboxDelta.h"
#include "sync/WriterTypes.h"

#include <string>
#include <string_view>

namespace velmo {

/// The record of a message that was not held before, with its thread, category and attachments worked out.
MessageRecord makeMessageRecord(const SyncedMessage& message, const MailboxKey& mailbox, std::int64_t uidValidity,
                                LabelNewMail labelNewMail);

/// What the messages of one conversation have in common: the provider's own thread number, else the root of the
/// references, else the message that is answered, else the message itself in its mailbox.
std::string threadKey(const SyncedMessage& message, std::string_view mailboxPath);

}
