#pragma once

#include "base/Clock.h"
#include "base/Date.h"
#include "base/Observed.h"
#include "base/UUID.h"
#include "platform/Settings.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// Something that failed after the person had looked away.
struct Trouble {
    std::string key;               ///< what it is about; a later failure of the same replaces it
    std::optional<UUID> accountID; ///< absent when it concerns no account
    Date at;                       ///< when it was last seen
    std::string text;              ///< a sentence for the person, with the way out
    bool isTold = false;           ///< a command has said it once

    friend bool operator==(const Trouble&, const Trouble&) = default;
};

/// What failed and has not been dealt with, oldest first. Outlives the process. Lives on the main executor.
///
/// | from      | by                                          | to        |
/// |-----------|---------------------------------------------|-----------|
/// | (nothing) | `add`                                       | untold    |
/// | untold    | `takeUntold`                                | told      |
/// | told      | `add` with another text                     | untold    |
/// | any       | `settle`, `settleAccount`, more than 100 of them | (nothing) |
class Troubles {
  public:
    /// The settings outlive it.
    Troubles(Settings& settings, std::shared_ptr<Clock> clock);

    /// Those that stand.
    Observed<std::vector<Trouble>> all;

    /// Notes a failure. The same text for the same key is not told again; its time is the new one.
    void add(std::string key, std::optional<UUID> accountID, std::string text);

    /// Ends those of the key, if there are any: it has worked since, or the person has dealt with it.
    void settle(const std::string& key);

    /// Ends those whose key begins so.
    void settleAll(const std::string& prefix);

    /// Ends those of an account.
    void settleAccount(const UUID& accountID);

    /// Those that no command has said yet; from now on they count as told.
    std::vector<Trouble> takeUntold();

  private:
    void keep(std::vector<Trouble> changed);
    void removeWhere(const std::function<bool(const Trouble&)>& isOver);

    Settings& settings_;
    std::shared_ptr<Clock> clock_;
};

}
