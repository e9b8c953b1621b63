// SPDX-License-Identifier: Apache-2.0
//
// Judging a fragment table read from a file: a row may claim anything, and everything behind it
// (arrays to allocate, rows to fetch, fragments to make) relies on these claims.

#pragma once

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Checks every row against the datasets, and names and numbers against each other.
/// Errors: "fragments: row <r>: ...".
MemCore::Outcome<void> checkTable(const StoredRepresentation& stored);

/// Where one field's part of a fragment lies and what it is; rows of the field's dataset.
struct FieldPart {
  bool present = false;
  std::uint64_t start = 0;
  std::uint64_t rows = 0;
  DynamicSize size;  ///< extents of the array
};

/// The part of field `field` (by its place among the fields) in row `row`.
FieldPart fieldPart(const StoredRepresentation& stored, std::size_t row, std::size_t field);

}  // namespace Fiber::Container
