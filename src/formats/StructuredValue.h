#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// The value of a Content-Type or Content-Disposition field (RFC 2045 §5.1, RFC 2183): a main value with parameters.
struct StructuredValue {
    using Parameters = std::map<std::string, std::string, std::less<>>;

    std::string value;     ///< lower-case: "text/plain", "attachment"
    Parameters parameters; ///< by lower-case name; continuations are joined and charsets decoded (RFC 2231)

    /// Never fails; text without any structure is its own main value.
    static StructuredValue parse(std::string_view text);

    /// The value of a parameter, named in lower case. Valid as long as this object.
    std::optional<std::string_view> parameter(std::string_view name) const;
};

/// Parameters that were read one by one, with lower-case names: continuations joined and charsets decoded (RFC 2231).
StructuredValue::Parameters joinedParameters(const std::map<std::string, std::string>& pairs);

/// Text without its comments in parentheses (RFC 2045 §5.1). One that is never closed is none.
std::string withoutComments(std::string_view text);

}
