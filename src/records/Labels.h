#pragma once

#include "records/Category.h"
#include "records/LabelRecord.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

/// Labels of messages: keys that are joined by "|" into one text.
namespace velmo {

class ModelContext;
class Settings;

enum class LabelChange { add, remove };

inline constexpr std::string_view labelsNewMailKey = "labelsNewMailAutomatically";
inline constexpr std::string_view showsCategoryBadgesKey = "showsCategoryBadges";
inline constexpr std::string_view labeledCategoriesKey = "labeledCategories.v1";

/// The key of the label that a category puts on new mail: "cat:receipts".
std::string labelKey(Category category);
LabelColor defaultColor(Category category);

/// The keys in order; empty pieces are dropped.
std::vector<std::string> labels(std::string_view labelsJoined);
bool hasLabel(std::string_view labelsJoined, std::string_view key);

/// The joined text with the key at its end, or without it. No key stands twice.
std::string settingLabel(std::string_view labelsJoined, std::string_view key, LabelChange change);

/// True unless the person turned it off.
bool labelsNewMailAutomatically(const Settings& settings);

/// Makes the default labels that are missing. A label that exists keeps its name and colour.
void seedDefaultLabels(ModelContext& context);

/// Puts the default label of its category on every message, once in the life of the settings. Goes through the store
/// in small commits; started again after an interruption it ends up the same.
void labelExistingMail(ModelContext& context, Settings& settings);

}
