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

/// One column of one fragment, to be loaded by any thread.
struct LoadTask {
  const Fiber::Field* field = nullptr;
  std::string name;
  const ExportFragment* fragment = nullptr;
  MemCore::StrongPtr<Fiber::MemBase>* into = nullptr;
  const ExportField* described = nullptr;  ///< may be absent then, and has this type
};

/// Whether data are what the field's first fragment says of all. Where two fragments differ, bytes
/// of one would be taken for numbers of the other.
bool isAsDescribed(const Fiber::MemBase& data, const ExportField& field,
                   const ExportFragment& fragment) {
  const auto type = data.type();
  return type && elementTypeOf(type->scalar()) == field.type &&
         data.byteCount() == fragment.pointCount * elementBytes(field.type) * field.components;
}

Outcome<void> load(const LoadTask& task) {
  if (task.described != nullptr && !task.field->getCreator(task.fragment->id)) return {};
  auto column = columnOf(*task.field, task.name, *task.fragment);
  if (!column) return column.failure();
  if (task.described != nullptr && !isAsDescribed(**column, *task.described, *task.fragment)) {
    return Failure{fmt::format("field {}: fragment {}: another type than in other fragments",
                               task.name, task.fragment->id->name())};
  }
  *task.into = std::move(*column);
  return {};
}

void addTasks(const ExportSource& source, const ColumnNeeds& needs, FragmentColumns& columns,
              std::vector<LoadTask>& tasks) {
  const ExportFragment* fragment = columns.fragment;
  columns.fields.resize(source.fields.size());
  // Each once: two threads must not fill the same column.
  for (const std::size_t number : std::set(needs.fields.begin(), needs.fields.end())) {
    const ExportField& field = source.fields[number];
    tasks.push_back({field.field.get(), field.name, fragment, &columns.fields[number], &field});
  }
  if (needs.samples) {
    tasks.push_back({source.samples.get(), "Waveforms", fragment, &columns.samples, nullptr});
  }
  if (needs.lengths) {
    tasks.push_back({source.lengths.get(), "FWFLength", fragment, &columns.lengths, nullptr});
  }
}

Outcome<void> loadPositions(const ExportSource& source, FragmentColumns& columns) {
  const auto data = columnOf(*source.positions, "Positions", *columns.fragment);
  if (!data) return data.failure();
  columns.positions = MemCore::handleCast<PositionArray>(*data);
  if (!columns.positions) {
    return Failure{fmt::format("field Positions: fragment {}: no points in space",
                               columns.fragment->id->name())};
  }
  return {};
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

Outcome<std::vector<FragmentColumns>> loadFragments(const ExportSource& source,
                                                    std::span<const ExportFragment> fragments,
                                                    const ColumnNeeds& needs,
                                                    const PointChooser& choose) {
  std::vector<FragmentColumns> loaded(fragments.size());
  std::vector<LoadTask> tasks;
  for (std::size_t i = 0; i < fragments.size(); ++i) {
    loaded[i].fragment = &fragments[i];
    addTasks(source, needs, loaded[i], tasks);
  }
  std::uint64_t points = 0;
  for (const ExportFragment& fragment : fragments) points += fragment.pointCount;
  const std::uint64_t workBytes = points * sizeof(Eagle::PhysicalSpace::point);
  // In one loop, the large positions first, so that no thread waits for the last of them.
  const std::size_t count = loaded.size();
  const auto columns = parallelTexts(count + tasks.size(), workBytes, [&](std::size_t i) {
    return i < count ? loadPositions(source, loaded[i]) : load(tasks[i - count]);
  });
  if (!columns) return columns.failure();
  const auto chosen = parallelTexts(loaded.size(), workBytes, [&](std::size_t i) {
    loaded[i].choice = choose(loaded[i]);
    return Outcome<void>();
  });
  if (!chosen) return chosen.failure();
  return loaded;
}

ChosenElements::ChosenElements(const Fiber::MemBase& column, const FragmentColumns& fragment,
                               std::size_t first, std::size_t count) {
  const std::span<const std::byte> all(column.elements()->bytes(), column.elements()->byteCount());
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
