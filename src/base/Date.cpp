#include "base/Date.h"

#include "base/Text.h"

#include <array>
#include <fmt/format.h>

namespace velmo {

namespace chrono = std::chrono;

std::optional<Date> dateFrom(const CivilTime& civil) {
    const chrono::year_month_day day{chrono::year{civil.year}, chrono::month{static_cast<unsigned>(civil.month)},
                                     chrono::day{static_cast<unsigned>(civil.day)}};
    const bool timeFits = civil.hour >= 0 && civil.hour < 24 && civil.minute >= 0 && civil.minute < 60 &&
                          civil.second >= 0 && civil.second <= 60;
    if (civil.year < 1 || civil.year > 9999 || !day.ok() || !timeFits) return std::nullopt;
    return Date{chrono::sys_days{day}} + chrono::hours{civil.hour} + chrono::minutes{civil.minute} +
           chrono::seconds{civil.second} - civil.offset;
}

CivilTime civilTime(Date date, chrono::minutes offset) {
    const auto local = date + offset;
    const auto midnight = chrono::floor<chrono::days>(local);
    const chrono::year_month_day day{midnight};
    const chrono::hh_mm_ss time{chrono::floor<chrono::seconds>(local - midnight)};
    return CivilTime{static_cast<int>(day.year()),
                     static_cast<int>(static_cast<unsigned>(day.month())),
                     static_cast<int>(static_cast<unsigned>(day.day())),
                     static_cast<int>(time.hours().count()),
                     static_cast<int>(time.minutes().count()),
                     static_cast<int>(time.seconds().count()),
                     offset};
}

std::string iso8601(Date date) {
    const CivilTime t = civilTime(date);
    const auto part = (date - chrono::floor<chrono::seconds>(date)).count();
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}Z", t.year, t.month, t.day, t.hour, t.minute, t.second,
                       part == 0 ? std::string{} : fmt::format(".{:03}", part));
}

std::optional<Date> dateFromISO8601(std::string_view text) {
    constexpr std::string_view shape = "0000-00-00T00:00:00";
    if (text.size() < shape.size() + 1 || !text.ends_with('Z')) return std::nullopt;
    for (std::size_t i = 0; i < shape.size(); ++i)
        if (shape[i] == '0' ? !text::isDigit(text[i]) : text[i] != shape[i]) return std::nullopt;
    const auto number = [&](std::size_t at, std::size_t count) {
        return static_cast<int>(*text::parseUnsigned32(text.substr(at, count)));
    };
    const auto date = dateFrom(
        {number(0, 4), number(5, 2), number(8, 2), number(11, 2), number(14, 2), number(17, 2), chrono::minutes{0}});
    if (!date || text.size() == shape.size() + 1) return date;
    const auto part = text.substr(shape.size(), text.size() - shape.size() - 1);
    const auto milliseconds = part.size() == 4 ? text::parseUnsigned32(part.substr(1)) : std::nullopt;
    if (part.front() != '.' || !milliseconds) return std::nullopt;
    return *date + chrono::milliseconds{*milliseconds};
}

std::optional<int> monthNumber(std::string_view name) {
    constexpr std::array<std::string_view, 12> names{"january",   "february", "march",    "april",
                                                     "may",       "june",     "july",     "august",
                                                     "september", "october",  "november", "december"};
    for (std::size_t i = 0; i < names.size(); ++i)
        if (text::equalsIgnoringCase(name, names[i]) || text::equalsIgnoringCase(name, names[i].substr(0, 3)))
            return static_cast<int>(i) + 1;
    return std::nullopt;
}

}
