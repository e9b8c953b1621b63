// SPDX-License-Identifier: Apache-2.0
//
// Result<T>: what a step of a sub-command hands back: a value, or why the program stops here and
// with which exit status. Failures of the libraries become the status "failed".

#pragma once

#include <string>
#include <utility>
#include <variant>

#include "datamodel/memcore/Outcome.hpp"
#include "host/ExitCode.hpp"

namespace Host {

/// Why the program stops. The text is one line, "<object>: <what is wrong>, ...".
struct Stop {
  ExitCode code = ExitCode::Failed;
  std::string text;
};

/// Something is wrong with what was asked for; nothing was touched.
inline Stop usageStop(std::string text) { return {ExitCode::Usage, std::move(text)}; }

/// Something could not be done.
inline Stop failedStop(std::string text) { return {ExitCode::Failed, std::move(text)}; }

/// Requires: value access only after ok(), stop() only after !ok().
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value)  // NOLINT(google-explicit-constructor)
      : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Stop stop)  // NOLINT(google-explicit-constructor)
      : state_(std::in_place_index<1>, std::move(stop)) {}
  Result(MemCore::Failure failure)  // NOLINT(google-explicit-constructor)
      : Result(failedStop(std::move(failure.text))) {}

  bool ok() const { return state_.index() == 0; }
  T& operator*() { return std::get<0>(state_); }
  const T& operator*() const { return std::get<0>(state_); }
  T* operator->() { return &std::get<0>(state_); }
  const T* operator->() const { return &std::get<0>(state_); }
  const Stop& stop() const { return std::get<1>(state_); }

 private:
  std::variant<T, Stop> state_;
};

/// Nothing, or why the program stops.
using Check = Result<std::monostate>;

}  // namespace Host
