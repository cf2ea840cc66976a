#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// What kind of mail a message is, besides ordinary mail between people.
enum class Category : std::uint8_t { receipts, promotions, security, social, updates, newsletters };

inline constexpr std::array allCategories{Category::receipts, Category::promotions, Category::security,
                                          Category::social,   Category::updates,    Category::newsletters};

/// The split of an inbox: mail from people and security alerts is important; newsletters, promotions, notifications and
/// receipts are the others.
enum class InboxFocus { important, other, all };

/// The word under which a category is stored: "receipts".
std::string_view rawText(Category category);
std::optional<Category> categoryFrom(std::string_view raw);

/// The name in the person's language.
std::string displayName(Category category);

/// The category that fixed rules find, without looking at anything but these texts; absent for ordinary mail.
/// `isBulk` tells whether the headers mark a mailing; absent when the headers are unknown. Texts are UTF-8.
/// Linear in the subject and the first 300 characters of the snippet. May be called from any thread.
std::optional<Category> categorise(std::string_view fromEmail, std::string_view subject, std::string_view snippet,
                                   std::optional<bool> isBulk);

}
