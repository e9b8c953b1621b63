// SPDX-License-Identifier: Apache-2.0
//
// Outcome<T>: the result of a step that can fail, either a value or the text of the failure.
// Failures travel as texts through the whole system; nothing of ours throws across a module
// boundary. Texts read "<object>: <what is wrong>, found <x>, expected <y>", without a full stop.

#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace MemCore {

/// The text of a failure, convertible into any Outcome.
struct Failure {
  std::string text;
};

/// Value or failure text. Requires: value() only after ok(), error() only after !ok().
template <class T>
class [[nodiscard]] Outcome {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): a step returns its value or a Failure as they are
  Outcome(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  Outcome(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  const std::string& error() const { return std::get<1>(state_).text; }
  Failure failure() const { return std::get<1>(state_); }

 private:
  std::variant<T, Failure> state_;
};

/// Success without a value, or a failure text.
template <>
class [[nodiscard]] Outcome<void> {
 public:
  Outcome() = default;
  // NOLINTNEXTLINE(google-explicit-constructor)
  Outcome(Failure failure) : failed_(true), failure_(std::move(failure)) {}

  bool ok() const { return !failed_; }
  explicit operator bool() const { return ok(); }

  const std::string& error() const {
    assert(failed_);
    return failure_.text;
  }
  Failure failure() const { return failure_; }

 private:
  bool failed_ = false;
  Failure failure_;
};

}  // namespace MemCore
