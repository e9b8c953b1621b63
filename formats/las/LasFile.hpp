// SPDX-License-Identifier: Apache-2.0
//
// LasFile: a LAS or LAZ file opened for reading: its header, variable records, point layout, and
// its point records by range. Whether the file is compressed is visible in the cost alone: runs()
// tells which ranges are decoded as one, so that a caller can share the work among its own threads.
// Threads: every const member may be called by any number of threads at once. Nothing here starts a
// thread or keeps a file position; reads go by offset.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/las/LasHeader.hpp"
#include "formats/las/PointLayout.hpp"
#include "formats/las/VariableRecord.hpp"

namespace Formats {

class PointReader;

/// A range of points that is decoded as one.
struct PointRun {
  std::uint64_t firstPoint = 0;
  std::uint64_t pointCount = 0;
  std::uint64_t fileOffset = 0;  ///< Where its bytes begin in the file, and
  std::uint64_t fileBytes = 0;   ///< how many there are; they hold nothing but this run.
};

/// How point records are stored, and so what a range costs.
enum class PointStorage {
  Plain,      ///< Uncompressed: any range costs what it is long.
  Chunked,    ///< LAZ chunks: a range costs all chunks that it touches.
  Sequential  ///< One compressed stream: ascending ranges are cheap, a step back starts over.
};

/// A LAS or LAZ file, open for reading as long as the object lives.
class LasFile {
 public:
  /// Opens a regular file (never waits on a FIFO or device) and reads all but the points.
  /// Errors: texts that begin with the path: not a regular file, not LAS, cut-off header, records
  /// or points that lie past the end of the file, unreadable compression.
  static MemCore::Outcome<std::shared_ptr<LasFile>> open(const std::string& path);

  ~LasFile();
  LasFile(const LasFile&) = delete;
  LasFile& operator=(const LasFile&) = delete;

  const std::string& path() const { return file_->path(); }
  const LasHeader& header() const { return header_; }
  const PointLayout& layout() const { return *layout_; }
  std::uint64_t pointCount() const { return header_.pointCount; }
  std::size_t recordBytes() const { return header_.recordBytes; }
  const std::vector<VariableRecord>& vlrs() const { return vlrs_; }
  const std::vector<VariableRecord>& evlrs() const { return evlrs_; }

  bool isCompressed() const { return header_.isCompressed; }
  PointStorage storage() const;

  /// The decodable units in point order, without gaps: the chunks of a LAZ file, one run for a
  /// plain file or a sequential stream, none for a file without points.
  const std::vector<PointRun>& runs() const;

  /// Fills `out` with the records `first` to `first + count` (half-open), uncompressed.
  /// Requires: out.size() == count * recordBytes(). Errors: range past the end, read failures,
  /// damaged compressed data; `out` is then partly filled.
  MemCore::Outcome<void> readRecords(std::uint64_t first, std::uint64_t count,
                                     std::span<std::byte> out) const;

  /// Compressed chunks decoded so far, repetitions included (a measure for benchmarks).
  std::uint64_t decodedChunks() const;

  /// One line for each oddity that was put up with (counts that differ, odd descriptors, ...).
  const std::vector<std::string>& notes() const { return notes_; }

  /// The file itself, for readers of what lies beside the points.
  const std::shared_ptr<const InputFile>& file() const { return file_; }

 private:
  LasFile() = default;
  MemCore::Outcome<void> readFront();
  MemCore::Outcome<void> readRecordsAround();
  MemCore::Outcome<void> openPoints();

  std::shared_ptr<const InputFile> file_;
  LasHeader header_;
  std::optional<PointLayout> layout_;
  std::vector<VariableRecord> vlrs_;
  std::vector<VariableRecord> evlrs_;
  std::vector<std::string> notes_;
  std::unique_ptr<PointReader> points_;
};

}  // namespace Formats
