#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "formats/MIMEHeaders.h"
#include "protocols/IMAPFetchResult.h"
#include "sync/MailboxDelta.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// What FETCH results tell. Servers may cut what they say of a message into several results, and add flags of others.
struct FetchedHeads {
    std::vector<SyncedMessage> messages;                  ///< that were asked for, each once
    std::map<std::uint32_t, std::set<std::string>> flags; ///< of the others, by UID
    std::vector<std::uint32_t> bare;    ///< that were asked for, and of which nothing but the UID or flags came
    std::optional<std::string> refusal; ///< why some could not be had, in the words of the server
};

/// Puts together what belongs to one UID; a result without a UID tells nothing. A message is what `isAsked` accepts and
/// of which more than flags came. One without any date gets `now`.
FetchedHeads fetchedHeads(std::vector<IMAPFetchResult> results,
                          const std::function<bool(const IMAPFetchResult&)>& isAsked, Date now);

/// True when the headers say that the message went to a list or to many (RFC 2369, RFC 2919, Precedence).
bool marksMailing(const MIMEHeaders& headers);

/// The part that a snippet comes from: the first plain text that is no attachment, else the first such HTML.
std::optional<IMAPBodyPart> snippetPart(const IMAPBodyStructure& structure);

/// The snippet of a part, from the beginning of its encoded bytes, which may stop anywhere.
std::string snippetOf(BytesView beginning, const IMAPBodyPart& part);

}
