// SPDX-License-Identifier: Apache-2.0

#include "host/export/MarginChoice.hpp"

#include <utility>

#include "host/export/TileOwnership.hpp"

namespace Host {

using Formats::FragmentColumns;
using Formats::PointChoice;
using Formats::PointChooser;

namespace {

/// The points of a tile by the rule for margins.
PointChooser marginChooser(const TileOwnership& ownership, OverlapRule rule) {
  return [ownership, rule](const FragmentColumns& fragment) {
    PointChoice choice;
    if (!fragment.fragment->index) return choice;
    auto owned = ownership.ownedRows(*fragment.points(), *fragment.fragment->index);
    if (rule == OverlapRule::Drop) {
      choice.takesAll = false;
      choice.rows = std::move(owned);
      return choice;
    }
    choice.isMargin.assign(fragment.fragment->pointCount, 1);
    for (const std::uint32_t row : owned) choice.isMargin[row] = 0;
    return choice;
  };
}

}  // namespace

Result<PointChooser> chooserFor(const Fiber::Grid& grid, OverlapRule rule) {
  if (rule == OverlapRule::Keep) return Formats::everyPoint();
  const auto ownership = TileOwnership::of(grid);
  if (!ownership.ok()) return ownership.stop();
  if (!*ownership) return Formats::everyPoint();
  return marginChooser(**ownership, rule);
}

}  // namespace Host
