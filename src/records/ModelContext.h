#pragma once

#include "platform/SQLite.h"
#include "records/BodyTable.h"
#include "records/KeepsakeTable.h"
#include "records/LabelTable.h"
#include "records/ListTable.h"
#include "records/MailboxTable.h"
#include "records/MessageTable.h"
#include "records/ModelChanges.h"
#include "records/ModelContainer.h"
#include "records/StoreConnection.h"
#include "records/TextTable.h"
#include "records/UnsentFlagTable.h"

#include <memory>
#include <utility>

namespace velmo {

/// One view of the mail store: typed queries over one connection, used from one executor at a time.
///
/// Records are values; what is written is written at once, in the transaction that is open or in one of its own. A
/// field is written only when it differs. Every operation throws sqlite::SQLiteError when the database refuses.
class ModelContext {
  public:
    ModelContext(std::shared_ptr<ModelContainer> container, const sqlite::DatabaseOptions& options);
    ~ModelContext();
    ModelContext(const ModelContext&) = delete;
    ModelContext& operator=(const ModelContext&) = delete;

    /// Runs `work` as one commit: all of it is stored or, when it throws, nothing. A transaction inside another is part
    /// of the outer one. Observers hear of it after the outermost commit.
    template <class Work>
    std::invoke_result_t<Work&> transaction(Work work) {
        return connection_.write(std::move(work));
    }

    /// The same, but gives false and does nothing when somebody else is writing: it never waits.
    template <class Work>
    bool tryTransaction(Work work) {
        return connection_.tryWrite(std::move(work));
    }

    /// Runs `work`, which writes nothing, on one state of the store. Many small queries cost less this way, since each
    /// of them would take a lock by itself.
    template <class Work>
    std::invoke_result_t<Work&> snapshot(Work work) {
        return connection_.read(std::move(work));
    }

    /// Whether versions before this one have put messages into the store.
    bool holdsOlderMail();

    /// Removes all records of an account.
    void deleteAccount(const UUID& accountID);

    const std::shared_ptr<ModelContainer>& container() const { return container_; }

  private:
    std::shared_ptr<ModelContainer> container_;
    StoreConnection connection_;

  public:
    MailboxTable mailboxes;
    MessageTable messages;
    BodyTable bodies;
    LabelTable labels;
    ListTable lists;
    TextTable texts;
    UnsentFlagTable unsentFlags;
    KeepsakeTable keepsakes;
};

}
