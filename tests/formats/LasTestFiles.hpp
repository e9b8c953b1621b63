// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the LAS layer share: the folder of real files with what is known of them, and
// made-up records.

#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "formats/las/LasFile.hpp"

namespace Formats {

/// What the table of the test data says of a file.
struct KnownFile {
  std::string name;
  std::uint8_t versionMinor = 0;
  std::uint8_t pointFormat = 0;
  std::uint16_t extraBytes = 0;
  std::uint64_t pointCount = 0;
  std::array<double, 3> minimum{};
  std::array<double, 3> maximum{};
};

void PrintTo(const KnownFile& file, std::ostream* stream);

/// All LAS and LAZ files of the table but the main input, and that one.
std::vector<KnownFile> smallKnownFiles();
KnownFile mainInput();

/// A name for parametrised tests: letters, digits and underscores.
std::string testNameOf(const testing::TestParamInfo<KnownFile>& info);

/// A test that reads real files; skipped where they are not at hand.
class LasData : public testing::Test {
 protected:
  void SetUp() override;
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  /// Opens a file of the folder; fails the test when that fails.
  std::shared_ptr<LasFile> open(const std::string& name) const;

 private:
  std::filesystem::path folder_;
};

/// All records of a file; fails the test when they cannot be read.
std::vector<std::byte> readAllRecords(const LasFile& file);

std::vector<std::byte> readFile(const std::string& path);
void writeFile(const std::string& path, std::span<const std::byte> bytes);

/// Records such as a survey has: a walk over the terrain, pulses of several returns, times of
/// several interleaved sequences with jumps, scanner channels, now and then any value at all.
std::vector<std::byte> surveyRecords(std::uint8_t pointFormat, std::uint16_t extraBytes,
                                     std::size_t count, std::uint64_t seed);

}  // namespace Formats
