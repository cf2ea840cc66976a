#pragma once

#include "base/Async.h"

#include <functional>
#include <memory>

namespace velmo::detail {

/// The place of a coroutine among those of its execution context that no other coroutine waits for. It is given up when
/// the coroutine has ended or will never run.
///
/// A Runtime ends by cancelling such coroutines and letting them come to their end; merely dropped, a frame would let
/// go of executors of contexts that are gone by then.
using OutermostPlace = std::shared_ptr<void>;

/// Takes a coroutine in that runs on `executor`. `cancel` asks it to end; it is called once at most, from any thread.
/// May be called from any thread.
OutermostPlace enterOutermost(const Executor& executor, std::function<void()> cancel);

/// Asks all such coroutines of the executor's context to end that have not been asked yet; true when there were any
/// that are still here.
bool cancelOutermost(const Executor& executor);

}
