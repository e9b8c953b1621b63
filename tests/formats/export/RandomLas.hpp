// SPDX-License-Identifier: Apache-2.0
//
// RandomLas: made-up LAS and LAZ files with everything that such a file can have, for the test that
// what was read is written again byte by byte.

#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "tests/formats/cloud/CloudTestFiles.hpp"

namespace Formats {

/// What is settled beforehand of a random file; all else follows from the generator.
struct RandomLasTraits {
  std::uint8_t pointFormat = 0;
  std::size_t points = 0;
  bool isCompressed = false;
};

/// A file and how it was made.
struct RandomLas {
  std::string path;
  LasWriterOptions options;
  bool hasPackets = false;
};

/// Writes a random file. Every waveform packet is named by at least one point; some points name
/// packets past the end, and some none.
RandomLas writeRandomLas(const std::string& path, const RandomLasTraits& traits,
                         std::mt19937_64& random);

}  // namespace Formats
