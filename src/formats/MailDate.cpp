#include "formats/MailDate.h"

#include "base/Text.h"
#include "formats/WhiteSpace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

namespace velmo {

namespace {

using std::chrono::minutes;

enum class Weekday { none, leading };
enum class Year { fourDigits, twoDigits };
enum class Seconds { none, present };
enum class Zone { offset, named };

struct Pattern {
    Weekday weekday;
    Seconds seconds;
    Zone zone;
};

/// The shapes of a date that senders write, each with a year of four digits or of two; any other text is none.
constexpr Pattern patterns[] = {
    {Weekday::leading, Seconds::present, Zone::offset}, {Weekday::none, Seconds::present, Zone::offset},
    {Weekday::leading, Seconds::none, Zone::offset},    {Weekday::leading, Seconds::present, Zone::named},
    {Weekday::none, Seconds::present, Zone::named},
};

constexpr std::array<std::string_view, 7> weekdays{"monday", "tuesday",  "wednesday", "thursday",
                                                   "friday", "saturday", "sunday"};

/// RFC 5322 §4.3, and the abbreviations beside them that mean one zone only.
constexpr struct {
    std::string_view name;
    minutes offset;
} zones[] = {
    {"UT", minutes{0}},      {"GMT", minutes{0}},     {"UTC", minutes{0}},    {"Z", minutes{0}},
    {"EST", minutes{-300}},  {"EDT", minutes{-240}},  {"CST", minutes{-360}}, {"CDT", minutes{-300}},
    {"MST", minutes{-420}},  {"MDT", minutes{-360}},  {"PST", minutes{-480}}, {"PDT", minutes{-420}},
    {"AKST", minutes{-540}}, {"AKDT", minutes{-480}}, {"HST", minutes{-600}}, {"AST", minutes{-240}},
    {"ADT", minutes{-180}},  {"WET", minutes{0}},     {"WEST", minutes{60}},  {"BST", minutes{60}},
    {"CET", minutes{60}},    {"CEST", minutes{120}},  {"MET", minutes{60}},   {"MEST", minutes{120}},
    {"EET", minutes{120}},   {"EEST", minutes{180}},  {"MSK", minutes{180}},  {"HKT", minutes{480}},
    {"JST", minutes{540}},   {"KST", minutes{540}},   {"AEST", minutes{600}}, {"AEDT", minutes{660}},
    {"NZST", minutes{720}},  {"NZDT", minutes{780}},
};

/// The text without "(...)", from a bracket to the next closing one.
std::string withoutComments(std::string_view text) {
    std::string out;
    for (;;) {
        const auto open = text.find('(');
        const auto close = open == std::string_view::npos ? open : text.find(')', open);
        if (close == std::string_view::npos) break;
        out += text.substr(0, open);
        text.remove_prefix(close + 1);
    }
    out += text;
    return out;
}

/// Reads one text along one pattern.
class PatternReader {
  public:
    explicit PatternReader(std::string_view text) : rest_(text) {}

    std::optional<Date> read(const Pattern& pattern, Year year) {
        if (pattern.weekday == Weekday::leading && !takeWeekday()) return std::nullopt;
        CivilTime time;
        const bool fits = takeNumber(time.day, 1, 2) && takeBlank() && takeMonth(time) && takeBlank() &&
                          takeYear(time, year) && takeBlank() && takeNumber(time.hour, 1, 2) && takeCharacter(':') &&
                          takeNumber(time.minute, 1, 2) &&
                          (pattern.seconds == Seconds::none || (takeCharacter(':') && takeNumber(time.second, 1, 2))) &&
                          takeBlank() && takeZone(time, pattern.zone) && rest_.empty();
        return fits ? dateFrom(time) : std::nullopt;
    }

  private:
    bool takeCharacter(char c) {
        if (!rest_.starts_with(c)) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool takeBlank() { return takeCharacter(' '); }

    std::string_view takeWord() {
        const auto end = std::ranges::find_if_not(rest_, text::isAlpha);
        const auto word = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
        rest_.remove_prefix(word.size());
        return word;
    }

    bool takeNumber(int& number, std::size_t fewest, std::size_t most) {
        std::size_t digits = 0;
        number = 0;
        for (; digits < rest_.size() && text::isDigit(rest_[digits]) && digits < most; ++digits)
            number = number * 10 + (rest_[digits] - '0');
        rest_.remove_prefix(digits);
        return digits >= fewest;
    }

    bool takeWeekday() {
        const auto word = takeWord();
        const bool known = std::ranges::any_of(weekdays, [&](std::string_view name) {
            return text::equalsIgnoringCase(word, name) || text::equalsIgnoringCase(word, name.substr(0, 3));
        });
        if (!known || !takeCharacter(',')) return false;
        takeBlank(); // some senders leave it out
        return true;
    }

    bool takeMonth(CivilTime& time) {
        const auto month = monthNumber(takeWord());
        if (month) time.month = *month;
        return month.has_value();
    }

    bool takeYear(CivilTime& time, Year form) {
        const std::size_t digits = form == Year::fourDigits ? 4 : 2;
        if (!takeNumber(time.year, digits, digits)) return false;
        // RFC 5322 §4.3
        if (form == Year::twoDigits) time.year += time.year < 50 ? 2000 : 1900;
        return true;
    }

    bool takeZone(CivilTime& time, Zone form) {
        const auto name = takeWord();
        const bool isUniversal = name.empty() || name.size() == 1 || text::equalsIgnoringCase(name, "GMT") ||
                                 text::equalsIgnoringCase(name, "UTC") || text::equalsIgnoringCase(name, "UT");
        if (!isUniversal && form == Zone::offset) return false;
        if (!name.empty()) {
            const auto* zone = std::ranges::find_if(
                zones, [&](const auto& known) { return text::equalsIgnoringCase(name, known.name); });
            if (zone == std::end(zones)) return false;
            time.offset = zone->offset;
            if (!isUniversal || rest_.empty()) return true;
        }
        return takeOffset(time);
    }

    /// "+0100", "+01:00" or "+01".
    bool takeOffset(CivilTime& time) {
        const bool west = rest_.starts_with('-');
        int hours = 0, minutesPast = 0;
        if (!takeCharacter(west ? '-' : '+') || !takeNumber(hours, 2, 2)) return false;
        if (!rest_.empty()) {
            takeCharacter(':');
            if (!takeNumber(minutesPast, 2, 2)) return false;
        }
        if (hours > 23 || minutesPast > 59) return false;
        time.offset = minutes{(hours * 60 + minutesPast) * (west ? -1 : 1)};
        return true;
    }

    std::string_view rest_;
};

}

std::optional<Date> parseDate(std::string_view text) {
    const std::string plain = collapsedWhiteSpace(withoutComments(text));
    for (const auto& pattern : patterns)
        for (const auto year : {Year::fourDigits, Year::twoDigits})
            if (const auto date = PatternReader(plain).read(pattern, year)) return date;
    return std::nullopt;
}

}
