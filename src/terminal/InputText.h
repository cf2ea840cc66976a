#pragma once

#include "terminal/Session.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace velmo {

/// A word of the command line in a sentence for the person.
std::string shownWord(const std::string& word);

/// In bytes: the largest file that goes along with a message, and the longest text.
inline constexpr std::size_t longestFile = 200'000'000;
inline constexpr std::size_t longestText = 10'000'000;

/// The bytes of a regular file; `name` is what the person calls it. Nothing else is opened for longer than it takes to
/// see what it is. Throws CommandError when there is none, when it can't be read, or when it has more bytes than
/// `most`.
Bytes regularFile(const std::filesystem::path& file, const std::string& name, std::size_t most);

/// The bytes of a regular file, by its path from the session's directory. Throws as `regularFile` does.
Async<Bytes> fileContents(Session& session, std::string name, std::size_t most = longestFile);

/// The text of a file, or of standard input for "-": UTF-8 with LF between lines and none at the end. Throws
/// CommandError when there is no such file, or more than `longestText`.
Async<std::string> inputText(Session& session, std::string name);

}
