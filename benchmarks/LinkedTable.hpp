// SPDX-License-Identifier: Apache-2.0
//
// Linked bundles over tiles that were never made: the fields of a usual survey, every fragment with
// the facts and the place that linking its file would have given it. For measuring saving and
// opening at sizes that no disk holds.

#pragma once

#include <string>

#include "benchmarks/Comparison.hpp"

namespace Benchmarks {

/// Saves a linked bundle of so many fragments; building it in memory is not timed. Delivers the
/// number of fragments.
Measure savingLinks(const std::string& file, std::uint64_t fragments);

/// Loads a linked bundle. Delivers the number of its fragments.
Measure openingLinks(const std::string& file);

}  // namespace Benchmarks
