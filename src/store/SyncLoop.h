#pragma once

#include "store/AccountSync.h"

#include <memory>

namespace velmo {

/// How long a complete pass holds, and so how far passes are apart.
inline constexpr Duration passInterval{600'000};
/// The shortest wait for the server's word.
inline constexpr Duration shortestIdle{30'000};
/// What a burst of new mail is given before it is fetched.
inline constexpr Duration burstWait{2'000};

/// The wait after so many failures in a row: 30 seconds, doubled each time, at most 900.
Duration backOff(int failures);

/// How long the server's word is waited for after a complete pass so long ago: until the next one is due, and never
/// shorter than `shortestIdle`.
Duration listeningTime(Duration sincePass);

/// Keeps an account in step with its server until it is cancelled or the sync object is gone: a complete pass every ten
/// minutes, in between the inbox at the server's word, and a growing wait after each failure. Runs on the main
/// executor. Throws nothing but a cancellation.
Async<void> runSyncLoop(std::weak_ptr<AccountSync> sync, std::shared_ptr<Clock> clock, MailAccount account);

}
