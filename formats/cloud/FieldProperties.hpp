// SPDX-License-Identifier: Apache-2.0
//
// FieldProperties: what the descriptor of extra bytes says about a field, kept in the field's
// property map so that it reaches tiles and bundle files:
//   "Description"          text
//   "ExtraBytesName"       text, the attribute's own name (that of an array is its fields' stem)
//   "ExtraBytesComponent"  uint64, which component of an array the field is
//   "Scale", "Offset"      double; value = stored * scale + offset
//   "NoData"               double, int64 or uint64, in stored units
// Each number is a chunk of one element; what the descriptor leaves open is absent.

#pragma once

#include "datamodel/memcore/Attributes.hpp"
#include "formats/las/PointLayout.hpp"

namespace Formats {

/// The properties of a field; none for a field without a descriptor.
MemCore::Attributes describeField(const PointField& field);

/// The scale and offset of a field's values: 1 and 0 where nothing usable is said (a scale must be
/// finite and not 0, an offset finite).
struct FieldScaling {
  double scale = 1.0;
  double offset = 0.0;
  friend bool operator==(const FieldScaling&, const FieldScaling&) = default;
};
FieldScaling scalingOf(const PointField& field);

/// Takes out what is said in stored units, for values that were turned into what they stand for.
void forgetStoredUnits(MemCore::Attributes& properties);

}  // namespace Formats
