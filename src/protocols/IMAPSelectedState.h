#pragma once

#include <cstdint>
#include <optional>

namespace velmo {

/// What a server reported of a mailbox when it was selected (RFC 3501 §6.3.1, RFC 7162 §3.1.2).
struct IMAPSelectedState {
    std::int64_t exists = 0;
    std::uint32_t uidValidity = 0;
    std::uint32_t uidNext = 0;
    std::optional<std::uint64_t> highestModSeq;

    friend bool operator==(const IMAPSelectedState&, const IMAPSelectedState&) = default;
};

}
