#pragma once

#include <fmt/format.h>
#include <string>
#include <string_view>

namespace velmo {

/// Chooses the person's language from the environment, and the catalogues under `directory` (gettext, domain
/// "velmo-mail"). Called once, before any other thread runs. Without it, or without a catalogue, texts stay English.
void startLocalisation(const char* directory);

/// The text in the person's language; `note` tells translators what a short text is for.
std::string tr(const char* text);
std::string trNoted(const char* note, const char* text);

/// The same with its `{}` places filled in. A catalogue entry whose places do not fit falls back to the English text.
template <class... Arguments>
    requires(sizeof...(Arguments) > 0)
std::string tr(const char* text, const Arguments&... arguments) {
    try {
        return fmt::vformat(tr(text), fmt::make_format_args(arguments...));
    } catch (const fmt::format_error&) {
        return fmt::vformat(text, fmt::make_format_args(arguments...));
    }
}

/// One of two texts by a count, which fills the `{}` place: tr("{} message", "{} messages", n).
std::string trCount(const char* one, const char* many, unsigned long count);

}
