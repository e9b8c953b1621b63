// SPDX-License-Identifier: Apache-2.0

#include "tests/support/Seed.hpp"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace LidarLib::TestSupport {

namespace {

std::uint64_t chosenSeed() {
  const char* variable = std::getenv("LIDARLIB_TEST_SEED");
  if (variable == nullptr) return std::random_device()();
  const std::string text = variable;
  std::uint64_t seed = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc() || stop != text.data() + text.size()) {
    ADD_FAILURE() << "LIDARLIB_TEST_SEED: no unsigned number, found " << text;
  }
  return seed;
}

}  // namespace

std::uint64_t testSeed() {
  const std::uint64_t seed = chosenSeed();
  std::cout << "LIDARLIB_TEST_SEED=" << seed << std::endl;
  testing::Test::RecordProperty("seed", std::to_string(seed));
  return seed;
}

}  // namespace LidarLib::TestSupport
