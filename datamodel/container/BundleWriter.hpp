// SPDX-License-Identifier: Apache-2.0
//
// Writing a planned bundle into a file: groups and attributes of slices, grids and skeletons, the
// representations batch by batch, and at the end what makes it a bundle file. The file is not
// readable before all of it has succeeded.

#pragma once

#include <functional>
#include <string>

#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/RepresentationWriter.hpp"
#include "datamodel/fiber/StorageTransformations.hpp"

namespace Fiber::Container {

/// Asked after every batch with the fragments done and in all; false ends the writing.
using SaveProgress = std::function<bool(std::uint64_t done, std::uint64_t total)>;

/// Where a plan is written to.
struct WriteTarget {
  int descriptor = -1;  ///< open for writing
  StorageKind kind = StorageKind::Grid;
  BatchSizes sizes;
};

enum class WriteResult {
  kWritten,
  /// Coordinates fit no grid after others had been written as if they did. The plan remembers:
  /// write it once more.
  kMustRestart,
};

/// Writes the whole plan. Errors: "<file>: ..."; the file is then of no use.
MemCore::Outcome<WriteResult> writeBundle(BundlePlan& plan, const WriteTarget& target,
                                          const SaveProgress& progress);

}  // namespace Fiber::Container
