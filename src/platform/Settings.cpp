#include "platform/Settings.h"

#include "base/Text.h"
#include "platform/SettingsJSON.h"

#include <nlohmann/json.hpp>

namespace velmo {

std::optional<Bytes> Settings::data(std::string_view key) const {
    auto found = typed<SettingsData>(key);
    if (!found) return std::nullopt;
    return std::move(found->bytes);
}

std::optional<SettingsValue> MemorySettings::value(std::string_view key) const {
    const std::scoped_lock lock(mutex_);
    const auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

void MemorySettings::set(std::string_view key, SettingsValue value) {
    const std::scoped_lock lock(mutex_);
    // Through the form of the file, so that the double keeps what the file would keep.
    if (auto kept = settingsValue(settingsJSON(value)))
        values_.insert_or_assign(text::repairedUTF8(key), std::move(*kept));
}

void MemorySettings::update(std::string_view key, const Edit& edit) {
    const std::scoped_lock lock(mutex_);
    const auto found = values_.find(key);
    const SettingsValue made = edit(found == values_.end() ? std::nullopt : std::optional(found->second));
    if (auto kept = settingsValue(settingsJSON(made)))
        values_.insert_or_assign(text::repairedUTF8(key), std::move(*kept));
}

void MemorySettings::remove(std::string_view key) {
    const std::scoped_lock lock(mutex_);
    if (const auto found = values_.find(key); found != values_.end()) values_.erase(found);
}

std::vector<std::string> MemorySettings::keys() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> keys;
    for (const auto& [key, value] : values_) keys.push_back(key);
    return keys;
}

}
