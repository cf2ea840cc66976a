#pragma once

#include "formats/ParsedMessage.h"
#include "records/MessageRecord.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace velmo {

/// A row of a list, with the names that scripts rely on. `account` is the address of its account.
nlohmann::json jsonOf(const MessageRecord& record, const std::string& account);

/// A whole message: headers as [name, value], texts, attachments with size and SHA-256 of their decoded bytes.
nlohmann::json jsonOf(const ParsedMessage& message);

}
