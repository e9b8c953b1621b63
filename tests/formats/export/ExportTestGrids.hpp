// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the way back to LAS share: grids seen as sources, exports in one call, and
// chosen points.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/export/ExportSource.hpp"
#include "formats/export/LasExport.hpp"
#include "tests/formats/cloud/CloudTestFiles.hpp"
#include "tests/support/CloudBuilder.hpp"

namespace Formats {

/// A grid as a source; fails the test when it is none.
ExportSource sourceOf(const Fiber::Grid& grid);
ExportSource sourceOf(LidarLib::TestSupport::CloudBuilder& cloud);

/// What a file that is made up said of itself.
SourceFile sourceFile(const std::string& name, const LasWriterOptions& options);

/// How a source is to be exported.
struct ExportWishes {
  LasExportOptions las;
  bool restoresOrder = true;
  bool skipsEmpty = false;
  PointChooser choose = everyPoint();
  std::vector<std::size_t> choosesBy;
  ExportListener listener;
};

/// Target, scaling and file in one step.
MemCore::Outcome<PointFileResult> exportSourceTo(const std::string& path,
                                                 const ExportSource& source,
                                                 const ExportWishes& wishes = {});
/// The same; fails the test when it fails. Returns the file, read back.
std::shared_ptr<LasFile> exported(const std::string& path, const ExportSource& source,
                                  const ExportWishes& wishes = {});

/// A chooser that takes the same points of every fragment.
PointChooser onlyRows(const std::vector<std::uint32_t>& rows);

/// The values of a field of a file's records.
template <class T>
std::vector<T> fieldValues(const LasFile& file, const std::string& name) {
  const PointField* field = file.layout().find(name);
  EXPECT_NE(field, nullptr) << name;
  if (field == nullptr) return {};
  const std::vector<std::byte> column =
      plainColumn(readAllRecords(file), file.recordBytes(), *field);
  EXPECT_EQ(elementBytes(field->type), sizeof(T)) << name;
  std::vector<T> values(column.size() / sizeof(T));
  std::copy(column.begin(), column.end(), reinterpret_cast<std::byte*>(values.data()));
  return values;
}

}  // namespace Formats
