#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "base/UUID.h"
#include "formats/IMAPAddress.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// A file that goes along with a message.
struct OutgoingAttachment {
    UUID id;
    std::string filename;
    std::string mimeType;
    Bytes data;

    friend bool operator==(const OutgoingAttachment&, const OutgoingAttachment&) = default;
};

/// A picture that the HTML of a message refers to by "cid:" (RFC 2392).
struct InlinePicture {
    std::string contentID; ///< without angle brackets
    std::string mimeType;
    Bytes data;

    friend bool operator==(const InlinePicture&, const InlinePicture&) = default;
};

/// A part of iTIP (RFC 5546): an answer to an invitation.
struct OutgoingCalendar {
    std::string method; ///< "REPLY" and so on
    std::string text;   ///< the iCalendar object
};

/// A message that this system sends, stores as a draft or files as sent. Texts are UTF-8.
struct OutgoingMessage {
    /// An empty message, with an identifier of its own in the domain of the sender.
    OutgoingMessage(IMAPAddress from, Date date);

    IMAPAddress from;
    std::vector<IMAPAddress> to, cc, bcc;
    std::string subject;
    std::string plainText;
    std::optional<std::string> html;
    std::vector<InlinePicture> pictures;
    std::optional<std::string> inReplyTo; ///< with its angle brackets, as all identifiers here
    std::vector<std::string> references;
    std::vector<OutgoingAttachment> attachments;
    std::optional<OutgoingCalendar> calendar;
    Date date;
    std::string messageID;

    /// True for a blank draft: no recipient, no attachment, no subject, and no text but white space.
    bool isEmpty() const;

    /// The addresses of the envelope: to, cc and bcc, each once whatever the case of its letters, as first spelled.
    std::vector<std::string> recipients() const;

    /// The message in RFC 5322 and MIME (RFC 2045 to 2047, 2231), with CR LF line ends. `bcc` is in no header. Whatever
    /// the fields hold, none of them begins a header, a part or a line of its own. Each call chooses new boundaries, so
    /// it is called once for a message. Never fails; may be called on any thread.
    Bytes build() const;

    /// The same as a draft, which only its writer sees: with `bcc` in a header, so that it is there when the draft is
    /// opened again.
    Bytes buildDraft() const;

    // --- Addresses as people type them ---------------------------------------------------------------------------

    /// `address`, or `name <address>` with the name in double quotes or without. Absent unless the address is whole
    /// (`domainOf`).
    static std::optional<IMAPAddress> parseAddress(std::string_view text);

    /// The addresses of a list; what is none is left out.
    static std::vector<IMAPAddress> parseAddressList(std::string_view text);

    /// The pieces of a list between commas and semicolons, for those who want to tell of bad ones. Quotes and angle
    /// brackets keep theirs. Empty pieces are included.
    static std::vector<std::string_view> splitAddressList(std::string_view text);

  private:
    enum class BlindCopies { left, told };
    Bytes built(BlindCopies blindCopies) const;
};

}
