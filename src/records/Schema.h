#pragma once

#include "platform/SQLite.h"

namespace velmo::schema {

/// The newest version: what `migrate` brings a store to.
int version();

/// Brings a store of any earlier version (0: empty) up to date, each step in one transaction. Throws ModelStoreError
/// `tooNew` for a store that a later program wrote, and changes nothing then.
void migrate(sqlite::Database& database);

}
