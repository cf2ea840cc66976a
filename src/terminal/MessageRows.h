#pragma once

#include "records/MessageTable.h"
#include "terminal/Session.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// Whom the line of a message names.
enum class RowNames { senders, recipients };

/// The lines of a list, one a message; with `--json` the array of them. `account` of an item is the address.
void printRows(Session& session, const std::vector<MessageRecord>& messages, RowNames names = RowNames::senders);

/// The items of a list as `--json` shows them.
nlohmann::json jsonOfRows(Session& session, const std::vector<MessageRecord>& messages);

/// The place of a row as a word that a person can type, and back; absent when the word is none.
std::string pageToken(const MessagePlace& place);
std::optional<MessagePlace> placeFrom(std::string_view token);

/// The messages with these numbers. Throws CommandError when one is not there.
std::vector<MessageRecord> messagesNumbered(Session& session, const std::vector<std::int64_t>& ids);

}
