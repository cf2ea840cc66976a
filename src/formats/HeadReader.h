#pragma once

#include "base/Bytes.h"

#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// Gives the fields of a head (RFC 5322 §2.2) one after another without keeping them. The bytes must outlive it.
class HeadReader {
  public:
    struct Field {
        std::string_view name;
        std::string_view value; ///< unfolded and trimmed
    };

    explicit HeadReader(BytesView head);
    HeadReader(const HeadReader&) = delete;
    HeadReader& operator=(const HeadReader&) = delete;

    /// Absent at the end. The views are valid until the next call.
    std::optional<Field> next();

  private:
    std::string_view takeLine();
    bool continues() const;

    std::string repaired_; // the head, where it is no UTF-8
    std::string_view rest_;
    std::string unfolded_;
};

}
