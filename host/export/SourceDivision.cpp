// SPDX-License-Identifier: Apache-2.0

#include "host/export/SourceDivision.hpp"

#include <fmt/format.h>

#include <map>

#include "formats/export/LasTarget.hpp"
#include "formats/export/OriginalOrder.hpp"

namespace Host {

using Formats::ExportField;
using Formats::ExportFragment;
using Formats::ExportSource;
using Formats::FragmentColumns;
using Formats::PointChoice;
using Formats::PointChooser;

namespace {

/// Numbers of the files that a fragment may have points of: first and last.
struct FileSpan {
  std::uint32_t first = 0;
  std::uint32_t last = 0;
};

/// Errors: a fragment that does not tell, or that tells a file beyond those that are known.
Result<FileSpan> filesOf(const ExportField& field, const ExportFragment& fragment,
                         std::size_t fileCount) {
  const auto creator = field.field->getCreator(fragment.id);
  const auto range = creator ? Fiber::rangeOf(*creator) : std::nullopt;
  if (!range) {
    return failedStop(
        fmt::format("fragment {}: does not tell where its points come from", fragment.id->name()));
  }
  if (!(range->min >= 0.0) || !(range->max < static_cast<double>(fileCount))) {
    return failedStop(fmt::format("fragment {}: names files {} to {}, but its grid knows only {}",
                                  fragment.id->name(), range->min, range->max, fileCount));
  }
  return FileSpan{static_cast<std::uint32_t>(range->min), static_cast<std::uint32_t>(range->max)};
}

/// The chosen points that came from one file.
PointChooser pointsOf(std::uint32_t file, std::size_t fileField, const PointChooser& choose) {
  return [=](const FragmentColumns& fragment) {
    const PointChoice all = choose(fragment);
    PointChoice choice;
    choice.takesAll = false;
    choice.isMargin = all.isMargin;
    const auto files = MemCore::chunkCast<std::uint32_t>(fragment.fields[fileField]->elements());
    const std::uint64_t count = all.countOf(*fragment.fragment);
    for (std::size_t n = 0; n < count; ++n) {
      const std::uint32_t row = all.takesAll ? static_cast<std::uint32_t>(n) : all.rows[n];
      if ((*files)[row] == file) choice.rows.push_back(row);
    }
    return choice;
  };
}

/// The grid as if it had come from this file alone.
Result<SourcePart> partOf(const ExportSource& source, std::uint32_t number,
                          std::vector<ExportFragment> fragments, const PointChooser& choose) {
  const Formats::SourceFile& file = source.files[number];
  const auto layout =
      Formats::PointLayout::make(file.header.pointFormat, file.header.recordBytes, file.vlrs);
  if (!layout.ok()) return failedStop(file.name + ": " + layout.error());
  auto own = std::make_shared<ExportSource>();
  own->gridName = source.gridName;
  own->positions = source.positions;
  own->samples = Formats::formatHasWaveforms(file.header.pointFormat) ? source.samples : nullptr;
  own->lengths = own->samples ? source.lengths : nullptr;
  own->files = {file};
  own->fragments = std::move(fragments);
  for (const ExportField& field : source.fields) {
    const bool isOwn = layout->find(field.name) != nullptr || Formats::isOrderField(field.name);
    if (isOwn) own->fields.push_back(field);
  }
  const std::size_t fileField = own->numberOf(Formats::kSourceFileField).value_or(0);
  return SourcePart{own, pointsOf(number, fileField, choose), {fileField}};
}

}  // namespace

Result<std::vector<SourcePart>> divideBySource(const ExportSource& source,
                                               const PointChooser& choose) {
  if (!Formats::OriginalOrder::isKnown(source)) {
    return failedStop(fmt::format(
        "grid {}: its points do not tell their files; import or split with --keep-order",
        source.gridName));
  }
  const ExportField& field = *source.find(Formats::kSourceFileField);
  std::map<std::uint32_t, std::vector<ExportFragment>> fragments;
  for (const ExportFragment& fragment : source.fragments) {
    const auto files = filesOf(field, fragment, source.files.size());
    if (!files.ok()) return files.stop();
    for (std::uint32_t file = files->first; file <= files->last; ++file) {
      fragments[file].push_back(fragment);
    }
  }
  std::vector<SourcePart> parts;
  for (auto& [number, own] : fragments) {
    auto part = partOf(source, number, std::move(own), choose);
    if (!part.ok()) return part.stop();
    parts.push_back(std::move(*part));
  }
  return parts;
}

}  // namespace Host
