#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// A length of time, in milliseconds.
using Duration = std::chrono::milliseconds;

/// A moment of civil time: milliseconds since 1970-01-01T00:00:00Z, leap seconds not counted.
using Date = std::chrono::sys_time<std::chrono::milliseconds>;

/// Date and time of day in the proleptic Gregorian calendar, with the zone's offset from UTC.
struct CivilTime {
    int year = 1970;
    int month = 1; ///< 1 to 12
    int day = 1;   ///< 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::chrono::minutes offset{0}; ///< east of UTC is positive
};

/// The moment; absent when a field lies outside its range (a second of 60 counts as the next minute's 0).
std::optional<Date> dateFrom(const CivilTime& civil);

CivilTime civilTime(Date date, std::chrono::minutes offset = std::chrono::minutes{0});

/// "2026-03-01T09:30:00Z" (ISO 8601, UTC), with ".123" when there are milliseconds.
std::string iso8601(Date date);

/// Reads what `iso8601` writes.
std::optional<Date> dateFromISO8601(std::string_view text);

/// Seconds since 1970, for storage and for the wire.
constexpr std::int64_t unixMilliseconds(Date date) {
    return date.time_since_epoch().count();
}
constexpr Date dateFromUnixMilliseconds(std::int64_t value) {
    return Date{std::chrono::milliseconds{value}};
}

/// 1 to 12 for an English month name or its three-letter short form, in any case; absent otherwise.
std::optional<int> monthNumber(std::string_view name);

}
