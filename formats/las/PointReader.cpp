// SPDX-License-Identifier: Apache-2.0

#include "formats/las/PointReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

class PlainPoints : public PointReader {
 public:
  PlainPoints(std::shared_ptr<const InputFile> file, const LasHeader& header)
      : file_(std::move(file)), offset_(header.pointDataOffset), recordBytes_(header.recordBytes) {
    if (header.pointCount == 0) return;
    runs_.push_back({0, header.pointCount, offset_, header.pointCount * recordBytes_});
  }

  PointStorage storage() const override { return PointStorage::Plain; }
  const std::vector<PointRun>& runs() const override { return runs_; }

  Outcome<void> read(std::uint64_t first, std::span<std::byte> out) const override {
    return file_->read(offset_ + first * recordBytes_, out);
  }

  std::uint64_t decodedChunks() const override { return 0; }

 private:
  std::shared_ptr<const InputFile> file_;
  std::uint64_t offset_;
  std::uint64_t recordBytes_;
  std::vector<PointRun> runs_;
};

}  // namespace

Outcome<std::unique_ptr<PointReader>> openPlainPoints(std::shared_ptr<const InputFile> file,
                                                      const LasHeader& header) {
  const std::uint64_t available =
      file->sizeBytes() - std::min<std::uint64_t>(file->sizeBytes(), header.pointDataOffset);
  const std::uint64_t wholeRecords = available / header.recordBytes;
  if (wholeRecords < header.pointCount) {
    return Failure{
        fmt::format("{}: points cut off, found {} whole records of {} bytes, expected {}",
                    file->path(), wholeRecords, header.recordBytes, header.pointCount)};
  }
  return std::unique_ptr<PointReader>(std::make_unique<PlainPoints>(std::move(file), header));
}

}  // namespace Formats
