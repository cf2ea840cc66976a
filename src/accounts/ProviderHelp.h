#pragma once

#include "accounts/MailProvider.h"

#include <optional>
#include <string>

namespace velmo {

/// What the account form tells about a provider, in the person's language.
struct ProviderHelp {
    std::string pickerLine;
    std::string paragraph;
    /// A hint below the paragraph.
    std::optional<std::string> note;
    std::optional<std::string> linkLabel;
};

ProviderHelp providerHelp(MailProvider provider);

/// The provider's page for app passwords or security, which the link opens; absent for `other`.
std::optional<std::string> helpURL(MailProvider provider);

}
