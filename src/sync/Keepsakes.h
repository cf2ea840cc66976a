#pragma once

#include "base/Date.h"
#include "records/MessageFiles.h"
#include "records/ModelContext.h"

#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace velmo {

/// What only this machine knows of messages, and their bodies, while one transaction removes and inserts records. Made
/// for each transaction; `finish` follows its commit.
///
/// A crash in between leaves a body too many, or one that has to be fetched again.
class Keepsakes {
  public:
    /// Both outlive this.
    Keepsakes(ModelContext& context, const MessageFiles& files, Date now)
        : context_(context), files_(files), now_(now) {}

    /// Inside the transaction, before the records are removed. Bodies of messages in junk and trash are not kept.
    void keep(const MailboxRecord& mailbox, std::span<const std::int64_t> messages);
    void keepAll(const MailboxRecord& mailbox);
    void keep(std::int64_t message, const std::optional<KeepsakeTable::Target>& target);

    /// Inside the transaction, before new records are inserted: gives them what is known of their messages.
    void give(std::span<MessageRecord> records);
    /// The same, once the records have their ids.
    void giveFlags(std::span<const MessageRecord> records);

    /// Inside the transaction: ends the time of those that nobody has met again.
    void expire();

    /// After the commit, and before the bodies of removed records are removed.
    void finish();

  private:
    void kept(Keepsake keepsake, bool withBody);

    ModelContext& context_;
    const MessageFiles& files_;
    Date now_;
    std::vector<Keepsake> kept_;
    std::vector<Keepsake> spent_;
    std::vector<UnsentFlag> flags_; ///< by the place among the records, until they have ids
};

}
