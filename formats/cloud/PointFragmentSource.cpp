// SPDX-License-Identifier: Apache-2.0

#include "formats/cloud/PointFragmentSource.hpp"

#include <new>

#include "formats/cloud/RecordPart.hpp"

namespace Formats {

using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

StrongPtr<PointFragmentSource> PointFragmentSource::make(
    std::shared_ptr<const PointColumns> columns, const std::shared_ptr<RecordSource>& records) {
  auto made = makeStrong<PointFragmentSource>(std::move(columns), records);
  records->setObserver(
      [weak = MemCore::WeakPtr<PointFragmentSource>(made)](std::span<const std::byte> decoded) {
        if (const auto source = weak.lock()) source->surveyDecoded(decoded);
      });
  return made;
}

Outcome<Fiber::GridPointsHandle> PointFragmentSource::gridPoints() {
  if (!decodedIfPresent()) form_ = PositionForm::GridPoints;
  const Outcome<DecodedHandle> fragment = decoded();
  if (!fragment) return fragment.failure();
  return (*fragment)->gridPoints();
}

Outcome<StrongPtr<Fiber::MemBase>> PointFragmentSource::column(std::size_t number) {
  const Outcome<DecodedHandle> fragment = decoded();
  if (!fragment) return fragment.failure();
  if (const auto& column = (*fragment)->column(number)) return column;
  // Who asks for points will do so again: they take the place of the whole numbers.
  std::vector<StrongPtr<Fiber::MemBase>> columns = (*fragment)->columns();
  columns[kPositionColumn] = Fiber::pointsOf(*(*fragment)->gridPoints());
  const auto withPoints = makeStrong<DecodedFragment>(std::move(columns));
  adopt(withPoints);
  return withPoints->column(number);
}

Outcome<const PointSurvey*> PointFragmentSource::survey() {
  if (const PointSurvey* known = knownSurvey()) return known;
  Outcome<RecordView> records = openRecords();
  if (!records) return records.failure();
  if (const PointSurvey* known = knownSurvey()) return known;
  Outcome<PointSurvey> made = surveyPoints(*columns_, *records);
  if (!made) return made.failure();
  return keepSurvey(std::move(*made));
}

Outcome<DecodedHandle> PointFragmentSource::decode() {
  const PositionForm form = form_.exchange(PositionForm::Points);
  Outcome<RecordView> records = records_->open(Keep::No);
  if (!records) return records.failure();
  PointSurveyor surveyor(*columns_);
  const bool isSurveyed = knownSurvey() != nullptr;
  Outcome<DecodedHandle> made =
      decodePoints(*columns_, *records, form, isSurveyed ? nullptr : &surveyor);
  if (!made) return made;
  if (!isSurveyed) keepSurvey(surveyor.finish());
  // Who asks for whole columns will do so again.
  records_->release();
  return made;
}

void PointFragmentSource::surveyDecoded(std::span<const std::byte> records) {
  if (knownSurvey() != nullptr) return;
  PointSurveyor surveyor(*columns_);
  surveyor.add(records);
  keepSurvey(surveyor.finish());
}

const PointSurvey* PointFragmentSource::keepSurvey(PointSurvey survey) {
  const std::lock_guard lock(surveyMutex_);
  if (survey_) return &*survey_;
  survey_ = std::move(survey);
  if (const auto positions = positions_.lock()) positions->rememberBox(survey_->box);
  return &*survey_;
}

const PointSurvey* PointFragmentSource::knownSurvey() const {
  const std::lock_guard lock(surveyMutex_);
  return survey_ ? &*survey_ : nullptr;
}

PointColumnCreator::PointColumnCreator(Fiber::ArrayFacts facts,
                                       StrongPtr<PointFragmentSource> source, std::size_t column)
    : ColumnCreator(std::move(facts), source, column),
      points_(std::move(source)),
      column_(column) {}

StrongPtr<Eagle::BoundingBox> PointColumnCreator::surveyBox() {
  if (column_ != kPositionColumn) return nullptr;
  try {
    const Outcome<const PointSurvey*> survey = points_->survey();
    if (survey) return (*survey)->box;
    rememberFailure(survey.error());
  } catch (const std::bad_alloc&) {
    rememberFailure("point data: not enough memory to hold them");
  }
  return nullptr;
}

StrongPtr<Fiber::PointPartReader> PointColumnCreator::partReader() {
  if (column_ != kPositionColumn || points_->decodedIfPresent()) return nullptr;
  return makeStrong<RecordPartReader>(points_);
}

Outcome<StrongPtr<Fiber::MemBase>> PointColumnCreator::create() { return points_->column(column_); }

Fiber::GridPointsHandle PointColumnCreator::createGridPoints(const Fiber::CoordinateGrid& grid) {
  const bool isOwn = column_ == kPositionColumn && isSameGrid(grid, gridOf(points_->columns()));
  if (!isOwn) return nullptr;
  const auto made = points_->gridPoints();
  return made ? *made : nullptr;
}

bool PointColumnCreator::copyPart(const Fiber::PointPart& part, std::span<std::byte> out) {
  const auto* records = dynamic_cast<const RecordPart*>(&part);
  if (records == nullptr || &records->source() != points_.get()) return false;
  extractColumn(points_->columns(), column_, records->records(), out);
  return true;
}

}  // namespace Formats
