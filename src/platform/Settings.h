#pragma once

#include "base/Bytes.h"
#include "base/Date.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velmo {

/// Binary data as the value of a setting; a bare string is a text.
struct SettingsData {
    Bytes bytes;
    friend bool operator==(const SettingsData&, const SettingsData&) = default;
};

using SettingsDictionary = std::map<std::string, std::string>;

using SettingsValue = std::variant<bool, std::int64_t, double, std::string, Date, SettingsData,
                                   std::vector<std::string>, SettingsDictionary>;

/// The person's settings: typed values under string keys.
///
/// A value of another type than the one asked for counts as absent. Keys and texts are UTF-8; ill-formed parts are
/// stored as U+FFFD. Data, numbers and dates come back exactly as they were set. Setting the value that a key already
/// has writes nothing. Every operation may be called from any thread; those that change something throw FileError when
/// it cannot be kept, and then nothing has changed.
class Settings {
  public:
    virtual ~Settings() = default;

    std::optional<bool> boolean(std::string_view key) const { return typed<bool>(key); }
    std::optional<std::int64_t> integer(std::string_view key) const { return typed<std::int64_t>(key); }
    std::optional<double> real(std::string_view key) const { return typed<double>(key); }
    std::optional<std::string> text(std::string_view key) const { return typed<std::string>(key); }
    std::optional<Date> date(std::string_view key) const { return typed<Date>(key); }
    std::optional<Bytes> data(std::string_view key) const;
    std::optional<std::vector<std::string>> texts(std::string_view key) const {
        return typed<std::vector<std::string>>(key);
    }
    std::optional<SettingsDictionary> dictionary(std::string_view key) const { return typed<SettingsDictionary>(key); }

    // One name for each type, since a literal would quietly turn into a boolean.
    void setBoolean(std::string_view key, bool value) { set(key, value); }
    void setInteger(std::string_view key, std::int64_t value) { set(key, value); }
    void setReal(std::string_view key, double value) { set(key, value); }
    void setText(std::string_view key, std::string_view value) { set(key, std::string(value)); }
    void setDate(std::string_view key, Date value) { set(key, value); }
    void setData(std::string_view key, BytesView value) { set(key, SettingsData{Bytes(value)}); }
    void setTexts(std::string_view key, std::vector<std::string> value) { set(key, std::move(value)); }
    void setDictionary(std::string_view key, SettingsDictionary value) { set(key, std::move(value)); }

    virtual std::optional<SettingsValue> value(std::string_view key) const = 0;
    virtual void set(std::string_view key, SettingsValue value) = 0;
    virtual void remove(std::string_view key) = 0;

    /// Gives a key the value that `edit` makes of the present one; nobody, in this process or another, changes it in
    /// between. What `edit` throws leaves everything as it was.
    using Edit = std::function<SettingsValue(std::optional<SettingsValue>)>;
    virtual void update(std::string_view key, const Edit& edit) = 0;

    /// The keys that have a value, sorted.
    virtual std::vector<std::string> keys() const = 0;

  private:
    template <class T>
    std::optional<T> typed(std::string_view key) const {
        auto found = value(key);
        if (!found || !std::holds_alternative<T>(*found)) return std::nullopt;
        return std::get<T>(std::move(*found));
    }
};

/// Settings in memory: the double for tests and previews.
class MemorySettings final : public Settings {
  public:
    std::optional<SettingsValue> value(std::string_view key) const override;
    void set(std::string_view key, SettingsValue value) override;
    void remove(std::string_view key) override;
    void update(std::string_view key, const Edit& edit) override;
    std::vector<std::string> keys() const override;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, SettingsValue, std::less<>> values_;
};

}
