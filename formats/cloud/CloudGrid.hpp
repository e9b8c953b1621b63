// SPDX-License-Identifier: Apache-2.0
//
// CloudGrid: builds the grid of a cloud from opened files: fields, fragments and their creators.

#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datamodel/fiber/Grid.hpp"
#include "formats/cloud/CloudFields.hpp"
#include "formats/cloud/FragmentRanges.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "formats/cloud/WaveformFragmentSource.hpp"
#include "formats/las/LasFile.hpp"

namespace Formats {

/// One file of a cloud. Invariant: `fragments` is empty exactly when the file has no points.
struct CloudFile {
  std::shared_ptr<LasFile> file;
  std::shared_ptr<FileWaveforms> waveforms;  ///< Null: no packets to be had.
  std::vector<PointRange> fragments;
};

/// Bytes of a compressed file's records once they are decoded; 0 for an uncompressed file.
std::uint64_t decodedBytes(const LasFile& file);

/// Fills a new grid with the points of files. Requires: `fields` was joined from the same files.
/// With `keepOrder` the grid also tells the place of each point in them (see SourceOrder.hpp).
/// Returns the number of fragments and points by way of `summary`, whose spill, if it has one,
/// takes the decoded records of compressed files.
void fillGrid(Fiber::Grid& grid, std::span<const CloudFile> files, const CloudFields& fields,
              bool keepOrder, CloudSummary& summary);

}  // namespace Formats
