#pragma once

#include "base/Async.h"
#include "base/UserError.h"
#include "records/ModelChanges.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <sigc++/connection.h>

namespace velmo {

class ModelContext;

/// Why the mail store can't be used.
class ModelStoreError final : public UserError {
  public:
    enum class Kind {
        inUse,       ///< another process has it open
        tooNew,      ///< a newer version of the program wrote it
        brokenRecord ///< a row holds what no version ever wrote
    };
    explicit ModelStoreError(Kind kind);

    Kind kind() const { return kind_; }
    friend bool operator==(const ModelStoreError& a, const ModelStoreError& b) { return a.kind_ == b.kind_; }

  private:
    Kind kind_;
};

/// The mail store: one database file with its schema, and word of every commit.
///
/// Made at the start of the program, and shared by everyone who holds a context on it.
class ModelContainer : public std::enable_shared_from_this<ModelContainer> {
  public:
    /// Opens or creates the store, and brings an older one up to date. As long as the container lives no other
    /// process can open the file. `main` is where observers are called.
    /// Throws ModelStoreError (`inUse`, `tooNew`) and sqlite::SQLiteError.
    static std::shared_ptr<ModelContainer> open(const std::filesystem::path& file, Executor main);

    /// A store that goes with the container: for samples and tests.
    static std::shared_ptr<ModelContainer> temporary(Executor main);

    ~ModelContainer();
    ModelContainer(const ModelContainer&) = delete;
    ModelContainer& operator=(const ModelContainer&) = delete;

    /// A connection of its own, for one executor; keeps the container alive.
    std::unique_ptr<ModelContext> makeContext();

    /// Calls `observer` on the main executor with what commits of any context changed. Commits that follow each other
    /// are told in one call; nobody is called inside a transaction. To be used on the main executor.
    sigc::connection onChange(std::function<void(const ModelChanges&)> observer);

    /// A context tells what it has committed. May be called from any executor.
    void committed(ModelChanges changes);

    const std::filesystem::path& file() const;

    /// The newest version of the schema, which `open` brings a store to.
    static int schemaVersion();

  private:
    struct State;
    explicit ModelContainer(std::unique_ptr<State> state);
    void tellObservers();

    std::unique_ptr<State> state_;
};

}
