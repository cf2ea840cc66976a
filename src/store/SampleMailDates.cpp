#include "store/SampleMailDates.h"

#include "base/Text.h"
#include "formats/MailDate.h"

#include <array>
#include <chrono>
#include <fmt/format.h>
#include <optional>
#include <string>

namespace velmo {

namespace {

constexpr std::array weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array calendarFields{"DTSTART:", "DTEND:", "DTSTAMP:"};

/// "+0130" at the end of a date as minutes; 0 for anything else.
std::chrono::minutes zoneAtEnd(std::string_view date) {
    if (date.size() < 5) return {};
    const std::string_view zone = date.substr(date.size() - 5);
    const auto digits = text::parseUnsigned32(zone.substr(1));
    if (!digits || (zone[0] != '+' && zone[0] != '-')) return {};
    const std::chrono::minutes offset{*digits / 100 * 60 + *digits % 100};
    return zone[0] == '-' ? -offset : offset;
}

/// "Thu, 12 Mar 2026 09:40:00 +0100" (RFC 5322 §3.3).
std::string dateText(Date date, std::chrono::minutes offset) {
    const CivilTime civil = civilTime(date, offset);
    const std::chrono::weekday weekday{std::chrono::floor<std::chrono::days>(date + offset)};
    const auto distance = std::chrono::abs(offset).count();
    return fmt::format("{}, {} {} {:04} {:02}:{:02}:{:02} {}{:02}{:02}", weekdays.at(weekday.c_encoding()), civil.day,
                       months.at(static_cast<std::size_t>(civil.month - 1)), civil.year, civil.hour, civil.minute,
                       civil.second, offset.count() < 0 ? '-' : '+', distance / 60, distance % 60);
}

std::string movedDate(std::string_view date, Duration shift) {
    const auto parsed = parseDate(date);
    return parsed ? dateText(*parsed + shift, zoneAtEnd(date)) : std::string(date);
}

/// "20260316T190000" and whatever follows the day (RFC 5545 §3.3.5).
std::string movedDay(std::string_view stamp, std::chrono::days shift) {
    if (stamp.size() < 8) return std::string(stamp);
    const auto number = text::parseUnsigned32(stamp.substr(0, 8));
    if (!number) return std::string(stamp);
    CivilTime day;
    day.year = static_cast<int>(*number / 10'000);
    day.month = static_cast<int>(*number / 100 % 100);
    day.day = static_cast<int>(*number % 100);
    const auto date = dateFrom(day);
    if (!date) return std::string(stamp);
    const CivilTime moved = civilTime(*date + shift);
    return fmt::format("{:04}{:02}{:02}", moved.year, moved.month, moved.day) + std::string(stamp.substr(8));
}

/// The line without its line end, moved; absent when it holds no date.
std::optional<std::string> movedLine(std::string_view line, Duration shift) {
    constexpr std::string_view dateField = "Date: ";
    if (text::startsWithIgnoringCase(line, dateField)) {
        return std::string(dateField) + movedDate(line.substr(dateField.size()), shift);
    }
    for (const std::string_view field : calendarFields) {
        if (!line.starts_with(field)) continue;
        return std::string(field) + movedDay(line.substr(field.size()), std::chrono::floor<std::chrono::days>(shift));
    }
    return std::nullopt;
}

}

Bytes withMovedDates(BytesView source, Duration shift) {
    Bytes moved;
    moved.reserve(source.size());
    while (!source.empty()) {
        const std::size_t lineFeed = source.find('\n');
        const std::size_t next = lineFeed == BytesView::npos ? source.size() : lineFeed + 1;
        const std::size_t end = source.find_last_not_of("\r\n", next - 1) + 1;
        if (const auto line = movedLine(source.substr(0, end), shift)) {
            moved += *line;
            moved += source.substr(end, next - end);
        } else {
            moved += source.substr(0, next);
        }
        source.remove_prefix(next);
    }
    return moved;
}

}
