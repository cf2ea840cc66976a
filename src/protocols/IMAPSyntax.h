#pragma once

#include "protocols/IMAPClient.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// What the sources of IMAPClient share.
namespace velmo {

/// What each line and each piece of a literal may take.
inline constexpr Duration imapReadTimeout{30'000};

/// True when a text holds CR, LF or NUL.
bool hasLineBreak(std::string_view text);

/// Throws IMAPError::unexpected when a text holds CR, LF or NUL, which would end or break the line of a command. The
/// error does not show the text.
void refuseLineBreaks(std::initializer_list<std::string_view> texts);

/// The command as an error may show it: without its arguments when they are secret.
std::string shownCommand(std::string_view command, IMAPClient::Sensitivity sensitivity);

/// The values of each untagged response that begins with this word, in any case.
std::vector<IMAPValues> untagged(const std::vector<IMAPResponse>& responses, std::string_view word);

}
