// SPDX-License-Identifier: Apache-2.0
//
// LazPoints: the compressed records of a LAZ file behind the PointReader interface, in both ways in
// which they occur: chunks with a table at the end (each decoded for itself, by any thread), and
// the single stream of the first LASzip scheme (decoded in order behind a lock). Source: "LASzip:
// lossless compression of lidar data", M. Isenburg, 2013.

#pragma once

#include <memory>
#include <span>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"
#include "formats/las/LasHeader.hpp"
#include "formats/las/PointReader.hpp"

namespace Formats {

/// Opens the records of a compressed file by the payload of its LASzip record. Errors: a record
/// that does not fit the header, a chunk table that is missing or does not fit the file.
MemCore::Outcome<std::unique_ptr<PointReader>> openLazPoints(
    const std::shared_ptr<const InputFile>& file, const LasHeader& header,
    std::span<const std::byte> laszipRecord);

}  // namespace Formats
