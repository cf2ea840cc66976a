#include "platform/DesktopKeyring.h"

#include <condition_variable>
#include <cstdlib>
#include <libsecret/secret.h>
#include <thread>

namespace velmo {

namespace {

struct ObjectRelease {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, ObjectRelease>;

struct ListRelease {
    void operator()(GList* list) const { g_list_free_full(list, g_object_unref); }
};
using ObjectList = std::unique_ptr<GList, ListRelease>;

using Attributes = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;

/// Takes the error of a GLib call.
class Error {
  public:
    Error() = default;
    ~Error() { g_clear_error(&error_); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    GError** out() {
        g_clear_error(&error_);
        return &error_;
    }
    bool isSet() const { return error_ != nullptr; }
    /// True when the bus says that nobody provides the service, or that it could not be started.
    bool meansNoService() const {
        if (error_ == nullptr || error_->domain != G_DBUS_ERROR) return false;
        switch (error_->code) {
        case G_DBUS_ERROR_SERVICE_UNKNOWN:
        case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
        case G_DBUS_ERROR_SPAWN_FORK_FAILED:
        case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
        case G_DBUS_ERROR_SPAWN_CHILD_SIGNALED:
        case G_DBUS_ERROR_SPAWN_FAILED:
        case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
        case G_DBUS_ERROR_SPAWN_FILE_INVALID:
        case G_DBUS_ERROR_DISCONNECTED: return true;
        default: return false;
        }
    }

  private:
    GError* error_ = nullptr;
};

/// Cancels calls that outlive a limit.
class TimeLimit {
  public:
    explicit TimeLimit(std::chrono::seconds limit)
        : cancellable_(g_cancellable_new()), watch_([this, limit](std::stop_token stop) {
              std::unique_lock lock(mutex_);
              if (!condition_.wait_for(lock, stop, limit, [&] { return stop.stop_requested(); }))
                  g_cancellable_cancel(cancellable_.get());
          }) {}

    GCancellable* get() const { return cancellable_.get(); }

  private:
    Object<GCancellable> cancellable_;
    std::mutex mutex_;
    std::condition_variable_any condition_;
    std::jthread watch_;
};

const SecretSchema* schema() {
    static const SecretSchema* const instance =
        secret_schema_new("mail.velmo.app", SECRET_SCHEMA_NONE, "service", SECRET_SCHEMA_ATTRIBUTE_STRING, "account",
                          SECRET_SCHEMA_ATTRIBUTE_STRING, nullptr);
    return instance;
}

Attributes attributesOf(std::string_view service, std::string_view account) {
    return {secret_attributes_build(schema(), "service", std::string(service).c_str(), "account",
                                    std::string(account).c_str(), nullptr),
            g_hash_table_unref};
}

}

/// One exchange with the service, on a session of its own, so that a service that was started anew is no trouble.
class DesktopKeyring::Session {
  public:
    Session(DesktopKeyring& owner, std::string_view service, std::string_view account)
        : owner_(owner),
          mayPrompt_(owner.mayPrompt()),
          limit_(mayPrompt_ ? promptLimit : answerLimit),
          attributes_(attributesOf(service, account)) {}

    std::expected<void, Problem> open();
    std::expected<ObjectList, Problem> search();
    /// The items that match, all of them unlocked; asks the person where that is needed and possible.
    std::expected<ObjectList, Problem> unlockedItems();
    std::expected<void, Problem> store(const std::string& label, std::string_view secret);
    std::expected<void, Problem> deleteItem(SecretItem* item);

  private:
    std::expected<void, Problem> startService(GDBusConnection* bus);
    /// The keyring that new items go to; null when there is none.
    std::expected<Object<SecretCollection>, Problem> defaultCollection();
    std::expected<void, Problem> unlock(GList* objects);

    DesktopKeyring& owner_;
    const bool mayPrompt_;
    TimeLimit limit_;
    Attributes attributes_;
    Object<GDBusConnection> bus_;
    Object<::SecretService> service_;
};

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::Session::open() {
    Error error;
    bus_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, limit_.get(), error.out()));
    if (!bus_) return std::unexpected(Problem::absent);
    // The end of the desktop session must not end a program that may be busy saving.
    g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
    if (auto started = startService(bus_.get()); !started) return started;
    service_.reset(
        secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, limit_.get(), error.out()));
    if (!service_) return std::unexpected(Problem::failed);
    return {};
}

/// libsecret takes a missing service for an empty one, so the bus is asked first.
std::expected<void, DesktopKeyring::Problem> DesktopKeyring::Session::startService(GDBusConnection* bus) {
    Error error;
    GVariant* reply =
        g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "StartServiceByName", g_variant_new("(su)", "org.freedesktop.secrets", 0U), nullptr,
                                    G_DBUS_CALL_FLAGS_NONE, -1, limit_.get(), error.out());
    if (reply == nullptr) return std::unexpected(error.meansNoService() ? Problem::absent : Problem::failed);
    g_variant_unref(reply);
    return {};
}

std::expected<ObjectList, DesktopKeyring::Problem> DesktopKeyring::Session::search() {
    Error error;
    constexpr auto flags = static_cast<SecretSearchFlags>(int{SECRET_SEARCH_ALL} | int{SECRET_SEARCH_LOAD_SECRETS});
    ObjectList items(
        secret_service_search_sync(service_.get(), schema(), attributes_.get(), flags, limit_.get(), error.out()));
    if (error.isSet()) return std::unexpected(Problem::failed);
    return items;
}

