#pragma once

#include "records/LabelRecord.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class StoreConnection;

/// The labels that a person can put on messages. Part of a ModelContext.
class LabelTable {
  public:
    explicit LabelTable(StoreConnection& connection) : connection_(connection) {}

    /// By sort order, then by key.
    std::vector<LabelRecord> all();
    std::optional<LabelRecord> find(std::string_view key);

    /// Inserts the record, or brings the one of the same key to these values. True when that wrote anything.
    bool store(const LabelRecord& record);
    void remove(std::string_view key);

  private:
    StoreConnection& connection_;
};

}
