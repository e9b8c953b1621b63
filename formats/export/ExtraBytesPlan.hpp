// SPDX-License-Identifier: Apache-2.0
//
// ExtraBytesPlan: which fields of a grid stand behind the standard part of a point record, where,
// and how they are described. Fields that came from extra bytes keep their descriptors and order;
// as long as nothing was added or lost, so does every byte. Others are described by their names,
// types and properties.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/export/ExportSource.hpp"

namespace Formats {

/// A field's place in the extra bytes.
struct ExtraBytesPlace {
  std::size_t field = 0;         ///< in ExportSource::fields
  std::size_t component = 0;     ///< of the field
  std::uint16_t byteOffset = 0;  ///< from the first extra byte
};

struct ExtraBytesPlan {
  bool isVerbatim = false;                        ///< the first file's record holds as it stands
  std::vector<ExtraBytesDescriptor> descriptors;  ///< the new ones, where it does not
  std::uint16_t byteCount = 0;
  std::vector<ExtraBytesPlace> places;
  std::vector<std::string> notes;
};

/// Plans the extra bytes for the fields whose numbers are given. Errors: more bytes than a record
/// can have.
MemCore::Outcome<ExtraBytesPlan> planExtraBytes(const ExportSource& source,
                                                std::span<const std::size_t> fields);

}  // namespace Formats
