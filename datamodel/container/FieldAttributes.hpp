// SPDX-License-Identifier: Apache-2.0
//
// The attributes of a field's dataset that describe the field as a whole; the writing side of
// FieldScan. Requires Hdf5Lock to be held.

#pragma once

#include <optional>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/CoordinateGrid.hpp"
#include "datamodel/container/Hdf5Handle.hpp"

namespace Fiber::Container {

/// Writes everything that is not usual: a plain field of numbers needs no attribute at all.
/// `storedKind` is the kind of number in the dataset, `grid` that of coordinates stored on one.
/// Errors: "attribute <name>: ...".
MemCore::Outcome<void> writeFieldAttributes(hid_t dataset, const StoredField& field,
                                            std::optional<ScalarKind> storedKind,
                                            const std::optional<CoordinateGrid>& grid);

/// Writes a table of the data model's attributes, and the number kept beside it when it is not 0.
/// `suffix` is put behind every stored name ("#1" for the first set of creators).
MemCore::Outcome<void> writeAttributeTable(hid_t object, const MemCore::Attributes& attributes,
                                           std::span<const std::string_view> words,
                                           const std::string& suffix = "");
MemCore::Outcome<void> writePropertyBits(hid_t object, std::uint64_t bits);

}  // namespace Fiber::Container
