#pragma once

#include "base/Bytes.h"
#include "base/Date.h"
#include "protocols/IMAPBodyStructure.h"
#include "protocols/IMAPEnvelope.h"
#include "protocols/IMAPValue.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace velmo {

/// What one FETCH response says of a message (RFC 3501 §7.4.2). An item that was not sent, or cannot be read, is
/// absent.
struct IMAPFetchResult {
    std::int64_t sequence = 0;
    std::optional<std::uint32_t> uid;
    /// As sent.
    std::optional<std::set<std::string>> flags;
    std::optional<Date> internalDate;
    std::optional<std::int64_t> size;
    std::optional<std::uint64_t> modSeq;
    std::optional<IMAPEnvelope> envelope;
    std::optional<IMAPBodyStructure> bodyStructure;
    /// Raw bytes by what stands between the brackets: "" for the whole message, "1.2", "HEADER.FIELDS (REFERENCES)".
    std::map<std::string, Bytes> sections;
    std::optional<std::uint64_t> gmailThreadID;

    /// From the words of an untagged response; absent when they are no FETCH.
    static std::optional<IMAPFetchResult> read(IMAPValues words);
};

}
