// SPDX-License-Identifier: Apache-2.0
//
// One split of a LAS or LAZ file through the library, as the command line program does it.

#pragma once

#include <string>

#include "benchmarks/MeasuredChild.hpp"
#include "datamodel/fiber/StorageTransformations.hpp"

namespace Benchmarks {

struct SplitJob {
  std::string input;
  std::string folder;  ///< receives the tiles and the linked bundle; must exist
  double edgeLength = 0.0;
  double overlap = 0.0;
  int threads = 1;
  Fiber::StorageKind storage = Fiber::StorageKind::Grid;
  std::uint64_t memoryBytes = 0;  ///< budget of the cache; 0 leaves the default
};

/// Splits the file, without waiting for the disk; returns the number of points in the tiles.
/// Errors: any message of the operation.
MemCore::Outcome<std::uint64_t> splitFile(const SplitJob& job);

/// The same; returns how many chunks of a LAZ file were decoded, repetitions included.
MemCore::Outcome<std::uint64_t> countDecodes(const SplitJob& job);

}  // namespace Benchmarks
