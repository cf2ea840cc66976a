#pragma once

#include "formats/IMAPAddress.h"
#include "records/MessageRecord.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// Whom an answer goes to.
enum class ReplyScope { sender, all };

struct ReplyRecipients {
    std::vector<IMAPAddress> to;
    std::vector<IMAPAddress> cc;

    friend bool operator==(const ReplyRecipients&, const ReplyRecipients&) = default;
};

/// The recipients of an answer: the addresses of Reply-To, or the sender. An answer to all copies it to the other
/// recipients of the original, each once, and never to the person's own address in whatever case; on the person's own
/// message it goes to those that the message went to.
ReplyRecipients replyRecipients(const MessageRecord& original, ReplyScope scope, std::string_view ownEmail);

/// Addresses of Reply-To whose domain is neither the sender's nor one above or below it. The message alone says that an
/// answer belongs there.
std::vector<IMAPAddress> foreignReplyTo(const MessageRecord& original);

/// The recipients of a message that follows up one of the person's own: those of that message.
ReplyRecipients followUpRecipients(const MessageRecord& sent);

/// What ties an answer to its conversation (RFC 5322 §3.6.4).
struct ReplyThread {
    std::optional<std::string> inReplyTo; ///< absent when the original has no identifier
    std::vector<std::string> references;

    friend bool operator==(const ReplyThread&, const ReplyThread&) = default;
};

ReplyThread replyThread(const MessageRecord& original);

}
