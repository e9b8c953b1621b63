// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include "datamodel/memcore/Outcome.hpp"

namespace Benchmarks {

/// The number of points in all grids of a bundle file, as its table of fragments tells.
/// Errors: the file cannot be loaded.
MemCore::Outcome<std::uint64_t> pointsOfBundle(const std::string& bundleFile);

}  // namespace Benchmarks
