#pragma once

namespace velmo {

/// True for letters, digits and other numbers of any script, and for the marks that belong to letters (the general
/// categories L, N and M of Unicode §4.5).
bool isAlphanumeric(char32_t codePoint);

/// True for the characters of formatting that show nothing where they stand: the general category Cf as far as it is
/// ignorable by default (Unicode §5.21), and the grapheme joiner.
bool isInvisibleFormat(char32_t codePoint);

}
