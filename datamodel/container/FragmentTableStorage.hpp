// SPDX-License-Identifier: Apache-2.0
//
// The fragment table in the file: one dataset of compound rows. Small tables lie within the
// object's header; large ones in one piece, guarded by a CRC-32. Requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/container/FragmentTable.hpp"
#include "datamodel/container/ObjectFile.hpp"
#include "datamodel/container/OutputFile.hpp"

namespace Fiber::Container {

/// A table and the lists that its columns refer to.
struct TableContents {
  FragmentTable table;
  std::vector<std::string> fieldNames;    ///< stored names, the order of per-field columns
  std::vector<std::string> sourceGroups;  ///< what column source_group counts
};

/// CRC-32 of all rows.
std::uint32_t checksumOf(const FragmentTable& table);

/// The type of a table's rows.
ObjectType tableRowType(const FragmentTable& table);

/// Writes the table as the dataset "fragments" of a group. Errors: "<file>: ...".
MemCore::Outcome<std::uint32_t> writeFragmentTable(OutputFile& output, ObjectGroup& group,
                                                   const TableContents& contents);

/// Reads it back. `wideFields` is the number of fields of rank above 1. Errors: "fragments: ..."
/// when columns are missing or of other types, the table claims more than the file holds, or its
/// checksum differs.
MemCore::Outcome<TableContents> readFragmentTable(const ObjectFile& file, const ObjectGroup& group,
                                                  std::size_t wideFields);

}  // namespace Fiber::Container
