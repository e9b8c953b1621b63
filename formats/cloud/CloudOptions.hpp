// SPDX-License-Identifier: Apache-2.0
//
// CloudOptions: how the points of files go into a bundle, and the checks that every reader of point
// clouds makes before it opens a file. Threads: pure functions of their arguments.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// How a cloud goes into a bundle.
struct CloudOptions {
  /// Reaches file names: neither empty nor beginning with a dot, no '/', '\\' or control character.
  std::string gridName = "points";
  double time = 0.0;                      ///< Of the slice; finite.
  std::uint64_t fragmentPoints = 250000;  ///< About as many points make a fragment; at least 1.
  /// Adds the fields that tell each point's place in LAS files (see SourceOrder.hpp).
  bool keepOrder = false;
  /// Where decoded points of LAZ files go that are needed again and do not fit into the cache's
  /// budget: a folder for a nameless file. For runs that read points more than once; empty: such
  /// points are decoded again.
  std::string spillFolder = {};
};

/// Errors: a name, time or fragment size that cannot be used, a grid that exists already.
MemCore::Outcome<void> checkCloudOptions(const Fiber::Bundle& bundle, const CloudOptions& options);

/// Whether fragments can be handled for so many fields, `fixedFields` of which every cloud may
/// have. Errors: more creators than can be held.
MemCore::Outcome<void> checkFragmentCount(std::uint64_t fragments, std::uint64_t fields,
                                          std::uint64_t fixedFields);

/// One line for each file that is given again.
std::vector<std::string> repetitionNotes(const std::vector<std::string>& files);

}  // namespace Formats
