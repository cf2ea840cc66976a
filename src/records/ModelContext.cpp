#include "records/ModelContext.h"

namespace velmo {

StoreConnection::StoreConnection(ModelContainer& container, const sqlite::DatabaseOptions& options)
    : container_(container), database_(container.file(), options) {}

void StoreConnection::tellContainer() {
    container_.committed(std::exchange(changes_, {}));
}

ModelContext::ModelContext(std::shared_ptr<ModelContainer> container, const sqlite::DatabaseOptions& options)
    : container_(std::move(container)),
      connection_(*container_, options),
      mailboxes(connection_),
      messages(connection_),
      bodies(connection_),
      labels(connection_),
      lists(connection_),
      texts(connection_),
      unsentFlags(connection_),
      keepsakes(connection_) {}

ModelContext::~ModelContext() = default;

bool ModelContext::holdsOlderMail() {
    auto row = connection_.query("SELECT isOlder FROM origin");
    return row.step() && row.column<bool>(0);
}

void ModelContext::deleteAccount(const UUID& accountID) {
    transaction([&] {
        messages.removeAll(accountID);
        mailboxes.removeAll(accountID);
        keepsakes.removeAll(accountID);
    });
}

}
