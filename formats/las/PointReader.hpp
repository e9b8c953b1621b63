// SPDX-License-Identifier: Apache-2.0
//
// PointReader: the point records of a file, whichever way they are stored. One implementation per
// way: plain records (here), LAZ chunks and the sequential LAZ stream (formats/laz/). Threads:
// const members may be called by any number of threads at once.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/las/LasFile.hpp"

namespace Formats {

/// Reads ranges of records. Texts begin with the file's path.
class PointReader {
 public:
  virtual ~PointReader() = default;

  virtual PointStorage storage() const = 0;
  virtual const std::vector<PointRun>& runs() const = 0;

  /// Fills `out` from record `first` on. Requires: whole records, all of them in the file.
  virtual MemCore::Outcome<void> read(std::uint64_t first, std::span<std::byte> out) const = 0;

  /// Compressed chunks decoded so far.
  virtual std::uint64_t decodedChunks() const = 0;
};

/// Opens the records of an uncompressed file. Errors: records that reach past its end.
MemCore::Outcome<std::unique_ptr<PointReader>> openPlainPoints(
    std::shared_ptr<const InputFile> file, const LasHeader& header);

}  // namespace Formats
