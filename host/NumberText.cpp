// SPDX-License-Identifier: Apache-2.0

#include "host/NumberText.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace Host {

std::string countText(std::uint64_t count) {
  const std::string digits = std::to_string(count);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

std::string countText(std::uint64_t count, const std::string& singular) {
  return countText(count) + " " + singular + (count == 1 ? "" : "s");
}

std::string byteText(std::uint64_t bytes) {
  constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return fmt::format("{} B", bytes);
  double value = static_cast<double>(bytes) / 1024.0;
  std::size_t unit = 0;
  for (; value >= 1024.0 && unit + 1 < std::size(kUnits); ++unit) value /= 1024.0;
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string durationText(double seconds) {
  if (!(seconds >= 0.0) || seconds > 1e12) return "-";
  if (seconds < 10.0) return fmt::format("{:.2f} s", seconds);
  if (seconds < 60.0) return fmt::format("{:.1f} s", seconds);
  const auto whole = static_cast<std::uint64_t>(std::llround(seconds));
  if (whole < 3600) return fmt::format("{} min {:02} s", whole / 60, whole % 60);
  return fmt::format("{} h {:02} min", whole / 3600, whole % 3600 / 60);
}

std::string rateText(double pointsPerSecond) {
  if (!std::isfinite(pointsPerSecond) || pointsPerSecond < 0.0) return "-";
  if (pointsPerSecond >= 1e6) return fmt::format("{:.1f} million points/s", pointsPerSecond / 1e6);
  if (pointsPerSecond >= 1e3) return fmt::format("{:.1f} thousand points/s", pointsPerSecond / 1e3);
  return fmt::format("{:.0f} points/s", pointsPerSecond);
}

std::string lengthText(double length) { return fmt::format("{:.6g}", length); }

std::string lengthsText(const Eagle::FixedArray<double, 3>& lengths) {
  return fmt::format("{} x {} x {}", lengthText(lengths[0]), lengthText(lengths[1]),
                     lengthText(lengths[2]));
}

std::string countsText(const std::array<std::uint64_t, 3>& counts) {
  return fmt::format("{} x {} x {}", countText(counts[0]), countText(counts[1]),
                     countText(counts[2]));
}

int decimalsFor(double extent) {
  if (!(extent > 0.0) || !std::isfinite(extent)) return 2;
  return std::clamp(4 - static_cast<int>(std::floor(std::log10(extent))), 2, 9);
}

std::string axisText(const Eagle::BoundingBox& box, std::size_t axis, int decimals) {
  return fmt::format("{:.{}f} to {:.{}f}", box.min()[axis], decimals, box.max()[axis], decimals);
}

std::string axisText(const Eagle::BoundingBox& box, std::size_t axis) {
  return axisText(box, axis, decimalsFor(box.max()[axis] - box.min()[axis]));
}

std::string exactText(double value) { return fmt::format("{}", value); }

}  // namespace Host
