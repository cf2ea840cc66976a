#pragma once

#include "store/SystemFaults.h"

#include <functional>
#include <map>

namespace velmo::test {

/// Works in a process of its own, again and again, and kills it before something it does to the world outside: before
/// each deed of its own time, or before so many of a kind, evenly spread, when `samples` names it. `before` and `after`
/// are called around each death. Ends at the first failure of the test. Gives the number of deaths of each kind.
std::map<Deed, long> dieEverywhere(const std::function<void()>& work, const std::function<void()>& before,
                                   const std::function<void()>& after, std::map<Deed, long> samples);

}
