// SPDX-License-Identifier: Apache-2.0
//
// SourceOrder: the two fields that tell where a point came from, so that a cloud that was cut or
// filtered can be put back into the order of its files:
//   "SourceFile"   uint32, number of the file in the order of the grid's attribute "LasFileNames"
//   "SourceIndex"  uint64, number of the point in that file
// Both count from 0. A fragment is a run of points of one file, so its values are a constant and a
// row of consecutive numbers, which need no file to be read.

#pragma once

#include <cstdint>
#include <utility>

#include "datamodel/fiber/CreativeArrayBase.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/FragmentRanges.hpp"

namespace Formats {

/// Reserved names: extra bytes of the same name get another (see PointLayout).
inline constexpr const char* kSourceFileField = "SourceFile";
inline constexpr const char* kSourceIndexField = "SourceIndex";

/// The creators of one fragment's fields, which know extents and value ranges without data.
struct SourceOrderCreators {
  MemCore::StrongPtr<Fiber::CreativeArrayBase> file;
  MemCore::StrongPtr<Fiber::CreativeArrayBase> index;
};
/// Requires: a range with points.
SourceOrderCreators makeSourceOrder(std::uint32_t fileNumber, const PointRange& range);

}  // namespace Formats
