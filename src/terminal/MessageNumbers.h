#pragma once

#include <string>

namespace velmo {

/// For options that take the numbers of messages: empty for a word that is one, otherwise what is wrong with it.
std::string messageNumberTrouble(const std::string& word);

}
