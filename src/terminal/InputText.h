#pragma once

#include "terminal/Session.h"

#include <string>

namespace velmo {

/// A word of the command line in a sentence for the person.
std::string shownWord(const std::string& word);

/// The bytes of a file, by its path from the session's directory. Throws CommandError when there is none.
Async<Bytes> fileContents(Session& session, std::string name);

/// The text of a file, or of standard input for "-": UTF-8 with LF between lines and none at the end. Throws
/// CommandError when there is no such file.
Async<std::string> inputText(Session& session, std::string name);

}
