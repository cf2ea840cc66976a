#pragma once

namespace velmo {

/// True for letters, digits and other numbers of any script, and for the marks that belong to letters (the general
/// categories L, N and M of Unicode §4.5).
bool isAlphanumeric(char32_t codePoint);

}
