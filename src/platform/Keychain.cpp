#include "platform/Keychain.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/DesktopKeyring.h"
#include "platform/Directories.h"
#include "platform/FileKeychain.h"
#include "platform/Log.h"
#include "platform/Settings.h"

namespace velmo {

Keychain::Found MemoryKeychain::find(std::string_view service, std::string_view account) {
    const std::scoped_lock lock(mutex_);
    if (unavailable_) return *unavailable_;
    const auto found = secrets_.find({std::string(service), std::string(account)});
    if (found == secrets_.end() || !text::isValidUTF8(found->second)) return NoSecret{};
    return found->second;
}

Keychain::Done MemoryKeychain::add(std::string_view service, std::string_view account, std::string_view secret) {
    const std::scoped_lock lock(mutex_);
    if (unavailable_) return std::unexpected(*unavailable_);
    secrets_.insert_or_assign({std::string(service), std::string(account)}, std::string(secret));
    return {};
}

Keychain::Done MemoryKeychain::remove(std::string_view service, std::string_view account) {
    const std::scoped_lock lock(mutex_);
    if (unavailable_) return std::unexpected(*unavailable_);
    secrets_.erase({std::string(service), std::string(account)});
    return {};
}

void MemoryKeychain::makeUnavailable(std::optional<KeychainUnavailable> reason) {
    const std::scoped_lock lock(mutex_);
    unavailable_ = std::move(reason);
}

std::map<std::pair<std::string, std::string>, std::string> MemoryKeychain::contents() const {
    const std::scoped_lock lock(mutex_);
    return secrets_;
}

namespace {

constexpr std::string_view usesSecretServiceKey = "keychainUsesSecretService";
constexpr std::string_view noticeShownKey = "keychainFileNoticeShown";

KeychainUnavailable unavailable(DesktopKeyring::Problem problem) {
    switch (problem) {
    case DesktopKeyring::Problem::absent:
        return KeychainUnavailable(
            tr("Your passwords are in the desktop's keyring, which isn't running. Start it, then try again."));
    case DesktopKeyring::Problem::locked:
        return KeychainUnavailable(tr("The desktop's keyring is locked. Unlock it, then try again."));
    case DesktopKeyring::Problem::failed: break;
    }
    return KeychainUnavailable(tr("The desktop's keyring doesn't answer. Try again in a moment."));
}

/// The Secret Service, and beside it the file for what could not be stored there.
///
/// An item of the file is always newer than one of the service: adding to the service deletes it. So the file is
/// searched first, and a service that comes back does not bring back an old password.
class InstalledKeychain final : public Keychain {
  public:
    InstalledKeychain(const Directories& directories, Settings& settings)
        : settings_(settings),
          installation_(directories.installation),
          file_(directories.data / "secrets" / "secrets.json") {}

    Found find(std::string_view service, std::string_view account) override {
        auto inFile = file_.find(service, account);
        if (!std::holds_alternative<NoSecret>(inFile) || isPortable()) return inFile;
        auto found = keyring_.find(service, account);
        if (!found) {
            const auto problem = found.error();
            if (problem == DesktopKeyring::Problem::absent && !usedSecretService()) return NoSecret{};
            return unavailable(problem);
        }
        if (!*found || !text::isValidUTF8(**found)) return NoSecret{};
        return std::move(**found);
    }

    Done add(std::string_view service, std::string_view account, std::string_view secret) override {
        if (isPortable()) return file_.add(service, account, secret);
        const auto added = keyring_.add(service, account, secret);
        if (added) {
            remember(usesSecretServiceKey);
            return file_.remove(service, account);
        }
        if (added.error() != DesktopKeyring::Problem::absent) return std::unexpected(unavailable(added.error()));
        log("Keychain").info("No Secret Service: a secret goes into the file");
        return file_.add(service, account, secret);
    }

    Done remove(std::string_view service, std::string_view account) override {
        auto removed = file_.remove(service, account);
        if (!removed || isPortable()) return removed;
        const auto gone = keyring_.remove(service, account);
        if (gone || (gone.error() == DesktopKeyring::Problem::absent && !usedSecretService())) return {};
        return std::unexpected(unavailable(gone.error()));
    }

    std::optional<std::string> notice() override {
        if (!file_.exists() || settings_.boolean(noticeShownKey).value_or(false)) return std::nullopt;
        remember(noticeShownKey);
        if (isPortable())
            return tr("This installation keeps your passwords in a file of its own that only you can read: {}.",
                      file_.file().string());
        return tr(
            "This desktop has no keyring, so Velmo-Mail keeps your passwords in a file that only you can read: {}.",
            file_.file().string());
    }

  private:
    bool isPortable() const { return installation_ == Directories::Installation::portable; }
    bool usedSecretService() const { return settings_.boolean(usesSecretServiceKey).value_or(false); }

    void remember(std::string_view key) {
        try {
            settings_.setBoolean(key, true);
        } catch (const UserError& error) {
            log("Keychain").error("{}", pub(error.sentence()));
        }
    }

    Settings& settings_;
    Directories::Installation installation_;
    FileKeychain file_;
    DesktopKeyring keyring_;
};

}

std::unique_ptr<Keychain> openKeychain(const Directories& directories, Settings& settings) {
    return std::make_unique<InstalledKeychain>(directories, settings);
}

}
