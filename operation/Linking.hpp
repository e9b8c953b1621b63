// SPDX-License-Identifier: Apache-2.0
//
// Linking: registers the fragments of tile files in an output grid, and completes an output grid
// with the value range or box of each of its fields.

#pragma once

#include <cstdint>
#include <string>

#include "assembly/OutputGrid.hpp"
#include "operation/RefragmentAndSplit.hpp"

namespace LidarLib {

/// Loads a tile file and links every field's fragment into the output grid at `tileIndex`; adds the
/// points of its positions to `outputPoints`. A file that cannot be loaded contributes nothing.
void copyCreators(const std::string& fileName, Fiber::Grid& outputGrid,
                  RegularPositions& outputPositions, const Fiber::MultiIndex<3>& tileIndex,
                  std::uint64_t& outputPoints);

/// Attaches to each vertex field of the grid its value range, or its box when it has no range.
void addFieldAttributes(Fiber::Grid& grid);

/// Saves a bundle of linked tiles as the operation's output file, and switches linking on in the
/// transformations (made when empty). Returns the failure text.
std::string saveLinking(const RefragmentAndSplit& operation, Fiber::Bundle& bundle,
                        MemCore::StrongPtr<Fiber::StorageTransformations> transformations);

}  // namespace LidarLib
