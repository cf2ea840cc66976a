#include "platform/DateText.h"
#include "platform/LocalTime.h"
#include "support/EnvironmentGuard.h"

#include <ctime>
#include <gtest/gtest.h>

namespace velmo { namespace {

using test::EnvironmentGuard;

/// Sets the zone of the machine until the end of the scope.
class ZoneGuard {
  public:
    explicit ZoneGuard(const char* zone) : variable_("TZ", zone) { tzset(); }
    ~ZoneGuard() { tzset(); }
    ZoneGuard(const ZoneGuard&) = delete;
    ZoneGuard& operator=(const ZoneGuard&) = delete;

  private:
    EnvironmentGuard variable_;
};

TEST(DateText, followsTheLocaleAndTheZoneOfThatDay) {
    const ZoneGuard zone("Europe/Berlin");
    const Date winter = *dateFromISO8601("2026-11-22T23:41:00Z"), summer = *dateFromISO8601("2026-07-01T09:05:00Z");
    EXPECT_EQ(localTime(winter).offset, std::chrono::minutes(60));
    EXPECT_EQ(dateText(winter, DateStyle::abbreviated, "en_US"), "Nov 23, 2026, 12:41 AM");
    EXPECT_EQ(dateText(winter, DateStyle::complete, "en_US"), "Monday, November 23, 2026 at 12:41 AM");
    EXPECT_EQ(dateText(summer, DateStyle::abbreviated, "de_DE"), "01.07.2026, 11:05");
    EXPECT_EQ(dateText(summer, DateStyle::complete, "de_DE"), "Mittwoch, 1. Juli 2026 um 11:05");
    EXPECT_FALSE(dateText(summer, DateStyle::complete, "no such locale").empty());
}

TEST(DateText, takesTheLocaleFromTheEnvironment) {
    struct Case {
        std::optional<std::string> all, time, lang;
        std::string_view locale;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt, std::nullopt, "en"},
        {std::nullopt, std::nullopt, "C", "en"},
        {"", "POSIX", "de_DE.UTF-8", "en"},
        {"", "", "de_DE.UTF-8", "de_DE"},
        {std::nullopt, "fr_FR.ISO-8859-15@euro", "de_DE", "fr_FR@euro"},
        {"C.UTF-8", "fr_FR", "de_DE", "en"},
        {"pt_BR", "fr_FR", "de_DE", "pt_BR"},
    };
    for (const auto& c : cases) {
        const EnvironmentGuard all("LC_ALL", c.all), time("LC_TIME", c.time), lang("LANG", c.lang);
        EXPECT_EQ(dateLocale(), c.locale);
    }
}

}}
