// SPDX-License-Identifier: Apache-2.0
//
// SourceMerge: the headers and records of the files that a grid came from as those of one file.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/cloud/SourceFiles.hpp"

namespace Formats {

/// What the files say together.
struct MergedSource {
  LasHeader header;  ///< of the first file where they differ; identifiers only where all agree
  std::vector<VariableRecord> vlrs;  ///< descriptors of extra bytes: of the first file alone
  std::vector<VariableRecord> evlrs;
  std::vector<std::uint8_t> pointFormats;  ///< those that occur, ascending
  std::vector<std::string> notes;          ///< one line for each thing in which the files differ
};

/// One file from several; the newest version 1.x of all. Records that several files share are kept
/// once. Requires: at least one file.
/// Errors: files that must not go together: other coordinate systems, another meaning of GPS times,
/// other waveform descriptors under the same number.
MemCore::Outcome<MergedSource> mergeSources(std::span<const SourceFile> files);

}  // namespace Formats
