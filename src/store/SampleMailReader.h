#pragma once

#include "base/Bytes.h"
#include "protocols/IMAPBodyStructure.h"
#include "sync/MailboxDelta.h"

#include <cstdint>
#include <set>
#include <string>

namespace velmo {

/// What a server would tell of a message (RFC 5322) when it is synced: its envelope, its parts with their numbers,
/// the beginning of its text. Never fails; what the message lacks is absent.
SyncedMessage syncedMessage(std::uint32_t uid, std::set<std::string> flags, BytesView source);

/// The parts of a message as a server numbers them (RFC 3501 §6.4.5). Parameters are decoded. Multiparts deeper than
/// ten levels count as one part.
IMAPBodyStructure bodyStructureOf(BytesView source);

}
