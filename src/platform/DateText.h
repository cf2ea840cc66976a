#pragma once

#include "base/Date.h"

#include <string>
#include <string_view>

namespace velmo {

/// How much of a date is written out, before a time of hours and minutes.
enum class DateStyle {
    abbreviated, ///< "Nov 22, 2026, 9:41 AM"
    complete,    ///< "Sunday, November 22, 2026 at 9:41 AM"
};

/// The locale in which the person reads dates, as the environment names it (LC_ALL, LC_TIME, LANG): "de_DE". English
/// for "C", "POSIX" and where nothing is set.
std::string dateLocale();

/// The date and time of day in the machine's time zone, in the words and the order of the locale. Blanks in it are
/// plain ones. Any thread.
std::string dateText(Date date, DateStyle style, std::string_view locale);
std::string dateText(Date date, DateStyle style);

}
