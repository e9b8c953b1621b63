// SPDX-License-Identifier: Apache-2.0
//
// PointCloudReader: puts LAS and LAZ files into a bundle as one grid, without reading their points:
// the grid's creators decode fragment by fragment when data are asked for. A fragment is a run of
// consecutive points of one file, named "FILE-RUN" (both counted from 0). Fields carry the names of
// PointLayout; positions are raw coordinates times scale plus offset; waveforms become "Waveforms"
// and "FWFLength" (see WaveformFragmentSource.hpp). Every fragment carries every field (see
// CloudFields.hpp).
//
// Start here: addPointCloud -> joinFields, cutIntoFragments -> PointFragmentSource -> decodePoints.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/CloudOptions.hpp"

namespace Formats {

struct FileWaveforms;
class LasFile;
class RecordSpill;

/// What went into the bundle.
struct CloudSummary {
  std::uint64_t points = 0;
  std::uint64_t fragments = 0;
  bool hasWaveforms = false;  ///< The grid has the fields "Waveforms" and "FWFLength".
  /// One line for each thing that is not as a user would expect it, beginning with a file's path.
  std::vector<std::string> notes;

  /// What only decoding shows, as far as it has come: one line for each file with waveform packets
  /// that could not be had, and one for a spill that had to be given up. Meant for the end of a
  /// run. Threads: may be called at any time.
  std::vector<std::string> lateNotes() const;

  /// Chunks of the compressed files, and how many have been decoded so far, repetitions included.
  std::uint64_t chunks() const;
  std::uint64_t decodedChunks() const;
  std::vector<std::shared_ptr<const LasFile>> compressedFiles;

  /// The files with waveforms, whose losses lateNotes() tells.
  std::vector<std::shared_ptr<const FileWaveforms>> waveforms;
  /// Where decoded records go that memory has no room for; null: nowhere.
  std::shared_ptr<RecordSpill> spill;
};

/// Adds the points of LAS and LAZ files to a bundle as a new grid. The files stay open for as long
/// as the grid lives, and must not change. Header values and variable records go into the grid's
/// attribute table (see SourceFiles.hpp); the chunks "GridScale" and "GridOffset" (3 doubles each)
/// in the property map of "Positions" are those of the first file that has points. Files without
/// points contribute to the attribute table only; if no file has any, the grid has "Positions"
/// without fragments.
/// Errors: no files, a name or time that cannot be used, a grid that exists already, a file that
/// cannot be opened, fields that cannot be joined, more fragments than can be handled; the bundle
/// is then unchanged.
MemCore::Outcome<CloudSummary> addPointCloud(Fiber::Bundle& bundle,
                                             const std::vector<std::string>& files,
                                             const CloudOptions& options);

}  // namespace Formats
