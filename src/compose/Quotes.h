#pragma once

#include "formats/ParsedMessage.h"
#include "records/MessageRecord.h"

#include <string>
#include <string_view>

/// What a new message takes over from the one that it answers or forwards. All texts are UTF-8 with LF between lines.
namespace velmo {

/// The subject with the prefix ("Re:", "Fwd:") before it, unless it begins with it in whatever case.
std::string prefixed(std::string_view prefix, std::string_view subject);

/// The lines without invisible characters and outer blanks; no two empty lines in a row, none at the end.
std::string cleanedForQuoting(std::string_view text);

/// The text of a message, cleaned: the plain text, or that of the HTML where there is none.
std::string quotableText(const ParsedMessage& message);

/// A sender on one line: "Jane <jane@example.org>", or the address alone.
std::string senderLine(const MessageRecord& record);

/// The line that says who wrote a quoted text, in the person's language, and the text with "> " before each line.
std::string replyQuote(const MessageRecord& record, const ParsedMessage& message);

/// The first line of a forwarded message, in the person's language.
std::string forwardLine();

/// The line above, who wrote what to whom, an empty line, and the text unquoted.
std::string forwardQuote(const MessageRecord& record, const ParsedMessage& message);

}
