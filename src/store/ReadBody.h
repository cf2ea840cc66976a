#pragma once

#include "base/Bytes.h"
#include "store/MessageCache.h"

#include <string>

namespace velmo {

/// A body that was taken apart, with what is kept of it elsewhere.
struct ReadBody {
    MessageCache::EntryPointer entry;
    std::string indexText; ///< what can be searched for: the beginning of the message's text; empty when it has none
    std::string snippet;
};

/// Takes a whole message (RFC 5322) apart. Never fails; runs on the caller's thread, and takes its time.
ReadBody readBody(BytesView source);

}
