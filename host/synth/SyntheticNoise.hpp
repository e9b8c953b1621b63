// SPDX-License-Identifier: Apache-2.0
//
// SyntheticNoise: numbers that look random but are a function of what they stand for: a seed and a
// place, or a seed and a pulse. Nothing is drawn from a shared generator, so any part of a
// synthetic survey can be made by any thread, in any order, and comes out the same.
// Everything is inline: the terrain asks for it several times per pulse.

#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace Synth {

/// Spreads the bits of a counter over the whole word.
/// Source: the finaliser of SplitMix64 (Steele, Lea, Flood: Fast splittable generators, 2014).
constexpr std::uint64_t mixBits(std::uint64_t value) {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31U);
}

inline constexpr std::uint64_t kGoldenStep = 0x9E3779B97F4A7C15U;

/// One number for a seed and two coordinates of a lattice or a counter.
constexpr std::uint64_t hashOf(std::uint64_t seed, std::uint64_t a, std::uint64_t b) {
  return mixBits(mixBits(seed + a * kGoldenStep) + b * 0xD1B54A32D192ED03U);
}

/// The upper 53 bits as a fraction. Range: [0, 1).
constexpr double toFraction(std::uint64_t bits) {
  return static_cast<double>(bits >> 11U) * 0x1.0p-53;
}

/// A short sequence of random numbers that belongs to one thing, such as one pulse of one line.
class RandomStream {
 public:
  RandomStream(std::uint64_t seed, std::uint64_t owner, std::uint64_t number)
      : state_(hashOf(seed, owner, number)) {}

  std::uint64_t next() { return mixBits(state_ += kGoldenStep); }

  /// Range: [0, 1).
  double uniform() { return toFraction(next()); }

  /// Range: [low, high).
  double uniform(double low, double high) { return low + (high - low) * uniform(); }

  /// Mean 0, deviation 1, never beyond kLargestNormal: the sum of four 16-bit numbers. Deliberate:
  /// the bounded tails keep the noise of neighbouring returns from changing their order.
  double normal() {
    const std::uint64_t bits = next();
    const std::uint64_t sum =
        (bits & 0xFFFFU) + ((bits >> 16U) & 0xFFFFU) + ((bits >> 32U) & 0xFFFFU) + (bits >> 48U);
    return (static_cast<double>(sum) / 65535.0 - 2.0) * std::numbers::sqrt3;
  }

  static constexpr double kLargestNormal = 2.0 * std::numbers::sqrt3;

 private:
  std::uint64_t state_;
};

/// Weight that eases from 0 at 0 to 1 at 1. Requires: 0 <= t <= 1.
constexpr double easeBetween(double t) { return t * t * (3.0 - 2.0 * t); }

/// Smooth noise over the plane with one random value per unit square corner. Range: [-1, 1].
/// Requires: coordinates that fit 63 bits.
inline double valueNoise(std::uint64_t seed, double x, double y) {
  const double column = std::floor(x);
  const double row = std::floor(y);
  const auto i = static_cast<std::uint64_t>(static_cast<std::int64_t>(column));
  const auto j = static_cast<std::uint64_t>(static_cast<std::int64_t>(row));
  const double s = easeBetween(x - column);
  const double t = easeBetween(y - row);
  const double lower =
      std::lerp(toFraction(hashOf(seed, j, i)), toFraction(hashOf(seed, j, i + 1)), s);
  const double upper =
      std::lerp(toFraction(hashOf(seed, j + 1, i)), toFraction(hashOf(seed, j + 1, i + 1)), s);
  return 2.0 * std::lerp(lower, upper, t) - 1.0;
}

/// Sum of `octaves` value noises, each half as high and twice as fine as the one before.
/// Range: (-2, 2), most of it within 0.8 of 0.
inline double fractalNoise(std::uint64_t seed, double x, double y, int octaves) {
  double sum = 0;
  double height = 1;
  for (int octave = 0; octave < octaves; ++octave) {
    sum += height * valueNoise(seed + static_cast<std::uint64_t>(octave), x, y);
    height *= 0.5;
    x *= 2.0;
    y *= 2.0;
  }
  return sum;
}

}  // namespace Synth
