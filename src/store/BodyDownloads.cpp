#include "store/BodyDownloads.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

/// The timer never goes off; its cancellation wakes all who wait.
struct BodyDownloads::Bell {
    explicit Bell(const Executor& executor) : timer(executor, boost::asio::steady_timer::time_point::max()) {}
    boost::asio::steady_timer timer;
};

BodyDownloads::BodyDownloads(const Executor& main) : bell_(std::make_unique<Bell>(main)) {}

BodyDownloads::~BodyDownloads() = default;

BodyDownloads::Mark::Mark(std::shared_ptr<BodyDownloads> downloads, std::set<std::int64_t> ids)
    : downloads_(std::move(downloads)), ids_(std::move(ids)) {
    downloads_->messages.update([this](auto& all) { all.insert(ids_.begin(), ids_.end()); });
}

BodyDownloads::Mark::~Mark() {
    if (!downloads_) return;
    downloads_->messages.update(
        [this](auto& all) { std::erase_if(all, [this](auto id) { return ids_.contains(id); }); });
    downloads_->bell_->timer.cancel();
}

Async<void> BodyDownloads::ended(std::int64_t id) {
    const auto self = shared_from_this();
    while (contains(id)) {
        co_await bell_->timer.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
        co_await checkCancellation();
    }
}

}
