#pragma once

#include "base/UserError.h"
#include "formats/ParsedMessage.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// An attachment could not be written; the sentence says which one and why.
class AttachmentError final : public UserError {
  public:
    using UserError::UserError;
};

/// What a file may be called that a sender named: one path component without control characters, separators, leading
/// dots or reserved names, at most 200 bytes with its extension kept; "attachment" when nothing is left.
std::string safeFileName(std::string_view senderName);

/// Writes each attachment as a new file in `directory`, which is made when it is not there (mode 0700). A name that is
/// taken gets " (2)" and so on before its extension; no existing file, link or other directory is ever written to.
/// Gives the paths in the order of the attachments. Throws AttachmentError.
std::vector<std::filesystem::path> saveAttachments(const std::vector<MIMEAttachment>& attachments,
                                                   const std::filesystem::path& directory);

}
