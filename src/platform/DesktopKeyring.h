#pragma once

#include <chrono>
#include <expected>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// The desktop's keyring (Secret Service API of freedesktop.org, draft 0.2), by libsecret.
///
/// Operations block and take turns; none lasts longer than `promptLimit`. Where there is a display, a locked keyring
/// makes the desktop ask the person to unlock it; one that they leave locked is not asked about again for a while.
class DesktopKeyring {
  public:
    enum class Problem {
        absent, ///< no session bus, no service on it, or a service without a keyring to store in
        locked, ///< the keyring is there and stays locked
        failed, ///< the service does not answer, or answers with an error
    };

    /// What an exchange with the service may take, and what it may when the person is asked.
    static constexpr std::chrono::seconds answerLimit{15};
    static constexpr std::chrono::seconds promptLimit{90};
    /// How long a prompt that was refused is not repeated.
    static constexpr std::chrono::minutes promptPause{5};

    DesktopKeyring();
    ~DesktopKeyring();

    /// Absent within the expected: there is certainly no such item.
    std::expected<std::optional<std::string>, Problem> find(std::string_view service, std::string_view account);
    std::expected<void, Problem> add(std::string_view service, std::string_view account, std::string_view secret);
    std::expected<void, Problem> remove(std::string_view service, std::string_view account);

  private:
    class Session;

    bool mayPrompt() const;

    std::mutex mutex_;
    std::optional<std::chrono::steady_clock::time_point> refusedAt_;
};

}
