// SPDX-License-Identifier: Apache-2.0
//
// The fragment table in the file: one dataset of compound rows. Small tables lie within the
// object's header; large ones in one piece, guarded by a CRC-32. Requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <functional>
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

/// A table that is made while it is written, so that no more than a few pieces of it are in memory.
struct TableToWrite {
  TableShape shape;
  std::size_t rowCount = 0;
  /// Fills rows `begin` to `end` (half-open) of the table, which lie in `piece`; its first row is
  /// row `pieceBegin` of the table. Called once for every row, by several threads.
  std::function<void(FragmentTable& piece, std::size_t pieceBegin, std::size_t begin,
                     std::size_t end)>
      fill;
  std::vector<std::string> fieldNames;
  std::vector<std::string> sourceGroups;
};

/// CRC-32 of all rows.
std::uint32_t checksumOf(const FragmentTable& table);

/// The type of a table's rows.
ObjectType tableRowType(const FragmentTable& table);

/// Writes the table as the dataset "fragments" of a group. Returns its checksum.
/// Errors: "<file>: ...".
MemCore::Outcome<std::uint32_t> writeFragmentTable(OutputFile& output, ObjectGroup& group,
                                                   const TableToWrite& table);

/// Reads it back. `wideFields` is the number of fields of rank above 1. Errors: "fragments: ..."
/// when columns are missing or of other types, the table claims more than the file holds, or its
/// checksum differs.
MemCore::Outcome<TableContents> readFragmentTable(const ObjectFile& file, const ObjectGroup& group,
                                                  std::size_t wideFields);

}  // namespace Fiber::Container
