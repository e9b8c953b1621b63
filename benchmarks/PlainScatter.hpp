// SPDX-License-Identifier: Apache-2.0
//
// The floor for uncompressed input: read the point records, sort them into one buffer per tile,
// write the buffers. No fields, no compression, no durability: what remains is memory traffic and
// the file system.

#pragma once

#include <string>

#include "benchmarks/MeasuredChild.hpp"

namespace Benchmarks {

struct ScatterJob {
  std::string input;   ///< an uncompressed LAS file
  std::string folder;  ///< receives one file of bare records per tile; must exist
  double edgeLength = 0.0;
  double overlap = 0.0;  ///< fraction of the edge, on each side
  int threads = 1;
};

/// Scatters the file; returns the number of records written.
MemCore::Outcome<std::uint64_t> scatterPlainly(const ScatterJob& job);

}  // namespace Benchmarks
