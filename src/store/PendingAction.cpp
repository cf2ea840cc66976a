#include "store/PendingAction.h"

#include <utility>

namespace velmo {

namespace {

constexpr Duration timeToUndo{5'000};

}

void PendingAction::begin(const std::string& title, Step step) {
    commit();
    step_ = std::move(step);
    title_ = title;
    status_.showUndo(title);
    banner_ = (*status_.banner)->id;
    auto run = [weak = weak_from_this(), clock = environment_.clock, banner = banner_]() -> Async<void> {
        co_await clock->wait(timeToUndo);
        if (const auto self = weak.lock()) self->commitIfStill(banner);
    };
    timer_ = Task(environment_.executors.main, std::move(run));
}

/// The wait of a step that was ended may be over already, and tell so after the next step has begun.
void PendingAction::commitIfStill(const UUID& banner) {
    if (banner == banner_) commit();
}

void PendingAction::commit() {
    if (const auto step = end(Ending::carriedOut)) step->commit();
}

void PendingAction::undo() {
    if (const auto step = end(Ending::undone)) step->undo();
}

/// Nobody can undo it any more; gives it when there was one. A banner that offers something else stays.
std::optional<PendingAction::Step> PendingAction::end(Ending ending) {
    if (!step_) return std::nullopt;
    ended_.emplace(title_, ending);
    timer_ = Task();
    auto ended = std::exchange(step_, std::nullopt);
    const auto& showing = *status_.banner;
    if (showing && showing->id == banner_) status_.clearUndo();
    return ended;
}

}
