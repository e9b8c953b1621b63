// SPDX-License-Identifier: Apache-2.0
//
// The group of one representation in a file being written: its datasets, which take finished
// batches, and at the end their attributes and the fragment table. Library calls are made under
// the library's lock; rows of raw storage are written beside it.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/container/ContentHash.hpp"
#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/container/RepresentationEncoder.hpp"

namespace Fiber::Container {

/// A file being written: the library's handle, and a descriptor of the same file.
struct OutputFile {
  FileHandle file;
  int descriptor = -1;
  std::string name;  ///< for messages
  ContentHash contents;
};

class RepresentationWriter {
 public:
  /// Requires: output, plan and encoder outlive the writer.
  RepresentationWriter(OutputFile& output, const PlannedRepresentation& plan,
                       const RepresentationEncoder& encoder)
      : output_(output), plan_(plan), encoder_(encoder) {}

  /// Makes the group and its datasets. Requires: the encoder has made its first batch, if any.
  MemCore::Outcome<void> begin();
  MemCore::Outcome<void> write(const EncodedBatch& batch);
  /// Writes attributes and table, and closes everything.
  MemCore::Outcome<void> finish(const TableContents& table);

 private:
  struct Target {
    DatasetHandle dataset;
    std::uint64_t address = 0;  ///< of the rows, in raw storage
  };

  MemCore::Outcome<void> makeDataset(std::size_t field);
  MemCore::Outcome<void> writeChunks(const EncodedBatch& batch);
  MemCore::Outcome<void> writeRows(const BatchRows& rows);
  MemCore::Outcome<void> writeNarrowRows(const BatchRows& rows, std::uint64_t offset);
  MemCore::Outcome<void> finishField(std::size_t field);
  MemCore::Failure within(std::size_t field, const std::string& text) const;

  OutputFile& output_;
  const PlannedRepresentation& plan_;
  const RepresentationEncoder& encoder_;
  GroupHandle group_;
  std::vector<Target> targets_;  ///< by field
};

}  // namespace Fiber::Container
