// SPDX-License-Identifier: Apache-2.0
//
// TileFolder: the folder that a split fills with tile files, named by the stem of the output file.

#pragma once

#include <string>
#include <vector>

#include "host/Result.hpp"

namespace Host {

/// Where a split writes. All paths are absolute.
struct OutputPlace {
  std::string file;        ///< the bundle that links the tiles
  std::string directory;   ///< where the folder of tiles is
  std::string tileFolder;  ///< directory / stem of the file
};

/// Settles the place from the flags; an empty directory means that of the output. Touches nothing.
/// Errors: usage, for a name that does not end in .f5, or whose stem cannot name a folder; failed,
/// where a folder has the file's name or a file has the folder's.
Result<OutputPlace> settleOutputPlace(const std::string& output, const std::string& directory);

/// Makes the folders of the place, those above them included. Errors: failed; a folder that was
/// made on the way stays.
Check makeFolders(const OutputPlace& place);

/// The folder that the tile files will go to, or, as long as it does not exist, the closest one
/// above it that does.
std::string nearestFolder(const OutputPlace& place);

/// Whether a file name is that of a tile: "F<i>x<j>x<k>T<time>G<grid>.f5".
bool isTileFileName(const std::string& name);

/// Names of the tile files in a folder, in ascending order; none for a folder that is not there.
std::vector<std::string> listTileFiles(const std::string& folder);

/// Works from inside a folder for as long as it lives.
class WorkingFolder {
 public:
  /// Errors: the folder cannot be entered.
  static Result<WorkingFolder> enter(const std::string& folder);

  WorkingFolder(WorkingFolder&& other) noexcept : former_(std::exchange(other.former_, {})) {}
  WorkingFolder& operator=(WorkingFolder&&) = delete;
  ~WorkingFolder();

 private:
  explicit WorkingFolder(std::string former) : former_(std::move(former)) {}

  std::string former_;  ///< empty: nothing to go back to
};

}  // namespace Host
