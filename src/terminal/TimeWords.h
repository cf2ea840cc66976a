#pragma once

#include "base/Date.h"

#include <optional>
#include <string>

namespace velmo {

/// The moment that a word names: "2026-11-24T09:00" or "2026-11-24 09:00", also with seconds, in the machine's zone
/// unless "Z" or an offset such as "+01:00" follows. Absent for anything else, a 31 February included.
std::optional<Date> timeFrom(const std::string& word);

}
