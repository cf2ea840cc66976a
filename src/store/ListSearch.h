#pragma once

#include "platform/SearchWords.h"
#include "records/BodyIndex.h"
#include "records/ModelContext.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace velmo {

/// The search of a list: the messages whose senders, subjects and previews hold all its words, and those whose body
/// does.
class ListSearch {
  public:
    /// What is given outlives this.
    ListSearch(ModelContext& context, BodyIndex& bodies, std::string_view text);

    const std::string& text() const { return text_; }

    /// Whether a message matches; reads its texts.
    bool matches(std::int64_t id);

    /// The messages that can match, by rising id; to be looked at one by one. Absent when about every message can, and
    /// while most are not indexed yet.
    const std::optional<std::vector<std::int64_t>>& candidates();

  private:
    ModelContext& context_;
    std::string text_;
    SearchTerms terms_;
    std::vector<std::string> messageIDs_; ///< whose body matches
    std::unordered_set<std::string> bodies_;
    bool hasCandidates_ = false;
    std::optional<std::vector<std::int64_t>> candidates_;
};

}
