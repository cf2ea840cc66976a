#pragma once

#include <string>
#include <string_view>

namespace velmo {

// Names of senders are what senders like. One that holds an "@" could pass for the address, so that it never stands
// without the address, and never before it. Blanks of any width are one blank; what shows nothing is left out.

/// "Name <address>", the address alone where there is no other name, or "address (Name)" where the name holds an "@".
std::string shownAddress(std::string_view name, std::string_view email);

/// The name where that is enough to know the sender by, for where there is little room.
std::string shortAddress(std::string_view name, std::string_view email);

/// A field such as From as it stands in a message: read as addresses before anything in it is decoded (RFC 2047 §6.2).
/// What holds no address is shown decoded.
std::string shownAddresses(std::string_view field);

}
