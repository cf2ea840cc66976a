#pragma once

#include "base/Date.h"
#include "base/UUID.h"
#include "formats/IMAPAddress.h"
#include "records/AttachmentInfo.h"
#include "records/MailboxRecord.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// The flags of a message in the form in which they are kept.
struct MessageFlags {
    bool isSeen = false;
    bool isFlagged = false;
    bool isAnswered = false;
    bool isDraft = false;
    std::vector<std::string> otherFlags; ///< sorted, in the case in which they came; never \Recent

    /// Reads the flags of a FETCH response (RFC 3501 §2.3.2), in any case.
    static MessageFlags from(const std::set<std::string>& flags);

    friend bool operator==(const MessageFlags&, const MessageFlags&) = default;
};

/// One message in one mailbox. Unique by account, mailbox path and UID; a mailbox whose UIDVALIDITY changed is emptied
/// before it is filled again.
struct MessageRecord {
    std::int64_t id = 0; ///< given at the insert, never given again; what a person types
    UUID accountID;
    std::string mailboxPath;
    std::int64_t uid = 0; ///< an unsigned 32-bit number
    std::int64_t uidValidity = 0;
    std::optional<std::string> messageID; ///< as sent, with its angle brackets
    std::optional<std::string> inReplyTo;
    std::vector<std::string> references;
    std::string threadKey; ///< messages of one conversation share it
    std::string subject;
    std::string fromName;
    std::string fromEmail;
    std::vector<IMAPAddress> to;
    std::vector<IMAPAddress> cc;
    std::vector<IMAPAddress> replyTo;
    Date date;
    std::int64_t size = 0; ///< bytes on the server
    bool isSeen = false;
    bool isFlagged = false;
    bool isAnswered = false;
    bool isDraft = false;
    std::vector<std::string> otherFlags;
    std::string snippet;
    std::string categoryRaw;  ///< empty: no category
    std::string labelsJoined; ///< label keys joined by "|"
    bool hasAttachments = false;
    std::vector<AttachmentInfo> attachments;
    bool hasInvite = false;
    bool hasBody = false; ///< the whole message is in the body files
    std::optional<std::string> summary;
    std::optional<std::string> translation;
    std::optional<std::string> translationLanguage;

    MailboxKey mailboxKey() const { return {accountID, mailboxPath}; }
    MessageFlags flags() const { return {isSeen, isFlagged, isAnswered, isDraft, otherFlags}; }
    void setFlags(MessageFlags flags);

    /// Takes over the flags that the server sent; true when that changed anything.
    bool applyFlags(const std::set<std::string>& flags);

    friend bool operator==(const MessageRecord&, const MessageRecord&) = default;
};

}
