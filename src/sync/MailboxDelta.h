#pragma once

#include "base/Date.h"
#include "protocols/IMAPBodyStructure.h"
#include "protocols/IMAPEnvelope.h"
#include "protocols/IMAPSelectedState.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// What the server tells about a message before its body is fetched.
struct SyncedMessage {
    std::uint32_t uid = 0;
    std::set<std::string> flags;
    bool hasFlags = true; ///< false: the server told none, and those that are held stay
    Date date;            ///< of the envelope, else of the arrival
    std::int64_t size = 0;
    std::optional<IMAPEnvelope> envelope;
    std::optional<IMAPBodyStructure> bodyStructure;
    std::vector<std::string> references;
    std::optional<std::uint64_t> gmailThreadID;
    std::optional<std::string> snippet; ///< the beginning of the text
    bool isBulk = false;                ///< the headers mark a mailing
};

/// What is new in a mailbox since it was last looked at. Applying it twice is the same as applying it once.
struct MailboxDelta {
    IMAPSelectedState state;
    bool isReset = false; ///< UIDVALIDITY changed: nothing that is held about the mailbox means anything any more
    /// Nothing was held: the new messages are the newest, and below the lowest of them others may be that are not held.
    bool isFilling = false;
    std::vector<SyncedMessage> newMessages;
    std::map<std::uint32_t, std::set<std::string>> flagChanges; ///< flags by UID, changed or not
    std::vector<std::uint32_t> vanished;
    /// What the server would not give, in its words; the messages stand among the new ones, without a head.
    std::optional<std::string> refusal;
};

}
