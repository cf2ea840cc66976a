#include "store/ActionWrites.h"

#include "platform/Log.h"

#include <utility>

namespace velmo {

namespace {

void logFailure(const sqlite::SQLiteError& error) {
    log("Mail").error("Couldn't save mail cache: {}", pub(error.what()));
}

}

void ActionWrites::run(Work work, std::function<void()> then) {
    if (isIdle() && runAtOnce(work)) {
        if (then) then();
        return;
    }
    waiting_.add(UUID(), [weak = weak_from_this(), work = std::move(work), then = std::move(then)] {
        return runLater(weak, work, then);
    });
}

/// False when somebody else is writing.
bool ActionWrites::runAtOnce(const Work& work) {
    try {
        return environment_.context.tryTransaction([&] { work(environment_.context); });
    } catch (const sqlite::SQLiteError& error) {
        logFailure(error);
        return true;
    }
}

Async<void> ActionWrites::runLater(std::weak_ptr<ActionWrites> weak, Work work, std::function<void()> then) {
    if (const auto self = weak.lock()) {
        SyncWriter writer = self->environment_.writer;
        try {
            co_await writer.write(std::move(work));
        } catch (const sqlite::SQLiteError& error) {
            logFailure(error);
        }
    }
    if (then) then();
}

}
