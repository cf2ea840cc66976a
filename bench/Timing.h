#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace velmo::bench {

template <class Work>
double secondsOf(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class Work>
double millisecondsOf(Work work) {
    return 1000 * secondsOf(work);
}

/// The value that `percent` of them stay below; of fewer than a hundred, the 99th is the worst.
inline double percentile(std::vector<double> values, std::size_t percent) {
    std::ranges::sort(values);
    return values.at(values.size() * percent / 100);
}

inline double median(std::vector<double> values) {
    return percentile(std::move(values), 50);
}

}
