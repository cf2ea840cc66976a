#pragma once

#include <cstdint>
#include <string>

namespace velmo {

enum class LabelColor : std::uint8_t { red, orange, amber, green, teal, blue, indigo, purple, pink, graphite };

/// A label that messages can carry. Unique by key.
struct LabelRecord {
    std::string key; ///< "cat:{category}" for a default label
    std::string name;
    std::int64_t colorRaw = 0; ///< raw value of LabelColor
    bool isDefault = false;
    std::int64_t sortOrder = 0;

    /// `graphite` when the raw value is no colour.
    LabelColor color() const;

    friend bool operator==(const LabelRecord&, const LabelRecord&) = default;
};

}
