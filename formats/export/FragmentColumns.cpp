// SPDX-License-Identifier: Apache-2.0

#include "formats/export/FragmentColumns.hpp"

#include <fmt/format.h>

#include <cstring>
#include <set>

#include "datamodel/container/ParallelTexts.hpp"

namespace Formats {

using Fiber::Container::parallelTexts;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Whether data are what the field's first fragment says of all. Where two fragments differ, bytes
/// of one would be taken for numbers of the other.
bool isAsDescribed(const Fiber::MemBase& data, const ExportField& field,
                   const ExportFragment& fragment) {
  const auto type = data.type();
  return type && elementTypeOf(type->scalar()) == field.type &&
         data.byteCount() == fragment.pointCount * elementBytes(field.type) * field.components;
}

}  // namespace

PointChooser everyPoint() {
  return [](const FragmentColumns&) { return PointChoice(); };
}

std::size_t batchSize(std::span<const ExportFragment> fragments, std::uint64_t mostPoints) {
  std::uint64_t points = fragments.front().pointCount;
  std::size_t count = 1;
  while (count < fragments.size() && points + fragments[count].pointCount <= mostPoints) {
    points += fragments[count++].pointCount;
  }
  return count;
}

FragmentLoad::FragmentLoad(const ExportSource& source, std::span<const ExportFragment> fragments,
                           const ColumnNeeds& needs)
    : source_(&source), grid_(needs.grid), loaded_(fragments.size()) {
  for (std::size_t i = 0; i < fragments.size(); ++i) {
    loaded_[i].fragment = &fragments[i];
    addTasks(source, needs, i);
  }
}

void FragmentLoad::addTasks(const ExportSource& source, const ColumnNeeds& needs, std::size_t i) {
  FragmentColumns& columns = loaded_[i];
  columns.fields.resize(source.fields.size());
  // Each once: two threads must not fill the same column.
  for (const std::size_t number : std::set(needs.fields.begin(), needs.fields.end())) {
    const ExportField& field = source.fields[number];
    tasks_.push_back({field.field.get(), field.name, i, &columns.fields[number], &field});
  }
  if (needs.samples) {
    tasks_.push_back({source.samples.get(), "Waveforms", i, &columns.samples, nullptr});
  }
  if (needs.lengths) {
    tasks_.push_back({source.lengths.get(), "FWFLength", i, &columns.lengths, nullptr});
  }
}

/// The large positions come first, so that no thread waits for the last of them.
Outcome<void> FragmentLoad::run(std::size_t step) {
  if (step < loaded_.size()) return loadPositions(loaded_[step]);
  return load(tasks_[step - loaded_.size()]);
}

Outcome<void> FragmentLoad::loadPositions(FragmentColumns& columns) const {
  const ExportFragment& fragment = *columns.fragment;
  if (grid_) {
    const auto creator = source_->positions->getCreator(fragment.id);
    columns.gridPoints = creator ? creator->gridPoints(*grid_) : nullptr;
    if (columns.gridPoints && columns.gridPoints->count() == fragment.pointCount) return {};
    columns.gridPoints = nullptr;
  }
  const auto data = columnOf(*source_->positions, "Positions", fragment);
  if (!data) return data.failure();
  columns.positions = MemCore::handleCast<PositionArray>(*data);
  if (!columns.positions) {
    return Failure{
        fmt::format("field Positions: fragment {}: no points in space", fragment.id->name())};
  }
  return {};
}

Outcome<void> FragmentLoad::load(const Task& task) const {
  const ExportFragment& fragment = *loaded_[task.fragment].fragment;
  if (task.described != nullptr && !task.field->getCreator(fragment.id)) return {};
  auto column = columnOf(*task.field, task.name, fragment);
  if (!column) return column.failure();
  if (task.described != nullptr && !isAsDescribed(**column, *task.described, fragment)) {
    return Failure{fmt::format("field {}: fragment {}: another type than in other fragments",
                               task.name, fragment.id->name())};
  }
  *task.into = std::move(*column);
  return {};
}

std::uint64_t FragmentLoad::workBytes() const {
  std::uint64_t points = 0;
  for (const FragmentColumns& columns : loaded_) points += columns.fragment->pointCount;
  return points * sizeof(Eagle::PhysicalSpace::point);
}

Outcome<std::vector<FragmentColumns>> FragmentLoad::finish(const PointChooser& choose) {
  const auto chosen = parallelTexts(loaded_.size(), workBytes(), [&](std::size_t i) {
    loaded_[i].choice = choose(loaded_[i]);
    return Outcome<void>();
  });
  if (!chosen) return chosen.failure();
  return std::move(loaded_);
}

Outcome<std::vector<FragmentColumns>> loadFragments(const ExportSource& source,
                                                    std::span<const ExportFragment> fragments,
                                                    const ColumnNeeds& needs,
                                                    const PointChooser& choose) {
  FragmentLoad load(source, fragments, needs);
  const auto done = parallelTexts(load.stepCount(), load.workBytes(),
                                  [&](std::size_t step) { return load.run(step); });
  if (!done) return done.failure();
  return load.finish(choose);
}

ChosenElements::ChosenElements(std::span<const std::byte> all, const FragmentColumns& fragment,
                               std::size_t first, std::size_t count) {
  const std::size_t width = all.size() / fragment.fragment->pointCount;
  if (fragment.choice.takesAll) {
    bytes_ = all.subspan(first * width, count * width);
    return;
  }
  gathered_.resize(count * width);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(&gathered_[i * width], &all[fragment.choice.rows[first + i] * width], width);
  }
  bytes_ = gathered_;
}

std::size_t chosenRow(const FragmentColumns& fragment, std::size_t n) {
  return fragment.choice.takesAll ? n : fragment.choice.rows[n];
}

}  // namespace Formats
