#pragma once

#include "base/Bytes.h"
#include "protocols/IMAPError.h"
#include "protocols/IMAPValue.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// One logical response of a server: a line with the literals that it announced (RFC 3501 §7).
///
/// Owns its bytes; the values are views into them and stay valid when the response is moved or copied.
class IMAPResponse {
  public:
    enum class Kind { tagged, untaggedStatus, untagged, continuation };
    enum class Status { ok, no, bad, bye, preauth };

    Kind kind() const { return kind_; }
    bool isUntagged() const { return kind_ == Kind::untagged; }
    /// True for a tagged response with this tag.
    bool isTagged(std::string_view tag) const { return kind_ == Kind::tagged && tag_ == tag; }

    /// Of a tagged response.
    const std::string& tag() const { return tag_; }
    /// Of a tagged response or an untagged status.
    Status status() const { return status_; }
    /// What stands between the brackets, taken literally; of a tagged response or an untagged status.
    const std::optional<std::string>& code() const { return code_; }
    /// The human-readable text, or the words of a continuation; trimmed, ill-formed UTF-8 repaired.
    const std::string& text() const { return text_; }
    /// The words after the star of an untagged response; none otherwise.
    IMAPValues values() const;

  private:
    friend IMAPResponse parseResponse(Bytes bytes);
    IMAPResponse() = default;

    Kind kind_ = Kind::untagged;
    Status status_ = Status::ok;
    std::string tag_;
    std::optional<std::string> code_;
    std::string text_;
    std::shared_ptr<const IMAPTree> tree_;
};

/// Reads one response: the line and its literals as they came, each literal with the CR LF before it, without the
/// final CR LF. Linear in time and memory, without recursion. Throws IMAPParseError.
IMAPResponse parseResponse(Bytes bytes);

/// The length of the literal that a line announces at its end: "{12}" or "{12+}" (RFC 7888). Absent when it announces
/// none, or one that does not fit the type.
std::optional<std::int64_t> literalLength(BytesView line);

}
