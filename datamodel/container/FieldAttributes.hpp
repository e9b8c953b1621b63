// SPDX-License-Identifier: Apache-2.0
//
// The attributes of a field's dataset that describe the field as a whole; the writing side of
// FieldScan. Requires Hdf5Lock to be held.

#pragma once

#include <optional>
#include <string>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/Hdf5Handle.hpp"

namespace Fiber::Container {

/// A field's dataset and where it lies.
struct FieldDataset {
  hid_t dataset = -1;
  hid_t group = -1;  ///< of the representation
  std::string name;  ///< stored name
};

/// Where the attributes of a field are stored.
AttributePlace attributePlace(const FieldDataset& target);

/// Writes everything that is not usual: a plain field of numbers needs no attribute at all.
/// `storedKind` is the kind of number in the dataset, `grid` that of coordinates stored on one.
/// Errors: "attribute <name>: ...".
MemCore::Outcome<void> writeFieldAttributes(const FieldDataset& target, const StoredField& field,
                                            std::optional<ScalarKind> storedKind,
                                            const std::optional<CoordinateGrid>& grid);

}  // namespace Fiber::Container
