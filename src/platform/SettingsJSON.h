#pragma once

#include "platform/Settings.h"

#include <nlohmann/json_fwd.hpp>

namespace velmo {

/// The form of a setting in the file. Boolean, integer, finite double, text and array of texts are the JSON values of
/// these names; the others are objects of one entry: {"date": milliseconds since 1970}, {"data": base64},
/// {"dictionary": {...}}, {"double": "inf", "-inf" or "nan"}.
nlohmann::json settingsJSON(const SettingsValue& value);

/// Reads it; absent for any other form.
std::optional<SettingsValue> settingsValue(const nlohmann::json& json);

}
