#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "formats/MIMEHeaders.h"
#include "protocols/IMAPFetchResult.h"
#include "sync/MailboxDelta.h"

#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// The messages among FETCH results; a result without a UID is none. A message without any date gets `now`.
std::vector<SyncedMessage> syncedMessages(std::vector<IMAPFetchResult> results, Date now);

/// True when the headers say that the message went to a list or to many (RFC 2369, RFC 2919, Precedence).
bool marksMailing(const MIMEHeaders& headers);

/// The part that a snippet comes from: the first plain text that is no attachment, else the first such HTML.
std::optional<IMAPBodyPart> snippetPart(const IMAPBodyStructure& structure);

/// The snippet of a part, from the beginning of its encoded bytes, which may stop anywhere.
std::string snippetOf(BytesView beginning, const IMAPBodyPart& part);

}
