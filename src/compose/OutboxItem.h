#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "base/UUID.h"
#include "formats/IMAPAddress.h"
#include "formats/OutgoingMessage.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A message that waits to be sent. Everything is as the person left it; the styled form is made when it is sent.
struct OutboxItem {
    /// The `sendAt` of an item that waits for the person: 4001-01-01T00:00:00Z.
    static constexpr Date distantFuture{std::chrono::milliseconds{64'092'211'200'000}};

    UUID id;
    UUID accountID; ///< who sends it
    Date sendAt;
    bool isScheduled = false; ///< the person chose the time
    std::vector<IMAPAddress> to, cc, bcc;
    std::string subject;
    std::string body; ///< plain text with signature and quote, LF between lines
    std::vector<OutgoingAttachment> attachments;
    std::string messageID; ///< the same at each attempt
    std::optional<std::string> inReplyTo;
    std::vector<std::string> references;
    std::optional<std::int64_t> answering; ///< the `id` of the message that it answers
    bool hasSavedDraft = false;            ///< a draft with this Message-ID is on the server
    std::optional<std::string> failure;    ///< why the last attempt failed, as a sentence
    int tries = 0; ///< attempts that left it open whether the server takes the message, since a person last sent it

    /// It waits for the person, not for its time.
    bool hasFailed() const { return failure && sendAt >= distantFuture; }

    /// A JSON object whose keys are the names above; dates are of ISO 8601, identifiers and bytes are texts. What is
    /// absent, or no `tries`, has no key.
    Bytes json() const;

    /// Reads it; absent when it is no such object, or any value has another type.
    static std::optional<OutboxItem> fromJSON(BytesView data);

    friend bool operator==(const OutboxItem&, const OutboxItem&) = default;
};

using OutboxItemPointer = std::shared_ptr<const OutboxItem>;

}
