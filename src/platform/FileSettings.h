#pragma once

#include "platform/Settings.h"

#include <filesystem>

namespace velmo {

/// Settings in one JSON file, which several processes may use at once.
///
/// A change reads the file afresh, edits one entry and replaces the file, under a lock beside it ("NAME.lock"); so
/// changes of other processes survive, and the next read sees them. Entries that this version does not understand stay.
/// A file that is no JSON object is renamed to "NAME.damaged-N" and counts as empty. A file that cannot be read counts
/// as empty for a reader; a change then fails rather than replacing what could not be read.
class FileSettings final : public Settings {
  public:
    /// `file` need not exist; its directory is made by the first change.
    explicit FileSettings(std::filesystem::path file);
    ~FileSettings() override;

    std::optional<SettingsValue> value(std::string_view key) const override;
    void set(std::string_view key, SettingsValue value) override;
    void remove(std::string_view key) override;
    void update(std::string_view key, const Edit& edit) override;
    std::vector<std::string> keys() const override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}
