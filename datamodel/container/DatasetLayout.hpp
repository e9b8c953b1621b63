// SPDX-License-Identifier: Apache-2.0
//
// Where the values of one dataset lie in its file, and how they are encoded. Settled once; from
// then on the rows are read and decoded by as many threads as like.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "datamodel/container/ChunkCodec.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/ObjectFile.hpp"
#include "datamodel/fiber/FiberType.hpp"

namespace Fiber::Container {

/// Shape: [rows][columns], numbers of one kind. Invariant: everything lies within the file, and no
/// chunk claims to expand further than deflate can.
struct DatasetLayout {
  ScalarKind kind = ScalarKind::Float64;
  std::uint64_t rows = 0;
  std::uint64_t columns = 1;
  bool isChunked = false;
  std::uint64_t address = 0;  ///< of the values, when they are not chunked
  std::uint64_t chunkRows = 0;
  std::uint64_t chunkColumns = 0;
  ChunkFilter filter;
  std::vector<ChunkPlace> chunks;  ///< row of chunks after row of chunks
  /// The grid of coordinates stored as integers, where all fragments share one.
  std::optional<CoordinateGrid> grid;

  std::uint64_t chunksPerRow() const { return (columns + chunkColumns - 1) / chunkColumns; }
};

/// The layout of the dataset `name` in the group at a path. Errors: it is not there, or of a layout
/// or filter that bundle files do not use, or lies outside the file.
MemCore::Outcome<DatasetLayout> describeDataset(const ObjectFile& file, const std::string& group,
                                                const std::string& name);

}  // namespace Fiber::Container
