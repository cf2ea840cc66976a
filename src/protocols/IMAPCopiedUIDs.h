#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

namespace velmo {

/// Where messages went, as far as the server told.
struct IMAPCopiedUIDs {
    std::uint32_t uidValidity = 0;                  ///< of the mailbox that they went to; 0: not told
    std::map<std::uint32_t, std::uint32_t> targets; ///< by the UID before
};

/// Adds what a response code COPYUID tells (RFC 4315 §3); any other code, and one with sets of different lengths or of
/// more than `most` messages, adds nothing.
void addCopiedUIDs(std::string_view code, std::size_t most, IMAPCopiedUIDs& copied);

}
