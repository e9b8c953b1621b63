// SPDX-License-Identifier: Apache-2.0
//
// Tile files: how the file of a tile is named and whether it exists. The existence of its file is
// the only record that a tile is done.

#pragma once

#include <string>

#include "datamodel/fiber/DynamicSize.hpp"

namespace LidarLib {

/// What the names of all tile files of one grid and time have in common.
struct TileFileScheme {
  std::string outputDirectory;
  std::string stem;  ///< of the output file name
  double time = 0.0;
  std::string gridName;

  /// "<directory>/<stem>/F<i>x<j>x<k>T<time>G<grid>.f5", the time with six decimals.
  std::string fileName(const Fiber::MultiIndex<3>& index) const;
};

/// The text after the last "/" or "\" of a path, cut before its last "."; a name without a dot is
/// kept whole.
std::string fileStem(const std::string& path);

/// Whether a file of that name can be opened for reading.
bool canBeOpened(const std::string& fileName);

}  // namespace LidarLib
