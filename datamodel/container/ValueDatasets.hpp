// SPDX-License-Identifier: Apache-2.0
//
// Values too large for attributes, as datasets of their own: in one piece, with a CRC-32 beside
// it. The container library would keep a large attribute where none of its checksums reaches, and
// trip over what damage made of it. Everything here requires Hdf5Lock to be held.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"
#include "datamodel/memcore/Chunk.hpp"

namespace Fiber::Container {

/// Writes one value as a dataset of a group. Errors: "<name>: ...".
MemCore::Outcome<void> writeValueDataset(hid_t group, const std::string& name,
                                         const MemCore::ChunkBase& value);
MemCore::Outcome<void> writeTextsDataset(hid_t group, const std::string& name,
                                         const std::vector<std::string>& texts);

/// Reads it back. Errors: "<name>: ..." when it is missing, of a form that bundle files do not
/// use, claims more than `fileBytes`, or its checksum differs.
MemCore::Outcome<MemCore::StrongPtr<MemCore::ChunkBase>> readValueDataset(hid_t group,
                                                                          const std::string& name,
                                                                          std::uint64_t fileBytes);
MemCore::Outcome<std::vector<std::string>> readTextsDataset(hid_t group, const std::string& name,
                                                            std::uint64_t fileBytes);

}  // namespace Fiber::Container
