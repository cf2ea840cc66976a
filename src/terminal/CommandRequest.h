#pragma once

#include "terminal/Console.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A command on its way from `velmo` to the running application. Words and paths are bytes, and come through as such.
struct CommandRequest {
    CommandRequest() {}

    std::vector<std::string> words;
    /// Absolute: what relative paths among the words start from.
    std::filesystem::path directory;
    ConsoleForm form;
    /// False for a command that has to do with accounts alone.
    bool needsMail = true;

    /// As a JSON object.
    Bytes encoded() const;

    /// Absent for anything that `encoded` would not have given.
    static std::optional<CommandRequest> decoded(BytesView json);
};

}
