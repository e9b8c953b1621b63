// SPDX-License-Identifier: Apache-2.0
//
// GridSelection: which grids of the input the user's filters pick, and whether everything that was
// named exists.

#pragma once

#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "host/Options.hpp"
#include "host/Result.hpp"

namespace Host {

/// A grid of the input and where it is.
struct SelectedGrid {
  double time = 0.0;
  std::string name;
  MemCore::StrongPtr<Fiber::Grid> grid;
};

/// The grids that the filters accept, in ascending order of time and name; at least one.
/// Errors: a time, grid or field that the input does not have (usage; the text lists what there
/// is), an input without grids, a grid whose name is not acceptable (failed).
Result<std::vector<SelectedGrid>> selectGrids(const Fiber::Bundle& bundle,
                                              const FilterOptions& filters);

/// Whether the grids can be split together: the tiles of two grids of one time would have the same
/// file names. Errors: usage, naming the grids.
Check checkDistinctTimes(const std::vector<SelectedGrid>& grids);

/// Names of a grid's vertex fields, in ascending order.
std::vector<std::string> fieldNames(const Fiber::Grid& grid);

}  // namespace Host
