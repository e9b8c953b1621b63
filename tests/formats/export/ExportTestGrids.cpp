// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/export/ExportTestGrids.hpp"

namespace Formats {

using MemCore::Outcome;

ExportSource sourceOf(const Fiber::Grid& grid) {
  auto source = exportSource(grid);
  EXPECT_TRUE(source.ok()) << source.error();
  return source ? std::move(*source) : ExportSource();
}

ExportSource sourceOf(LidarLib::TestSupport::CloudBuilder& cloud) {
  return sourceOf(*cloud.currentGrid());
}

SourceFile sourceFile(const std::string& name, const LasWriterOptions& options) {
  return {name, options.header, options.vlrs, options.evlrs};
}

Outcome<PointFileResult> exportSourceTo(const std::string& path, const ExportSource& source,
                                        const ExportWishes& wishes) {
  const auto target = lasTargetOf(source, wishes.las);
  if (!target) return target.failure();
  const auto grid = settleScaling(source, wishes.las);
  if (!grid) return grid.failure();
  LasExportJob job;
  job.path = path;
  job.source = &source;
  job.fragments = source.fragments;
  job.target = &*target;
  job.grid = *grid;
  job.isLossy = wishes.las.isLossy;
  job.choose = wishes.choose;
  job.choosesBy = wishes.choosesBy;
  job.restoresOrder = wishes.restoresOrder;
  job.skipsEmpty = wishes.skipsEmpty;
  job.listener = wishes.listener;
  return exportLas(job);
}

std::shared_ptr<LasFile> exported(const std::string& path, const ExportSource& source,
                                  const ExportWishes& wishes) {
  const auto result = exportSourceTo(path, source, wishes);
  EXPECT_TRUE(result.ok()) << result.error();
  if (!result) return nullptr;
  auto opened = LasFile::open(path);
  EXPECT_TRUE(opened.ok()) << opened.error();
  return opened ? *opened : nullptr;
}

PointChooser onlyRows(const std::vector<std::uint32_t>& rows) {
  return [rows](const FragmentColumns&) {
    PointChoice choice;
    choice.takesAll = false;
    choice.rows = rows;
    return choice;
  };
}

}  // namespace Formats
