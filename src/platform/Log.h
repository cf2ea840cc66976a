#pragma once

#include <array>
#include <fmt/format.h>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace velmo {

struct Directories;

enum class LogLevel { debug, info, warning, error };

/// One value in a log line, as text: made by `priv`, `pub`, or from a number.
class LogValue {
  public:
    template <class T>
        requires std::is_arithmetic_v<T>
    LogValue(T number) // NOLINT(google-explicit-constructor): numbers are public, and need no mark
        : text_(fmt::format("{}", number)) {}

    const std::string& text() const { return text_; }
    bool isPrivate() const { return isPrivate_; }

  private:
    LogValue(std::string text, bool isPrivate) : text_(std::move(text)), isPrivate_(isPrivate) {}
    friend LogValue priv(std::string_view text);
    friend LogValue pub(std::string_view text);

    std::string text_;
    bool isPrivate_ = false;
};

/// What says something about the person or their mail: logged as "<private>", unless VELMO_LOG_PRIVATE=1.
LogValue priv(std::string_view text);
/// What may stand in a log that the person sends to someone: error sentences, protocol words, counts.
LogValue pub(std::string_view text);

namespace detail {

template <class>
using LoggedText = std::string_view;
void writeLog(LogLevel level, std::string_view category, std::string_view format, std::span<const LogValue> values);

}

/// Writes lines of one category. Any thread; never throws. A text argument must be marked private or public:
/// `log("Mail").error("Sync failed for {}: {}", priv(address), pub(sentence))`.
class Logger {
  public:
    explicit Logger(std::string_view category) : category_(category) {}

    template <class... Values>
    void debug(fmt::format_string<detail::LoggedText<Values>...> format, const Values&... values) const {
        write(LogLevel::debug, format, values...);
    }
    template <class... Values>
    void info(fmt::format_string<detail::LoggedText<Values>...> format, const Values&... values) const {
        write(LogLevel::info, format, values...);
    }
    template <class... Values>
    void warning(fmt::format_string<detail::LoggedText<Values>...> format, const Values&... values) const {
        write(LogLevel::warning, format, values...);
    }
    template <class... Values>
    void error(fmt::format_string<detail::LoggedText<Values>...> format, const Values&... values) const {
        write(LogLevel::error, format, values...);
    }

  private:
    template <class... Values>
    void write(LogLevel level, fmt::string_view format, const Values&... values) const {
        const std::array<LogValue, sizeof...(Values)> all{LogValue(values)...};
        detail::writeLog(level, category_, {format.data(), format.size()}, all);
    }

    std::string_view category_;
};

/// `category` is a literal: "Mail", "Accounts"...
inline Logger log(std::string_view category) {
    return Logger(category);
}

/// Opens the log: "velmo-mail.log" in the state directory (info and above; mode 0600; 1 MiB, three old ones kept), and
/// the standard error stream from the level that VELMO_LOG names (debug, info, warning, error), if it is set. A state
/// directory that cannot be written leaves the file out. Before this call, and after `stopLogging`, lines go nowhere.
void startLogging(const Directories& directories);

/// Writes out what is waiting, and closes the log.
void stopLogging();

}
