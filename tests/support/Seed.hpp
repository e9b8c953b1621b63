// SPDX-License-Identifier: Apache-2.0
//
// The seed of random tests: a new one in every run, so that runs add up, unless the environment
// variable LIDARLIB_TEST_SEED repeats a former one.

#pragma once

#include <cstdint>

namespace LidarLib::TestSupport {

/// The seed for the current test, recorded and printed. Errors: a malformed variable fails the
/// test.
std::uint64_t testSeed();

}  // namespace LidarLib::TestSupport
