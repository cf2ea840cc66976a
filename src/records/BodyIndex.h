#pragma once

#include "base/UUID.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// The full-text index over the bodies of messages: which Message-IDs have a body that matches these words.
///
/// An accelerator: no operation ever throws. When the database can't be opened, the index is empty and stays so.
/// Operations may be called from any thread, one at a time gets its turn. Where texts are cut to a length is up to the
/// caller.
class BodyIndex {
  public:
    /// Opens or makes the database at `file`; an empty path is an index in memory.
    explicit BodyIndex(const std::filesystem::path& file);
    ~BodyIndex();
    BodyIndex(const BodyIndex&) = delete;
    BodyIndex& operator=(const BodyIndex&) = delete;

    /// One message with its text, in UTF-8.
    struct Document {
        std::string messageID;
        std::string body;
    };

    /// True when the document is new; the first text that was stored for a Message-ID stays.
    bool add(std::string_view messageID, const UUID& account, std::string_view body);

    /// Several documents in one commit, each by the same rule. Gives how many were new.
    std::size_t add(const std::vector<Document>& documents, const UUID& account);

    /// The Message-IDs whose body holds all of the first eight words as beginnings of words; at most 2,000, in no
    /// order. Words are runs of letters and digits; case and diacritics don't matter. The same search again costs
    /// nothing until the content changes.
    std::vector<std::string> search(std::string_view text);

    std::set<std::string> allMessageIDs();

    /// Drops all documents of an account.
    void removeAccount(const UUID& account);

    /// Raised whenever the content changes; starts at 0.
    std::int64_t version() const;

    /// Raised whenever the database refuses, so that those who filled it know that something is missing; starts at 0.
    std::int64_t refusals() const;

    /// Bytes of the database files.
    std::int64_t fileSize() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}
