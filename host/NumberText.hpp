// SPDX-License-Identifier: Apache-2.0
//
// Numbers as text for people: thousands separators, byte sizes, durations, rates. The same in
// every locale. For machines there is JsonReport.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "datamodel/eagle/BoundingBox.hpp"

namespace Host {

/// 8750450 -> "8,750,450".
std::string countText(std::uint64_t count);

/// "1 tile", "2,000 tiles"; the plural is the singular with an s.
std::string countText(std::uint64_t count, const std::string& singular);

/// Bytes with a binary unit: 1536 -> "1.5 KiB".
std::string byteText(std::uint64_t bytes);

/// "0.42 s", "12.3 s", "3 min 05 s", "2 h 03 min"; "-" for what is no duration.
std::string durationText(double seconds);

/// Points per second: "812 points/s", "45.2 thousand points/s", "2.7 million points/s".
std::string rateText(double pointsPerSecond);

/// A length with at most six significant digits and no trailing zeros.
std::string lengthText(double length);

/// Three lengths joined by " x ".
std::string lengthsText(const Eagle::FixedArray<double, 3>& lengths);

/// Three counts joined by " x ".
std::string countsText(const std::array<std::uint64_t, 3>& counts);

/// Decimals that coordinates deserve within an extent: two for kilometres, six for a hundredth of a
/// degree.
int decimalsFor(double extent);

/// One axis of a box as "min to max".
std::string axisText(const Eagle::BoundingBox& box, std::size_t axis, int decimals);
/// The same with the decimals that the box's own extent deserves.
std::string axisText(const Eagle::BoundingBox& box, std::size_t axis);

/// A time or another parameter, as short as it reads back exactly.
std::string exactText(double value);

}  // namespace Host
