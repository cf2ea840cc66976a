#include "platform/DateText.h"

#include "base/Text.h"
#include "platform/LocalTime.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/simpletz.h>

namespace velmo {

namespace {

std::string withPlainBlanks(std::string_view text) {
    const std::string narrow = text::replacedAll(text, "\u202F", " ");
    return text::replacedAll(narrow, "\u00A0", " ");
}

/// Every moment is shown with the offset that holds for it, so one without rules of its own is enough.
icu::SimpleTimeZone zoneAt(Date date) {
    const std::chrono::milliseconds offset = localTime(date).offset;
    return {static_cast<std::int32_t>(offset.count()), icu::UnicodeString()};
}

/// ICU crashes over a locale that it cannot read, and has no words for one without a language.
icu::Locale readableLocale(std::string_view name) {
    const auto locale = icu::Locale::createCanonical(std::string(name).c_str());
    return locale.isBogus() || *locale.getLanguage() == '\0' ? icu::Locale::getEnglish() : locale;
}

}

std::string dateLocale() {
    for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        std::string locale(value);
        // "de_DE.UTF-8@euro" is "de_DE@euro" with a charset.
        if (const auto charset = locale.find('.'); charset != std::string::npos)
            locale.erase(charset, locale.find('@', charset) - charset);
        return locale == "C" || locale == "POSIX" ? "en" : locale;
    }
    return "en";
}

std::string dateText(Date date, DateStyle style, std::string_view locale) {
    const auto dateStyle = style == DateStyle::complete ? icu::DateFormat::kFull : icu::DateFormat::kMedium;
    const std::unique_ptr<icu::DateFormat> format(
        icu::DateFormat::createDateTimeInstance(dateStyle, icu::DateFormat::kShort, readableLocale(locale)));
    if (!format) return iso8601(date);
    format->setTimeZone(zoneAt(date));
    icu::UnicodeString shown;
    format->format(static_cast<UDate>(unixMilliseconds(date)), shown);
    std::string utf8;
    shown.toUTF8String(utf8);
    return withPlainBlanks(utf8);
}

std::string dateText(Date date, DateStyle style) {
    return dateText(date, style, dateLocale());
}

}
