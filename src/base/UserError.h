#pragma once

#include <exception>
#include <string>
#include <utility>

namespace velmo {

/// The root of every error that may reach the person: `what()` is a whole sentence in their language.
class UserError : public std::exception {
  public:
    explicit UserError(std::string sentence) : sentence_(std::move(sentence)) {}
    const char* what() const noexcept override { return sentence_.c_str(); }
    const std::string& sentence() const { return sentence_; }

  private:
    std::string sentence_;
};

/// A cancelled operation ends with this. It is an outcome, not a failure: nobody shows it to a person.
class Cancelled : public std::exception {
  public:
    const char* what() const noexcept override { return "cancelled"; }
};

/// True for `Cancelled` and for the abort that an executor raises inside a cancelled coroutine.
bool isCancellation(const std::exception_ptr& error);

/// The sentence of any error: its own for a UserError, a general one otherwise.
std::string sentenceOf(const std::exception_ptr& error);

}
