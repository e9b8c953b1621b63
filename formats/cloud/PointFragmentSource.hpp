// SPDX-License-Identifier: Apache-2.0
//
// PointFragmentSource: what one fragment of a LAS or LAZ file can tell: where its points lie (the
// survey), any of its points (a part), all of its columns (the decoded fragment).
// PointColumnCreator is the creator of one of its columns, positions included.

#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>

#include "formats/cloud/DecodedFragment.hpp"
#include "formats/cloud/PointDecoding.hpp"
#include "formats/cloud/RecordSource.hpp"

namespace Formats {

/// Threads: as its base; setPositions before any other thread knows the source.
class PointFragmentSource final : public DecodedFragmentSource {
 public:
  /// Tells `records` to show what is decoded.
  static MemCore::StrongPtr<PointFragmentSource> make(std::shared_ptr<const PointColumns> columns,
                                                      const std::shared_ptr<RecordSource>& records);
  PointFragmentSource(std::shared_ptr<const PointColumns> columns,
                      std::shared_ptr<RecordSource> records)
      : columns_(std::move(columns)), records_(std::move(records)) {}

  const PointRange& range() const { return records_->range(); }
  const PointColumns& columns() const { return *columns_; }
  /// Who is told the box of the positions.
  void setPositions(const MemCore::WeakPtr<Fiber::CreativeArrayBase>& creator) {
    positions_ = creator;
  }

  /// The positions as whole numbers of the file's own grid; empty when they are in memory as
  /// points. Whatever else of the fragment is asked for right after comes out of the same decoding.
  /// Errors: unreadable records. May throw std::bad_alloc.
  MemCore::Outcome<Fiber::GridPointsHandle> gridPoints();
  /// A column of the fragment by its place, see PointDecoding.hpp. Positions that are in memory as
  /// whole numbers become points, for later callers, too. Errors: unreadable records. May throw
  /// std::bad_alloc.
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> column(std::size_t number);
  /// Where the points lie: known, or found now; it lives as long as the source.
  /// Errors: unreadable records.
  MemCore::Outcome<const PointSurvey*> survey();
  /// The records, for some of the points. Errors: unreadable records.
  MemCore::Outcome<RecordView> openRecords() { return records_->open(Keep::Yes); }

 protected:
  MemCore::Outcome<DecodedHandle> decode() override;

 private:
  void surveyDecoded(std::span<const std::byte> records);
  const PointSurvey* keepSurvey(PointSurvey survey);
  const PointSurvey* knownSurvey() const;

  std::shared_ptr<const PointColumns> columns_;
  std::shared_ptr<RecordSource> records_;
  MemCore::WeakPtr<Fiber::CreativeArrayBase> positions_;
  mutable std::mutex surveyMutex_;                         ///< guards `survey_`
  std::optional<PointSurvey> survey_;                      ///< Invariant: unchanged once there
  std::atomic<PositionForm> form_ = PositionForm::Points;  ///< of the next decoding
};

/// The creator of one column of a fragment's points.
class PointColumnCreator final : public ColumnCreator {
 public:
  PointColumnCreator(Fiber::ArrayFacts facts, MemCore::StrongPtr<PointFragmentSource> source,
                     std::size_t column);

  MemCore::StrongPtr<Eagle::BoundingBox> surveyBox() override;
  MemCore::StrongPtr<Fiber::PointPartReader> partReader() override;
  bool copyPart(const Fiber::PointPart& part, std::span<std::byte> out) override;

 protected:
  MemCore::Outcome<MemCore::StrongPtr<Fiber::MemBase>> create() override;
  Fiber::GridPointsHandle createGridPoints(const Fiber::CoordinateGrid& grid) override;

 private:
  MemCore::StrongPtr<PointFragmentSource> points_;
  std::size_t column_;
};

}  // namespace Formats
