#pragma once

#include "base/Runtime.h"
#include "base/UUID.h"
#include "records/ModelContext.h"
#include "sync/SyncWriter.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace velmo::bench {

/// Words as mail has them: few are in about every message, most are rare. The same ones in every run.
class Words {
  public:
    Words();

    const std::string& word() { return words_[next()]; }

    /// So many words, a blank behind each.
    std::string text(std::size_t count);

  private:
    std::size_t next();

    std::mt19937 random_{3};
    std::array<std::string, 30'000> words_;
};

struct GeneratedMessage {
    int number = 0;        ///< from 1; the UID in a store
    std::int64_t date = 0; ///< milliseconds since 1970
    std::string fromName;
    std::string fromEmail;
    std::string subject;
    std::string text;

    /// With angle brackets.
    std::string messageID() const;

    /// RFC 5322, as it lies in a Maildir.
    std::string source() const;
};

/// Messages of some hundred senders, in about the order of their dates.
class MailGenerator {
  public:
    /// The texts have `fewest` to `most` words.
    MailGenerator(std::size_t fewest, std::size_t most) : fewest_(fewest), most_(most) {}

    GeneratedMessage next();

    Words& words() { return words_; }

  private:
    std::size_t fewest_;
    std::size_t most_;
    int count_ = 0;
    std::mt19937 random_{5};
    Words words_;
};

/// Writes messages into a store, past everything that would make them slowly: in one transaction, which waits for no
/// disk. Their bodies count as here.
class StoreFiller {
  public:
    /// Makes the inboxes that the messages are dealt out to.
    StoreFiller(ModelContext& context, std::vector<UUID> accounts);

    /// The account that has got the message.
    const UUID& add(const GeneratedMessage& message);

    void commit();

  private:
    std::vector<UUID> accounts_;
    std::mt19937 random_{7};
    sqlite::Database database_;
};

/// Brings the index of texts up to date, as the application does behind the mail that comes.
void indexTexts(Runtime& runtime, SyncWriter& writer);

}
