#pragma once

#include "protocols/IMAPMailbox.h"

#include <cstdint>

namespace velmo {

/// A mailbox of a listing with the counts that STATUS gave (RFC 3501 §6.3.10); both are 0 when it gave none.
struct ListedMailbox {
    IMAPMailbox mailbox;
    std::int64_t messages = 0;
    std::int64_t unseen = 0;
};

}
