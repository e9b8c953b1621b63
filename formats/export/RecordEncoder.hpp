// SPDX-License-Identifier: Apache-2.0
//
// RecordEncoder: from the columns of a fragment to point records.
// Threads: const members may be called by any number of threads at once.

#pragma once

#include <atomic>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/FragmentColumns.hpp"
#include "formats/export/LasTarget.hpp"
#include "formats/export/Scaling.hpp"

namespace Formats {

class RecordEncoder {
 public:
  /// Requires: source and target outlive the encoder.
  RecordEncoder(const ExportSource& source, const LasTarget& target, const CoordinateGrid& grid,
                bool isLossy);

  /// The fields to load.
  const std::vector<std::size_t>& neededFields() const { return needed_; }

  /// Sets records to the chosen points from `first` on; as many as there is room for.
  /// `waveOffsets`, where not empty, stand in for the points' own. Points in the margin are marked
  /// as overlap, or as withheld in formats without such a flag. Requires: positions that were
  /// loaded as whole numbers are those of the encoder's grid. Errors: a value that its field cannot
  /// hold (unless lossy), naming field, fragment and value.
  MemCore::Outcome<void> encode(const FragmentColumns& fragment, std::size_t first,
                                std::span<const std::uint64_t> waveOffsets,
                                std::span<std::byte> records) const;

  /// Fields of which some value was rounded or cut so far.
  std::vector<std::string> lossyFields() const;

 private:
  /// A column of the piece, and what has to live until it is put into the records.
  struct Prepared;

  MemCore::Outcome<Prepared> preparePositions(const FragmentColumns& fragment, std::size_t first,
                                              std::size_t count) const;
  static Prepared prepareGridPoints(const FragmentColumns& fragment, std::size_t first,
                                    std::size_t count);
  MemCore::Outcome<Prepared> prepareField(std::size_t mapping, const FragmentColumns& fragment,
                                          std::size_t first, std::size_t count) const;
  void markMargin(const FragmentColumns& fragment, std::size_t first,
                  std::span<std::byte> records) const;

  const ExportSource& source_;
  const LasTarget& target_;
  CoordinateGrid grid_;
  bool isLossy_;
  std::size_t recordBytes_;
  std::vector<std::size_t> needed_;
  std::optional<PointField> marginFlag_;
  std::optional<PointField> waveOffset_;
  mutable std::atomic<bool> wasRounded_ = false;     ///< some position
  mutable std::vector<std::atomic<bool>> wasLossy_;  ///< by mapping
};

}  // namespace Formats
