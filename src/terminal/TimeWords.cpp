#include "terminal/TimeWords.h"

#include "base/Text.h"

#include <chrono>
#include <ctime>
#include <string_view>

namespace velmo {

namespace {

using std::chrono::minutes;
using std::chrono::seconds;

/// Takes what stands at the beginning of a text.
class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool isAtEnd() const { return text_.empty(); }

    bool take(std::string_view characters) {
        if (text_.empty() || characters.find(text_.front()) == std::string_view::npos) return false;
        text_.remove_prefix(1);
        return true;
    }

    /// A number of exactly so many digits, up to `most`; absent when something else stands there.
    std::optional<int> number(std::size_t digits, unsigned most) {
        const auto word = text_.substr(0, digits);
        const bool isNumber = word.size() == digits && word.find_first_not_of("0123456789") == std::string_view::npos;
        const auto value = isNumber ? text::parseUnsigned32(word) : std::nullopt;
        if (!value || *value > most) return std::nullopt;
        text_.remove_prefix(digits);
        return static_cast<int>(*value);
    }

  private:
    std::string_view text_;
};

struct Clock24 {
    int hour = 0, minute = 0, second = 0;
};

std::optional<std::chrono::year_month_day> day(Reader& reader) {
    const auto year = reader.number(4, 9999);
    if (!year || !reader.take("-")) return std::nullopt;
    const auto month = reader.number(2, 12);
    if (!month || !reader.take("-")) return std::nullopt;
    const auto number = reader.number(2, 31);
    if (!number) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year{*year}, std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*number)}};
    return date.ok() ? std::optional(date) : std::nullopt;
}

std::optional<Clock24> timeOfDay(Reader& reader) {
    const auto hour = reader.number(2, 23);
    if (!hour || !reader.take(":")) return std::nullopt;
    const auto minute = reader.number(2, 59);
    if (!minute) return std::nullopt;
    if (!reader.take(":")) return Clock24{*hour, *minute, 0};
    const auto second = reader.number(2, 59);
    return second ? std::optional(Clock24{*hour, *minute, *second}) : std::nullopt;
}

/// "Z", "+01:00", "+0100" or "+01".
std::optional<minutes> offset(Reader& reader) {
    if (reader.take("Zz")) return minutes{0};
    const bool isEast = reader.take("+");
    if (!isEast && !reader.take("-")) return std::nullopt;
    const auto hours = reader.number(2, 14);
    if (!hours) return std::nullopt;
    const bool hasColon = reader.take(":");
    const bool hasMinutes = hasColon || !reader.isAtEnd();
    const auto rest = hasMinutes ? reader.number(2, 59) : std::optional(0);
    if (!rest) return std::nullopt;
    const minutes all{*hours * 60 + *rest};
    return isEast ? all : -all;
}

Date localMoment(const std::chrono::year_month_day& day, const Clock24& time) {
    std::tm local{};
    local.tm_year = static_cast<int>(day.year()) - 1900;
    local.tm_mon = static_cast<int>(static_cast<unsigned>(day.month())) - 1;
    local.tm_mday = static_cast<int>(static_cast<unsigned>(day.day()));
    local.tm_hour = time.hour;
    local.tm_min = time.minute;
    local.tm_sec = time.second;
    local.tm_isdst = -1;
    return Date{seconds{std::mktime(&local)}};
}

}

std::optional<Date> timeFrom(const std::string& word) {
    Reader reader(word);
    const auto date = day(reader);
    if (!date || !reader.take("Tt ")) return std::nullopt;
    const auto time = timeOfDay(reader);
    if (!time) return std::nullopt;
    if (reader.isAtEnd()) return localMoment(*date, *time);
    const auto east = offset(reader);
    if (!east || !reader.isAtEnd()) return std::nullopt;
    const auto moment = std::chrono::sys_days{*date} + std::chrono::hours{time->hour} + minutes{time->minute} +
                        seconds{time->second} - *east;
    return Date{moment.time_since_epoch()};
}

}
