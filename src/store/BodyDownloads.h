#pragma once

#include "base/Async.h"
#include "base/Observed.h"

#include <cstdint>
#include <memory>
#include <set>

namespace velmo {

/// The messages whose bodies are being downloaded now, so that none is fetched twice at the same time. Made by
/// std::make_shared; lives on the main executor.
class BodyDownloads : public std::enable_shared_from_this<BodyDownloads> {
  public:
    explicit BodyDownloads(const Executor& main);
    ~BodyDownloads();
    BodyDownloads(const BodyDownloads&) = delete;
    BodyDownloads& operator=(const BodyDownloads&) = delete;

    Observed<std::set<std::int64_t>> messages;

    /// Keeps messages marked until it goes.
    class Mark {
      public:
        Mark(std::shared_ptr<BodyDownloads> downloads, std::set<std::int64_t> ids);
        Mark(Mark&&) noexcept = default;
        Mark& operator=(Mark&&) = delete;
        ~Mark();

      private:
        std::shared_ptr<BodyDownloads> downloads_;
        std::set<std::int64_t> ids_;
    };

    bool contains(std::int64_t id) const { return messages->contains(id); }

    /// None of the messages is marked already.
    Mark mark(std::set<std::int64_t> ids) { return {shared_from_this(), std::move(ids)}; }

    /// Waits until the message is not marked; at once when it isn't.
    Async<void> ended(std::int64_t id);

  private:
    struct Bell;
    std::unique_ptr<Bell> bell_;
};

}
