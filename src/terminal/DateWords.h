#pragma once

#include "base/Date.h"

#include <string>

namespace velmo {

/// The moment in the machine's time zone, for a list: "09:41" today, "22 Nov" this year, "2025-11-22" otherwise. Nine
/// columns at most.
std::string shortDate(Date date, Date now);

/// "Sun, 22 Nov 2026, 09:41"
std::string longDate(Date date);

}
