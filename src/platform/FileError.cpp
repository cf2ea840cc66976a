#include "platform/FileError.h"

#include "base/Localisation.h"

namespace velmo {

FileError::FileError(std::filesystem::path path, std::error_code reason)
    : UserError(tr("The file {} can't be used: {}.", path.string(), reason.message())),
      path_(std::move(path)),
      reason_(reason) {}

}
