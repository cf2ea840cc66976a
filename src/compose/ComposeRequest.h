#pragma once

#include "base/Bytes.h"
#include "base/UUID.h"
#include "base/UserError.h"

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace velmo {

/// Why a stored request could not be read.
class ComposeRequestError final : public UserError {
  public:
    enum class Kind {
        numberOfKeys, ///< not one of the cases, or several
        malformed,    ///< the value of the case is not as written
    };

    explicit ComposeRequestError(Kind kind);
    Kind kind() const { return kind_; }

    friend bool operator==(const ComposeRequestError& a, const ComposeRequestError& b) { return a.kind_ == b.kind_; }

  private:
    Kind kind_;
};

/// Why a window for writing opens. Kept as a value, so that a window can be restored.
///
/// `message` is the `id` of a MessageRecord. The `id` of a request makes two windows on one message differ.
class ComposeRequest {
  public:
    struct New {
        std::optional<UUID> from; ///< an account
        UUID id;
        friend bool operator==(const New&, const New&) = default;
    };
    struct Reply {
        std::int64_t message = 0;
        bool all = false;
        std::optional<std::string> text; ///< an answer prepared beforehand
        UUID id;
        friend bool operator==(const Reply&, const Reply&) = default;
    };
    struct Forward {
        std::int64_t message = 0;
        UUID id;
        friend bool operator==(const Forward&, const Forward&) = default;
    };
    /// A reminder of a sent message that got no answer.
    struct FollowUp {
        std::int64_t message = 0;
        UUID id;
        friend bool operator==(const FollowUp&, const FollowUp&) = default;
    };
    struct EditDraft {
        std::int64_t message = 0;
        UUID id;
        friend bool operator==(const EditDraft&, const EditDraft&) = default;
    };
    struct Mailto {
        std::string url;
        std::optional<UUID> from; ///< an account
        UUID id;
        friend bool operator==(const Mailto&, const Mailto&) = default;
    };
    /// A message that was taken back, or one that failed and is opened again.
    struct Outbox {
        UUID item;
        friend bool operator==(const Outbox&, const Outbox&) = default;
    };
    using Case = std::variant<New, Reply, Forward, FollowUp, EditDraft, Mailto, Outbox>;

    template <class T>
        requires std::constructible_from<Case, T>
    ComposeRequest(T what) : case_(std::move(what)) {}

    const Case& what() const { return case_; }

    /// The payload when the request is of that case, null otherwise.
    template <class T>
    const T* as() const {
        return std::get_if<T>(&case_);
    }

    /// A JSON object of one key, which names the case: "new", "reply", "forward", "followUp", "editDraft", "mailto",
    /// "outbox". Its value is an object of the fields above; those that are absent have no key.
    Bytes json() const;

    /// Reads it. Throws ComposeRequestError.
    static ComposeRequest fromJSON(BytesView data);

    friend bool operator==(const ComposeRequest&, const ComposeRequest&) = default;

  private:
    Case case_;
};

}
