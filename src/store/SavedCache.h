#pragma once

#include "platform/Log.h"
#include "platform/SQLite.h"
#include "records/ModelContext.h"

namespace velmo {

/// Runs `work(context)` as one commit. A database that refuses is logged; then nothing of it is stored.
template <class Work>
void saveCache(ModelContext& context, Work work) {
    try {
        context.transaction([&] { work(context); });
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't save mail cache: {}", pub(error.what()));
    }
}

}
