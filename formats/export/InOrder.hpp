// SPDX-License-Identifier: Apache-2.0
//
// InOrder: something that has to be done for each of many steps in their order, while the steps
// themselves are done in any order by several threads. Whoever completes a step does at once
// whatever has become due, so that nobody waits until all steps are done.

#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// See above. Threads: any.
class InOrder {
 public:
  explicit InOrder(std::size_t count) : isComplete_(count) {}

  /// Notes that a step is complete, and calls `follow(k)` for every step k that is and that none
  /// before it holds up, each once and one at a time. Errors: those of `follow`, which is not
  /// called any more then; nor after it has thrown. Requires: each step completes once.
  template <class Follow>
  MemCore::Outcome<void> complete(std::size_t step, const Follow& follow) {
    const std::lock_guard lock(mutex_);
    isComplete_[step] = true;
    while (!hasFailed_ && next_ < isComplete_.size() && isComplete_[next_]) {
      hasFailed_ = true;  // should it throw
      auto done = follow(next_++);
      if (!done.ok()) return done;
      hasFailed_ = false;
    }
    return {};
  }

 private:
  std::mutex mutex_;  ///< guards all below, and is held while things are done
  std::vector<bool> isComplete_;
  std::size_t next_ = 0;  ///< the first step that nothing was done for
  bool hasFailed_ = false;
};

}  // namespace Formats
