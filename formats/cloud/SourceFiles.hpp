// SPDX-License-Identifier: Apache-2.0
//
// SourceFiles: what a faithful way back to LAS needs beyond the points, kept in a grid's attribute
// table: the header values and the variable records of every source file. A grid's table is copied
// into each of its tiles, so it is packed into four attributes however many files there are, and
// equal headers and equal records of different files are kept once:
//   "LasFileNames"  text, one name per line, without folders
//   "LasFiles"      uint32, per file: number of its header, count of its VLRs, their numbers, count
//                   of its EVLRs, their numbers
//   "LasHeaders"    uint8, public header blocks one behind the other (each tells its own length);
//                   counts, bounds and byte offsets, which every writer computes, are zero
//   "LasRecords"    uint8, records one behind the other, verbatim, with the header of an EVLR
// Left out, because they describe how the source stores its points: the LASzip record, the records
// of a COPC index, and the waveform packets (whose samples are fields).
// Source: ASPRS LAS Specification 1.4 - R15, sections 2.4 (header) and 2.7 (EVLR).

#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Attributes.hpp"
#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/LasFile.hpp"

namespace Formats {

/// A record above this size is left out, with a note: every tile would carry a copy of it.
inline constexpr std::uint64_t kMaxKeptRecordBytes = std::uint64_t{1} << 20;

/// What is kept of one source file.
struct SourceFile {
  std::string name;
  LasHeader header;
  std::vector<VariableRecord> vlrs;
  std::vector<VariableRecord> evlrs;
};

/// Keeps headers and records of the files; returns one line for each record that is too large.
std::vector<std::string> keepSourceFiles(MemCore::Attributes& attributes,
                                         std::span<const std::shared_ptr<LasFile>> files);

/// Reads back what keepSourceFiles kept, in the order of the files; none when the attributes are
/// absent. Errors: attributes that contradict each other or are cut off.
MemCore::Outcome<std::vector<SourceFile>> sourceFilesOf(const MemCore::Attributes& attributes);

}  // namespace Formats
