#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Date.h"
#include "base/UUID.h"
#include "protocols/IMAPMailbox.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class SyncWriter;

/// The mail that the program shows to someone who has no account yet: a small mailbox of invented people, built into
/// the program. It is read and stored like any other mail.

/// The account that the samples belong to, and its address.
inline constexpr UUID sampleAccountID{};
inline constexpr std::string_view sampleAddress = "you@example.com";

struct SampleMessage {
    std::string mailboxPath;
    std::uint32_t uid = 0;
    std::set<std::string> flags;
    Bytes source; ///< the whole message (RFC 5322)
};

/// With their attributes and roles, the inbox first.
std::vector<IMAPMailbox> sampleMailboxes();

/// All samples, by mailbox in the order of `sampleMailboxes` and by UID. Their dates are moved so that the newest is a
/// few minutes older than `now`, and the event of the invitation lies a few days ahead; the same `now` gives the same
/// bytes.
std::vector<SampleMessage> sampleMessages(Date now);

/// The source of one of them; absent when there is none.
std::optional<Bytes> sampleSource(std::string_view mailboxPath, std::uint32_t uid, Date now);

/// Stores the sample mailboxes and their messages for `sampleAccountID`. Starts and ends on the caller's executor.
/// Throws what the writer throws.
Async<void> fillWithSamples(SyncWriter& writer, Date now);

}
