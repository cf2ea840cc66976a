#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// A mailbox name as people write it, in UTF-8: modified UTF-7 decoded (RFC 3501 §5.1.3). One that is no modified
/// UTF-7, as servers send that speak UTF-8, comes back as it is.
std::string decodedMailboxName(std::string_view name);

}
