#pragma once

#include <string_view>

namespace velmo {

/// The name under which the program is known to the desktop, the log and the keyring.
inline constexpr std::string_view applicationIdentifier = "mail.velmo.app";

/// The name of its folders, catalogues and programs.
inline constexpr std::string_view applicationFolder = "velmo-mail";

}
