// SPDX-License-Identifier: Apache-2.0
//
// StorageTransformations: how a bundle's data are stored in files.

#pragma once

#include "datamodel/memcore/Intercube.hpp"

namespace Fiber {

/// How point data are encoded. Every kind gives back the identical values.
enum class StorageKind {
  Grid,     ///< coordinates as scaled integers where that is exact, columns, deflate
  Deflate,  ///< doubles, deflate
  Raw,      ///< doubles, contiguous, with a checksum
};

class FIBER_API StorageTransformations : public MemCore::InterfaceBase {
 public:
  StorageKind kind = StorageKind::Grid;
  /// Wait until the data are on the disk before a file gets its name.
  bool durable = true;
  /// Write fragments that live in other bundle files as links (relative to the folder of the file
  /// that names them, so that a folder can be moved as a whole); false copies their data.
  bool linkFragments = true;

  /// What an empty handle means. The host sets it before a run; readers take a copy.
  static StorageTransformations defaults();
  static void setDefaults(const StorageTransformations& transformations);
};

}  // namespace Fiber