std::expected<Object<SecretCollection>, DesktopKeyring::Problem> DesktopKeyring::Session::defaultCollection() {
    Error error;
    Object<SecretCollection> collection(secret_collection_for_alias_sync(
        service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, limit_.get(), error.out()));
    if (error.isSet()) return std::unexpected(Problem::failed);
    return collection;
}

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::Session::unlock(GList* objects) {
    if (!mayPrompt_) return std::unexpected(Problem::locked);
    Error error;
    GList* unlocked = nullptr;
    secret_service_unlock_sync(service_.get(), objects, limit_.get(), &unlocked, error.out());
    const ObjectList release(unlocked);
    if (g_list_length(unlocked) > 0) return {};
    owner_.refusedAt_ = std::chrono::steady_clock::now();
    return std::unexpected(Problem::locked);
}

std::expected<ObjectList, DesktopKeyring::Problem> DesktopKeyring::Session::unlockedItems() {
    auto items = search();
    if (!items) return items;
    GList* locked = nullptr;
    for (GList* at = items->get(); at != nullptr; at = at->next)
        if (secret_item_get_locked(static_cast<SecretItem*>(at->data))) locked = g_list_prepend(locked, at->data);
    const std::unique_ptr<GList, decltype(&g_list_free)> release(locked, g_list_free);
    if (locked != nullptr) {
        if (auto done = unlock(locked); !done) return std::unexpected(done.error());
        return search();
    }
    if (*items) return items;

    // A service may not show the items of a locked keyring at all; then nothing is known about them.
    auto collection = defaultCollection();
    if (!collection) return std::unexpected(collection.error());
    if (!*collection || !secret_collection_get_locked(collection->get())) return items;
    GList only{collection->get(), nullptr, nullptr};
    if (auto done = unlock(&only); !done) return std::unexpected(done.error());
    return search();
}

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::Session::store(const std::string& label,
                                                                            std::string_view secret) {
    auto collection = defaultCollection();
    if (!collection) return std::unexpected(collection.error());
    // Storing would make a first keyring, for which the desktop asks the person to choose its password.
    const bool exists = static_cast<bool>(*collection);
    if (!exists && !mayPrompt_) return std::unexpected(Problem::absent);
    if (exists && secret_collection_get_locked(collection->get())) {
        GList only{collection->get(), nullptr, nullptr};
        if (auto done = unlock(&only); !done) return done;
    }
    Error error;
    SecretValue* value = secret_value_new(secret.data(), static_cast<gssize>(secret.size()), "text/plain");
    const bool stored =
        secret_service_store_sync(service_.get(), schema(), attributes_.get(), SECRET_COLLECTION_DEFAULT, label.c_str(),
                                  value, limit_.get(), error.out());
    secret_value_unref(value);
    if (!stored) return std::unexpected(exists ? Problem::failed : Problem::absent);
    return {};
}

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::Session::deleteItem(SecretItem* item) {
    Error error;
    if (!secret_item_delete_sync(item, limit_.get(), error.out())) return std::unexpected(Problem::failed);
    return {};
}

DesktopKeyring::DesktopKeyring() = default;
DesktopKeyring::~DesktopKeyring() = default;

bool DesktopKeyring::mayPrompt() const {
    if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr) return false;
    return !refusedAt_ || std::chrono::steady_clock::now() - *refusedAt_ > promptPause;
}

std::expected<std::optional<std::string>, DesktopKeyring::Problem> DesktopKeyring::find(std::string_view service,
                                                                                        std::string_view account) {
    const std::scoped_lock lock(mutex_);
    Session session(*this, service, account);
    if (auto opened = session.open(); !opened) return std::unexpected(opened.error());
    const auto items = session.unlockedItems();
    if (!items) return std::unexpected(items.error());
    for (GList* at = items->get(); at != nullptr; at = at->next) {
        SecretValue* value = secret_item_get_secret(static_cast<SecretItem*>(at->data));
        if (value == nullptr) continue;
        gsize size = 0;
        const gchar* bytes = secret_value_get(value, &size);
        std::string secret(bytes, size);
        secret_value_unref(value);
        return secret;
    }
    if (*items) return std::unexpected(Problem::failed);
    return std::nullopt;
}

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::add(std::string_view service, std::string_view account,
                                                                 std::string_view secret) {
    const std::scoped_lock lock(mutex_);
    Session session(*this, service, account);
    if (auto opened = session.open(); !opened) return opened;
    return session.store("Velmo-Mail: " + std::string(account), secret);
}

std::expected<void, DesktopKeyring::Problem> DesktopKeyring::remove(std::string_view service,
                                                                    std::string_view account) {
    const std::scoped_lock lock(mutex_);
    Session session(*this, service, account);
    if (auto opened = session.open(); !opened) return opened;
    const auto items = session.unlockedItems();
    if (!items) return std::unexpected(items.error());
    for (GList* at = items->get(); at != nullptr; at = at->next)
        if (auto deleted = session.deleteItem(static_cast<SecretItem*>(at->data)); !deleted) return deleted;
    return {};
}

}
