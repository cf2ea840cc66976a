#include "terminal/DateWords.h"

#include "base/Localisation.h"
#include "platform/LocalTime.h"

#include <array>
#include <chrono>

namespace velmo {

namespace {

constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

std::string month(const CivilTime& time) {
    return tr(months.at(static_cast<std::size_t>(time.month - 1)));
}

}

std::string shortDate(Date date, Date now) {
    const CivilTime then = localTime(date), today = localTime(now);
    if (then.year != today.year) return fmt::format("{:04}-{:02}-{:02}", then.year, then.month, then.day);
    if (then.month == today.month && then.day == today.day) return fmt::format("{:02}:{:02}", then.hour, then.minute);
    return fmt::format("{:2} {}", then.day, month(then));
}

std::string longDate(Date date) {
    const CivilTime time = localTime(date);
    const auto day = std::chrono::floor<std::chrono::days>(date + time.offset);
    const auto weekday = std::chrono::weekday{day}.c_encoding();
    return fmt::format("{}, {} {} {}, {:02}:{:02}", tr(weekdays.at(weekday)), time.day, month(time), time.year,
                       time.hour, time.minute);
}

}
