// SPDX-License-Identifier: Apache-2.0
//
// The group of one representation in a file being written: its datasets, which take finished
// batches, and at the end their attributes and the fragment table.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/OutputFile.hpp"
#include "datamodel/container/RepresentationEncoder.hpp"

namespace Fiber::Container {

class RepresentationWriter {
 public:
  /// Requires: output, plan and encoder outlive the writer.
  RepresentationWriter(OutputFile& output, const PlannedRepresentation& plan,
                       const RepresentationEncoder& encoder)
      : output_(output), plan_(plan), encoder_(encoder) {}

  /// Makes the group and its datasets. Requires: the encoder has made its first batch, if any.
  void begin();
  /// Takes the next batch: rows are written, chunks wait for appendChunks. Errors: see OutputFile.
  MemCore::Outcome<void> write(EncodedBatch batch);
  /// Writes the chunks that wait, if any. Errors: see OutputFile.
  MemCore::Outcome<void> appendChunks();
  /// Writes what waits, adds attributes and table.
  MemCore::Outcome<void> finish(const TableToWrite& table);

 private:
  void makeDataset(std::size_t field);
  MemCore::Outcome<void> writeRows(const BatchRows& rows);
  MemCore::Outcome<void> writeNarrowRows(const BatchRows& rows, std::uint64_t address);
  MemCore::Outcome<void> finishField(std::size_t field);
  MemCore::Failure within(std::size_t field, const std::string& text) const;

  OutputFile& output_;
  const PlannedRepresentation& plan_;
  const RepresentationEncoder& encoder_;
  ObjectGroup* group_ = nullptr;          ///< in the tree of the output
  std::vector<ObjectDataset*> datasets_;  ///< by field, in the group
  std::vector<BatchChunk> waiting_;       ///< in the order in which they go into the file
};

}  // namespace Fiber::Container
