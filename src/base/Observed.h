#pragma once

#include <concepts>
#include <sigc++/sigc++.h>
#include <utility>

namespace velmo {

/// Keeps an observer connected for as long as it lives.
class ScopedConnection {
  public:
    ScopedConnection() = default;
    ScopedConnection(const sigc::connection& connection) : connection_(connection) {}
    ~ScopedConnection() { connection_.disconnect(); }
    ScopedConnection(const ScopedConnection&) = delete;
    ScopedConnection& operator=(const ScopedConnection&) = delete;

  private:
    sigc::connection connection_;
};

/// A value that tells its observers when it becomes a different one. Lives on the main executor.
///
/// Setting the value that it already holds wakes nobody. Observers are called after the new value stands, and may
/// set it again; a connection that is dropped or blocked is called no more.
template <std::equality_comparable T>
class Observed {
  public:
    Observed() = default;
    explicit Observed(T value) : value_(std::move(value)) {}

    const T& get() const { return value_; }
    const T& operator*() const { return value_; }
    const T* operator->() const { return &value_; }

    void set(T value) {
        if (value_ == value) return;
        value_ = std::move(value);
        changed_.emit();
    }
    Observed& operator=(T value) {
        set(std::move(value));
        return *this;
    }

    /// Changes a copy in place, and sets it: for values that are edited rather than replaced.
    template <std::invocable<T&> Change>
    void update(Change&& change) {
        T copy = value_;
        std::forward<Change>(change)(copy);
        set(std::move(copy));
    }

    /// Calls `observer()` after each change, until the connection is cut.
    template <std::invocable Observer>
    sigc::connection onChange(Observer&& observer) {
        return changed_.connect(std::forward<Observer>(observer));
    }

  private:
    T value_{};
    sigc::signal<void()> changed_;
};

}
