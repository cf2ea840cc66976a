#pragma once

#include "base/Runtime.h"

#include <chrono>
#include <thread>

namespace velmo::test {

/// Waits until the condition, about another thread or program, holds; false when it doesn't within a minute.
template <class Condition>
bool eventually(const Condition& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// The same, running the main executor meanwhile.
template <class Condition>
bool eventually(Runtime& runtime, const Condition& condition) {
    return eventually([&] {
        runtime.run([]() -> Async<void> { co_return; });
        return condition();
    });
}

}
