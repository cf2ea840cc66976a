#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velmo {

/// The longest name.
inline constexpr std::size_t longestEntityName = 31;

/// The characters of a named character reference (HTML Standard §13.5), without "&" and ";", whose case counts; absent
/// for other names.
std::optional<std::string_view> namedEntity(std::string_view name);

}
