// SPDX-License-Identifier: Apache-2.0
//
// TileProgress: shows how far a run is, as a bar for people or as JSON lines for programs, and
// passes the user's wish to stop on to the run.

#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "datamodel/memcore/LoaderProgress.hpp"
#include "host/Messages.hpp"

namespace Host {

/// How far a step is.
struct ProgressState {
  std::uint64_t done = 0;    ///< tiles that were begun before the latest one
  std::uint64_t total = 0;   ///< tiles with data
  std::uint64_t points = 0;  ///< of all tiles together; 0 when unknown
  double elapsedSeconds = 0.0;
};

/// Points per second so far, taking tiles for equally full; 0 when there is nothing to tell.
double pointRate(const ProgressState& state);

/// Seconds to go at the pace so far; negative when there is nothing to tell.
double remainingSeconds(const ProgressState& state);

/// One line of at most `columns` characters: bar, tiles, rate, time to go.
std::string barLine(const ProgressState& state, int columns);

/// The same as one JSON object.
std::string progressJson(const std::string& step, const ProgressState& state);

/// Threads: report may be called from several threads at once.
class TileProgress final : public MemCore::LoaderProgress {
 public:
  /// `mode` is settled: Auto stands for none. Requires: `messages` outlives this object.
  TileProgress(ProgressMode mode, int columns, Messages& messages);

  /// A grid with so many points is up next; the count of tiles starts again.
  void beginGrid(std::uint64_t points);
  /// Takes the bar away.
  void finish();
  /// Tiles with data of all grids so far.
  std::uint64_t tilesWithData() const;

  /// False once the user has asked to stop.
  bool report(const std::string& text, std::uint64_t current, std::uint64_t total) override;

 private:
  using Clock = std::chrono::steady_clock;

  void showLocked(const std::string& step);

  const ProgressMode mode_;
  const int columns_;
  Messages& messages_;
  mutable std::mutex mutex_;
  ProgressState state_;
  std::uint64_t tilesOfFormerGrids_ = 0;
  Clock::time_point begin_;
  Clock::time_point lastShown_;
};

/// Auto settled: a bar when somebody watches standard error, unless --quiet.
ProgressMode settleProgressMode(const CommonOptions& options, const Terminal& terminal);

}  // namespace Host
