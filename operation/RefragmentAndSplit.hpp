// SPDX-License-Identifier: Apache-2.0
//
// RefragmentAndSplit: the operation. It re-cuts every selected grid of the input bundle into a
// regular nx x ny x nz array of tiles. The host constructs the object, sets its parameters and the
// members of the base class, and calls one entry point; failures are left in `messages`.
//
//   Run()            one bundle file per tile, restartable, linked into one output bundle
//   RunUnlinked()    all tiles as fragments of one output bundle, in one file
//   UpdateLinked()   a bundle over tile files that were written earlier
//   GetSomeInfo()    what a split would produce; writes nothing

#pragma once

#include <cstdint>
#include <string>

#include "datamodel/convlib/BasicConverterDefs.hpp"
#include "planning/InputSurvey.hpp"

namespace LidarLib {

class LIDARLIB_API RefragmentAndSplit : public ConvLib::BasicConverterDefs {
 public:
  RefragmentAndSplit() = default;
  ~RefragmentAndSplit() override;

  /// Report of the parameters below, one labelled line each.
  std::string printSecondary() override;

  /// Splits every selected grid into tile files under <output directory>/<stem of the output file
  /// name>/ and saves the bundle that links them as the output file. Tiles whose file exists are
  /// kept as they are. Returns false only without an input bundle; every other failure appends to
  /// `messages` and skips the tile, the grid or the rest of the slice.
  /// Threads: called by one thread; tiles are built by omp_get_max_threads() threads.
  bool Run() override;

  /// Builds every tile as a fragment of one output bundle: that of the output file, which appears
  /// when all is done, or the input bundle itself when the output file name is empty. Returns false
  /// only without an input bundle; every other failure appends to `messages` and skips the tile,
  /// the grid or the rest of the slice. A refusal of the tile progress skips the rest of the slice.
  /// Threads: called by one thread; tiles are built one after the other.
  bool RunUnlinked();

  /// Links the declared input files, one tile each, into the grid "LinkedGrid" of a new bundle, at
  /// the index in each file's name, and saves it as the output file. Returns false when nothing was
  /// declared, the first file cannot be loaded, nothing is selected, the bundle cannot be saved
  /// (see `messages`), or the tile progress refuses. Ends the process with status 1 for a name
  /// without an index and for an index that occurs twice; throws std::invalid_argument or
  /// std::out_of_range for an index that is no number. Hosts check their files beforehand.
  bool UpdateLinked();

  /// Reports per selected time and grid what a split would produce. Empty without an input bundle.
  std::string GetSomeInfo();

  /// Edge length of a tile along x, y and z, in the units of the positions. A length of x or y not
  /// above 0 asks for an estimate from the point density; 0 along z lets a tile span the cloud.
  Eagle::FixedArray<double, 3> FragmentLength;
  /// Corners that replace those of the cloud's own box; each may be empty.
  PointHandle StartPoint;
  PointHandle EndPoint;
  /// A tile is written only if it has more points than this.
  std::uint32_t MinPointNumber = 0;
  /// Margin on each side of a tile as a fraction of its length; 0 or less means none.
  double NormalizedOverlap = 0.0;
  /// Asks the host to link existing tile files instead of splitting. Only reported here.
  bool UpdateLinkedFiles = false;
};

}  // namespace LidarLib
