// SPDX-License-Identifier: Apache-2.0

#include "host/LengthChoice.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Host {

namespace {

double roundedToThreeDigits(double value) {
  const double unit = std::pow(10.0, std::floor(std::log10(value)) - 2.0);
  const double rounded = std::round(value / unit) * unit;
  return std::isfinite(rounded) && rounded > 0.0 ? rounded : value;
}

}  // namespace

double lengthForPointsPerTile(const Eagle::BoundingBox& box, std::uint64_t pointCount,
                              std::uint64_t pointsPerTile) {
  if (pointCount == 0) return 0.0;
  const double width = box.max().x - box.min().x;
  const double depth = box.max().y - box.min().y;
  const double share = static_cast<double>(pointsPerTile) / static_cast<double>(pointCount);
  const bool isArea = width > 0.0 && depth > 0.0;
  const double length = isArea ? std::sqrt(width * depth * share) : std::max(width, depth) * share;
  return std::isfinite(length) && length > 0.0 ? roundedToThreeDigits(length) : 0.0;
}

bool coversAxis(const TiledAxis& axis) {
  return static_cast<double>(axis.count) * axis.length + axis.min >= axis.max;
}

double coveringLength(const TiledAxis& axis) {
  TiledAxis trial = axis;
  if (coversAxis(trial)) return axis.length;
  // Positive doubles sort like their bit patterns, so halving the patterns between a length that
  // falls short and one that covers ends at the smallest that covers.
  auto tooShort = std::bit_cast<std::uint64_t>(axis.length);
  while (!coversAxis(trial)) trial.length *= 2.0;
  auto covers = std::bit_cast<std::uint64_t>(trial.length);
  while (covers - tooShort > 1) {
    const std::uint64_t middle = tooShort + (covers - tooShort) / 2;
    trial.length = std::bit_cast<double>(middle);
    (coversAxis(trial) ? covers : tooShort) = middle;
  }
  return std::bit_cast<double>(covers);
}

}  // namespace Host
