// SPDX-License-Identifier: Apache-2.0
//
// The attributes of a field's dataset that describe the field as a whole; the writing side of
// FieldScan.

#pragma once

#include <optional>
#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/OutputFile.hpp"

namespace Fiber::Container {

/// A field's dataset and where it lies.
struct FieldTarget {
  ObjectDataset& dataset;
  ObjectGroup& group;  ///< of the representation
  std::string name;    ///< stored name
};

/// The group of a field's large attributes, below that of the representation.
std::string largeGroupOf(const std::string& storedName);

/// Writes everything that is not usual: a plain field of numbers needs no attribute at all.
/// `storedKind` is the kind of number in the dataset, `grid` that of coordinates stored on one.
/// Errors: "attribute <name>: ...".
MemCore::Outcome<void> writeFieldAttributes(OutputFile& output, const FieldTarget& target,
                                            const StoredField& field,
                                            std::optional<ScalarKind> storedKind,
                                            const std::optional<CoordinateGrid>& grid);

}  // namespace Fiber::Container
