// SPDX-License-Identifier: Apache-2.0
//
// RecordPart: some points of a fragment as their records, one behind the other, and the reader that
// gathers them. What lies between the points is read along only where they are close together.

#pragma once

#include <optional>
#include <vector>

#include "datamodel/fiber/PointPart.hpp"
#include "formats/cloud/PointFragmentSource.hpp"

namespace Formats {

class RecordPart final : public Fiber::PointPart {
 public:
  RecordPart(MemCore::StrongPtr<PointFragmentSource> source, std::span<const unsigned int> points,
             MemCore::StrongPtr<MemCore::Chunk<std::byte>> records)
      : PointPart(points), source_(std::move(source)), records_(std::move(records)) {}

  const PointFragmentSource& source() const { return *source_; }
  std::span<const std::byte> records() const { return std::as_const(*records_).span(); }

 private:
  MemCore::StrongPtr<PointFragmentSource> source_;
  MemCore::StrongPtr<MemCore::Chunk<std::byte>> records_;
};

/// Opens the records when they are needed first, and holds them from there on. Keeps the records
/// that it has read for their positions, so many that they stay in the second-level cache: whoever
/// has looked at them gathers some of them next.
class RecordPartReader final : public Fiber::PointPartReader {
 public:
  explicit RecordPartReader(MemCore::StrongPtr<PointFragmentSource> source)
      : source_(std::move(source)) {}

  std::uint64_t pointCount() const override { return source_->range().pointCount; }
  std::uint64_t bytesPerPoint() const override { return source_->columns().file->recordBytes(); }
  MemCore::Outcome<std::span<const Fiber::PointBox>> blockBoxes() override;
  MemCore::Outcome<void> readPositions(std::uint64_t first,
                                       std::span<Eagle::PhysicalSpace::point> out) override;
  MemCore::Outcome<MemCore::StrongPtr<Fiber::PointPart>> gather(
      std::span<const unsigned int> points) override;

 private:
  struct KeptRun {
    PointRange range;
    MemCore::StrongPtr<MemCore::Chunk<std::byte>> records;
  };

  MemCore::Outcome<RecordView*> records();
  MemCore::Outcome<std::span<const std::byte>> readForPositions(RecordView& view,
                                                                const PointRange& range);

  MemCore::StrongPtr<PointFragmentSource> source_;
  std::optional<RecordView> records_;
  std::vector<KeptRun> kept_;  ///< ascending, none touches another one
  std::uint64_t keptBytes_ = 0;
};

}  // namespace Formats
