#pragma once

#include "base/UserError.h"
#include "platform/Application.h"

#include <expected>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace velmo {

/// The store of secrets cannot be used now: missing, locked, damaged or open to others. The sentence tells the person.
class KeychainUnavailable final : public UserError {
  public:
    using UserError::UserError;
    friend bool operator==(const KeychainUnavailable& a, const KeychainUnavailable& b) {
        return a.sentence() == b.sentence();
    }
};

/// Where the secrets are: passwords and tokens, each under a service and an account word that are matched exactly.
///
/// Every operation blocks, in the worst case for as long as the desktop asks the person to unlock the keyring, and may
/// be called from any thread; so callers run it on the background executor. None of them throws, and none of them logs
/// a secret.
class Keychain {
  public:
    struct NoSecret {
        friend bool operator==(const NoSecret&, const NoSecret&) = default;
    };
    /// The secret, the certainty that there is none, or the reason why nobody can tell now.
    using Found = std::variant<std::string, NoSecret, KeychainUnavailable>;
    using Done = std::expected<void, KeychainUnavailable>;

    virtual ~Keychain() = default;

    /// A secret that is not valid UTF-8 counts as none.
    virtual Found find(std::string_view service, std::string_view account) = 0;

    /// Adds a secret, or replaces the one that is there.
    virtual Done add(std::string_view service, std::string_view account, std::string_view secret) = 0;

    /// Succeeds also when there is none.
    virtual Done remove(std::string_view service, std::string_view account) = 0;

    /// A sentence that the front end shows to the person; absent most of the time, since each is told once. Quick: it
    /// may be called on the main executor.
    virtual std::optional<std::string> notice() { return std::nullopt; }
};

/// Secrets in memory: the double for tests and previews. `makeUnavailable` plays a locked keyring.
class MemoryKeychain final : public Keychain {
  public:
    Found find(std::string_view service, std::string_view account) override;
    Done add(std::string_view service, std::string_view account, std::string_view secret) override;
    Done remove(std::string_view service, std::string_view account) override;

    /// From now on every operation gives this; absent makes it usable again.
    void makeUnavailable(std::optional<KeychainUnavailable> reason);

    /// (service, account) and secret of all that is stored.
    std::map<std::pair<std::string, std::string>, std::string> contents() const;

  private:
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, std::string>, std::string> secrets_;
    std::optional<KeychainUnavailable> unavailable_;
};

class Settings;
struct Directories;

/// The keychain of this installation. `settings` outlives it. Opens nothing before the first operation.
///
/// A portable installation keeps its secrets in a file below its own directory. Otherwise they are in the desktop's
/// Secret Service; only where there is none, in a file that nobody else can read, which `notice` tells the person.
/// When the Secret Service was used before and is gone now, a secret that the file does not have is reported as
/// unavailable, never as missing.
std::unique_ptr<Keychain> openKeychain(const Directories& directories, Settings& settings);

}
