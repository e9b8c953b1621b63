// SPDX-License-Identifier: Apache-2.0
//
// RunListener: follows a run by what the operation says on the console, because some of it is said
// nowhere else: which grid is being worked on, and how many points went with tiles that were too
// small to be written. Everything is passed on to the user's messages.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Messages.hpp"

namespace Host {

/// Tiles that were not written because they have too few points.
struct DroppedTiles {
  std::uint64_t tiles = 0;
  std::uint64_t points = 0;
};

/// The console message with which each kind of run comes to its next grid.
inline constexpr std::string_view kSplitGridBegins = "RefragmentAndSplit2: Grid: ";
inline constexpr std::string_view kUnlinkedGridBegins = "\nNeeded time for bbox mapping: ";

/// Threads: hear() is called by one thread at a time, as the console does.
class RunListener {
 public:
  /// `beginGrid` is called with the number of the grid, from 0, when the run comes to it.
  /// Requires: `messages` outlives this object.
  RunListener(Messages& messages, std::function<void(std::size_t)> beginGrid,
              std::string_view gridBegins = kSplitGridBegins)
      : messages_(messages), beginGrid_(std::move(beginGrid)), gridBegins_(gridBegins) {}

  /// Takes in one message of the console.
  void hear(const std::string& message);

  /// What was dropped, per grid in the order of the run.
  const std::vector<DroppedTiles>& dropped() const { return dropped_; }

 private:
  Messages& messages_;
  std::function<void(std::size_t)> beginGrid_;
  const std::string_view gridBegins_;
  std::vector<DroppedTiles> dropped_;
};

}  // namespace Host
