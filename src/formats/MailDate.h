#pragma once

#include "base/Date.h"

#include <optional>
#include <string_view>

namespace velmo {

/// The moment that a Date field tells (RFC 5322 §3.3, and the two-digit years and zone names of §4.3); absent when the
/// text is no date. Comments and superfluous white space are ignored, and so is a weekday that does not fit the date.
std::optional<Date> parseDate(std::string_view text);

}
