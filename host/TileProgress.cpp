// SPDX-License-Identifier: Apache-2.0

#include "host/TileProgress.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/NumberText.hpp"
#include "host/Signals.hpp"

namespace Host {

namespace {

constexpr auto kRefreshTime = std::chrono::milliseconds(100);

double doneFraction(const ProgressState& state) {
  if (state.total == 0) return 0.0;
  return std::min(1.0, static_cast<double>(state.done) / static_cast<double>(state.total));
}

}  // namespace

double pointRate(const ProgressState& state) {
  if (state.elapsedSeconds <= 0.0) return 0.0;
  return doneFraction(state) * static_cast<double>(state.points) / state.elapsedSeconds;
}

double remainingSeconds(const ProgressState& state) {
  const double fraction = doneFraction(state);
  if (fraction <= 0.0) return -1.0;
  return state.elapsedSeconds * (1.0 - fraction) / fraction;
}

std::string barLine(const ProgressState& state, int columns) {
  constexpr int kWidest = 40;
  constexpr int kNarrowest = 5;
  std::string words = fmt::format(" {}/{} tiles", countText(state.done), countText(state.total));
  if (pointRate(state) > 0.0) words += ", " + rateText(pointRate(state));
  if (remainingSeconds(state) >= 0.0)
    words += ", " + durationText(remainingSeconds(state)) + " left";
  const int width = std::min(kWidest, columns - static_cast<int>(words.size()) - 3);
  if (width < kNarrowest)
    return words.substr(1, static_cast<std::size_t>(std::max(columns - 1, 0)));
  const auto filled = static_cast<std::size_t>(doneFraction(state) * width);
  return "[" + std::string(filled, '#') +
         std::string(static_cast<std::size_t>(width) - filled, '.') + "]" + words;
}

std::string progressJson(const std::string& step, const ProgressState& state) {
  nlohmann::ordered_json object;
  object["step"] = step;
  object["done"] = state.done;
  object["total"] = state.total;
  object["elapsedSeconds"] = state.elapsedSeconds;
  object["pointsPerSecond"] = pointRate(state);
  const double remaining = remainingSeconds(state);
  object["remainingSeconds"] =
      remaining < 0.0 ? nlohmann::ordered_json() : nlohmann::ordered_json(remaining);
  return object.dump();
}

TileProgress::TileProgress(ProgressMode mode, int columns, Messages& messages)
    : mode_(mode), columns_(columns), messages_(messages), begin_(Clock::now()) {}

void TileProgress::beginGrid(std::uint64_t points) {
  const std::lock_guard lock(mutex_);
  tilesOfFormerGrids_ += state_.total;
  state_ = ProgressState{0, 0, points, 0.0};
  begin_ = Clock::now();
}

void TileProgress::finish() {
  const std::lock_guard lock(mutex_);
  if (mode_ == ProgressMode::Bar) messages_.clearStatus();
}

std::uint64_t TileProgress::tilesWithData() const {
  const std::lock_guard lock(mutex_);
  return tilesOfFormerGrids_ + state_.total;
}

bool TileProgress::report(const std::string& text, std::uint64_t /*current*/, std::uint64_t total) {
  const std::lock_guard lock(mutex_);
  state_.total = total;
  showLocked(text);
  // Counted here: the run's own number may repeat or skip when several threads report at once.
  ++state_.done;
  return !stopRequested();
}

void TileProgress::showLocked(const std::string& step) {
  const Clock::time_point now = Clock::now();
  if (now - lastShown_ < kRefreshTime) return;
  lastShown_ = now;
  state_.elapsedSeconds = std::chrono::duration<double>(now - begin_).count();
  if (mode_ == ProgressMode::Bar) messages_.setStatus(barLine(state_, columns_));
  if (mode_ == ProgressMode::Json) messages_.rawLine(progressJson(step, state_));
}

ProgressMode settleProgressMode(const CommonOptions& options, const Terminal& terminal) {
  if (options.progress != ProgressMode::Auto) return options.progress;
  const bool showsBar = terminal.isTerminal && options.verbosity != Verbosity::Quiet;
  return showsBar ? ProgressMode::Bar : ProgressMode::None;
}

}  // namespace Host
