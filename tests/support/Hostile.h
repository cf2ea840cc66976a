#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace velmo::test {

/// The text `count` times.
inline std::string repeated(std::string_view text, std::size_t count) {
    std::string out;
    out.reserve(text.size() * count);
    for (; count > 0; --count) out += text;
    return out;
}

/// The seconds of processor time that the work takes: other programs on the machine do not lengthen them. Meant for
/// bounds so wide that only work of another order passes them.
template <class Work>
double processorSeconds(Work work) {
    const std::clock_t start = std::clock();
    work();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

}
