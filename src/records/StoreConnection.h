#pragma once

#include "platform/SQLite.h"
#include "records/ModelChanges.h"

#include <memory>
#include <type_traits>
#include <utility>

namespace velmo {

class ModelContainer;

/// What the tables of a context share: the database, and the list of what the open transaction has changed.
class StoreConnection {
  public:
    StoreConnection(ModelContainer& container, const sqlite::DatabaseOptions& options);

    sqlite::Query query(std::string_view sql) { return database_.query(sql); }
    sqlite::Database& database() { return database_; }

    /// Runs `work` in the open transaction, or in one of its own.
    template <class Work>
    std::invoke_result_t<Work&> write(Work work) {
        if (database_.isInTransaction()) return work();
        changes_ = {};
        sqlite::Transaction transaction(database_);
        if constexpr (std::is_void_v<std::invoke_result_t<Work&>>) {
            work();
            transaction.commit();
            tellContainer();
        } else {
            auto result = work();
            transaction.commit();
            tellContainer();
            return result;
        }
    }

    /// Runs `work` as one commit, unless another connection holds the lock of the writer; then gives false at once.
    template <class Work>
    bool tryWrite(Work work) {
        changes_ = {};
        auto transaction = sqlite::Transaction::beginUnlessBusy(database_);
        if (!transaction) return false;
        work();
        transaction->commit();
        tellContainer();
        return true;
    }

    /// Runs `work`, which only reads, on one state of the store.
    template <class Work>
    std::invoke_result_t<Work&> read(Work work) {
        if (database_.isInTransaction()) return work();
        sqlite::Transaction transaction(database_, sqlite::Transaction::Kind::read);
        auto result = work();
        transaction.commit();
        return result;
    }

    void noteMessages(const MailboxKey& mailbox) { changes_.mailboxes.insert(mailbox); }
    void noteMailboxList(const UUID& accountID) { changes_.mailboxLists.insert(accountID); }
    void noteLabels() { changes_.labels = true; }

  private:
    void tellContainer();

    ModelContainer& container_;
    sqlite::Database database_;
    ModelChanges changes_;
};

}
