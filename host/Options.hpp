// SPDX-License-Identifier: Apache-2.0
//
// Options: what a command line asked for, one struct per sub-command, every value checked already.

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "datamodel/fiber/StorageTransformations.hpp"
#include "host/synth/SyntheticOptions.hpp"

namespace Host {

enum class Verbosity { Quiet, Normal, Verbose };
enum class ProgressMode { Auto, Bar, Json, None };

/// What every sub-command understands.
struct CommonOptions {
  Verbosity verbosity = Verbosity::Normal;
  bool json = false;
  ProgressMode progress = ProgressMode::Auto;
  std::string logFile;                       ///< empty: none
  int threadCount = 0;                       ///< 0: as many as the machine has
  std::optional<std::uint64_t> memoryBytes;  ///< of the cache of decoded points
};

/// Which times, grids and fields to take; an empty set takes all.
struct FilterOptions {
  std::set<double> times;
  std::set<std::string> grids;
  std::set<std::string> fields;
};

/// The shape of the tiles. Units: those of the positions.
struct TilingOptions {
  Eagle::FixedArray<double, 3> fragmentLength;  ///< x and y 0: estimated from the density
  std::optional<std::uint64_t> pointsPerTile;   ///< settles x and y in place of an estimate
  double overlap = 0.0;                         ///< fraction of the length, on each side
  std::uint32_t minPoints = 0;                  ///< tiles need more points than this
  std::optional<Eagle::PhysicalSpace::point> start;
  std::optional<Eagle::PhysicalSpace::point> end;
};

struct StorageOptions {
  Fiber::StorageKind kind = Fiber::StorageKind::Grid;
  bool durable = true;
};

struct InfoOptions {
  std::vector<std::string> inputs;
  std::vector<std::string> columns;  ///< of text files; empty: as the files say
  FilterOptions filters;
  TilingOptions tiling;
};

struct SplitOptions {
  std::vector<std::string> inputs;
  std::vector<std::string> columns;  ///< of text files; empty: as the files say
  FilterOptions filters;
  TilingOptions tiling;
  StorageOptions storage;
  std::string output;
  std::string outputDirectory;  ///< empty: the folder of the output
  std::string outputGrid;       ///< empty: the name of the first input grid
  bool singleFile = false;      ///< all tiles inside the output
  bool keepOrder = false;       ///< points carry their place in the input
  bool force = false;
};

struct LinkOptions {
  std::vector<std::string> inputs;
  std::string output;
  bool durable = true;
  bool force = false;
};

struct VerifyOptions {
  std::vector<std::string> inputs;
  bool quick = false;  ///< leave the points unread
};

struct ShowOptions {
  std::vector<std::string> inputs;
  bool allFragments = false;   ///< list every fragment instead of the first ones
  bool computeRanges = false;  ///< read point data where the range of a field is not known
};

struct ImportOptions {
  std::vector<std::string> inputs;
  std::vector<std::string> columns;  ///< of text files; empty: as the files say
  StorageOptions storage;
  std::string output;
  std::string grid = "points";
  double time = 0.0;
  bool keepOrder = false;  ///< points carry their place in the input
  bool force = false;
};

/// What becomes of points in the margins of tiles that overlap.
enum class OverlapRule {
  Drop,  ///< every point once, in the tile that owns it
  Keep,  ///< as they stand, in every tile that holds them
  Flag   ///< kept, and marked
};

enum class WaveformChoice { External, Internal, None };

/// How points are divided into files in a folder.
enum class FileDivision { Tile, Source };

struct ExportOptions {
  std::vector<std::string> inputs;
  FilterOptions filters;
  std::string output;
  std::string name;              ///< template of tile names; empty: the usual one
  std::string fileType = "laz";  ///< of the files in a folder
  FileDivision division = FileDivision::Tile;
  std::optional<std::uint8_t> pointFormat;
  std::optional<Eagle::PhysicalSpace::point> scale;
  std::optional<Eagle::PhysicalSpace::point> offset;
  bool lossy = false;
  OverlapRule overlap = OverlapRule::Drop;
  WaveformChoice waveforms = WaveformChoice::External;
  bool durable = true;
  bool force = false;
};

struct SynthOptions {
  Synth::SurveyOptions survey;
  std::string output;
  bool force = false;
};

using CommandOptions = std::variant<InfoOptions, SplitOptions, LinkOptions, ShowOptions,
                                    VerifyOptions, ImportOptions, ExportOptions, SynthOptions>;

}  // namespace Host
