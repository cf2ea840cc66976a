#include "platform/Log.h"

#include "base/Text.h"
#include "platform/Application.h"
#include "platform/Directories.h"
#include "platform/FileError.h"

#include <atomic>
#include <cstdlib>
#include <fmt/args.h>
#include <memory>
#include <mutex>
#include <optional>
#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/stat.h>

namespace velmo {

namespace {

constexpr std::size_t fileSize = 1 << 20;
constexpr std::size_t oldFiles = 3;

struct State {
    std::mutex mutex;
    std::shared_ptr<spdlog::logger> logger;
    bool showsPrivate = false;
    /// The lowest level that anybody listens to; spdlog::level::off when the log is closed.
    std::atomic<int> lowest = spdlog::level::off;
};

State& state() {
    // Never destroyed: a thread may still log while the program ends.
    static State& instance = *new State;
    return instance;
}

spdlog::level::level_enum levelOf(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return spdlog::level::debug;
    case LogLevel::info: return spdlog::level::info;
    case LogLevel::warning: return spdlog::level::warn;
    case LogLevel::error: break;
    }
    return spdlog::level::err;
}

std::optional<LogLevel> levelFromEnvironment() {
    const char* value = std::getenv("VELMO_LOG");
    if (value == nullptr) return std::nullopt;
    for (const auto& [name, level] : {std::pair{"debug", LogLevel::debug},
                                      {"info", LogLevel::info},
                                      {"warning", LogLevel::warning},
                                      {"error", LogLevel::error}})
        if (std::string_view(value) == name) return level;
    return std::nullopt;
}

std::shared_ptr<spdlog::sinks::sink> fileSink(const Directories& directories) {
    makePrivateDirectory(directories.state);
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t&, std::FILE* file) { ::fchmod(::fileno(file), 0600); };
    const auto file = directories.state / (std::string(applicationFolder) + ".log");
    auto sink =
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(file.string(), fileSize, oldFiles, false, handlers);
    sink->set_level(spdlog::level::info);
    return sink;
}

/// Control characters, and what a terminal or an editor takes for a line end, become visible: what a server sends can
/// neither forge a line nor drive the terminal.
std::string escaped(std::string_view raw) {
    const std::string utf8 = text::repairedUTF8(raw);
    std::string out;
    for (std::size_t position = 0; position < utf8.size();) {
        const std::size_t start = position;
        const char32_t c = text::nextCodePoint(utf8, position);
        if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else if (c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029 || (c >= 0x202A && c <= 0x202E))
            out += fmt::format("\\u{{{:x}}}", static_cast<std::uint32_t>(c));
        else
            out.append(utf8, start, position - start);
    }
    return out;
}

std::string lineOf(std::string_view format, std::span<const LogValue> values, bool showsPrivate) {
    fmt::dynamic_format_arg_store<fmt::format_context> arguments;
    for (const auto& value : values)
        arguments.push_back(value.isPrivate() && !showsPrivate ? std::string("<private>") : value.text());
    return escaped(fmt::vformat(fmt::string_view(format.data(), format.size()), arguments));
}

}

LogValue priv(std::string_view text) {
    return {std::string(text), true};
}

LogValue pub(std::string_view text) {
    return {std::string(text), false};
}

void detail::writeLog(LogLevel level, std::string_view category, std::string_view format,
                      std::span<const LogValue> values) {
    const auto wanted = levelOf(level);
    if (wanted < state().lowest.load(std::memory_order_relaxed)) return;
    try {
        std::unique_lock lock(state().mutex);
        const auto logger = state().logger;
        const bool showsPrivate = state().showsPrivate;
        lock.unlock();
        if (logger)
            logger->log(wanted,
                        fmt::format("{}:{} {}", applicationIdentifier, category, lineOf(format, values, showsPrivate)));
    } catch (...) {
        // A line that cannot be written is no reason to fail what it tells about.
    }
}

void startLogging(const Directories& directories) {
    std::vector<std::shared_ptr<spdlog::sinks::sink>> sinks;
    auto lowest = spdlog::level::off;
    try {
        sinks.push_back(fileSink(directories));
        lowest = spdlog::level::info;
    } catch (const std::exception&) {
    }
    if (const auto level = levelFromEnvironment()) {
        sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        sinks.back()->set_level(levelOf(*level));
        lowest = std::min(lowest, levelOf(*level));
    }
    auto logger = std::make_shared<spdlog::logger>("velmo", sinks.begin(), sinks.end());
    logger->set_level(lowest);
    logger->flush_on(spdlog::level::info);
    logger->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %L %v");
    logger->set_error_handler([](const std::string&) {});

    const char* shows = std::getenv("VELMO_LOG_PRIVATE");
    const std::scoped_lock lock(state().mutex);
    state().logger = std::move(logger);
    state().showsPrivate = shows != nullptr && std::string_view(shows) == "1";
    state().lowest = lowest;
}

void stopLogging() {
    const std::scoped_lock lock(state().mutex);
    state().lowest = spdlog::level::off;
    if (state().logger) state().logger->flush();
    state().logger.reset();
}

}
