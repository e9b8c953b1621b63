// SPDX-License-Identifier: Apache-2.0
//
// One short look into a bundle file: everything that it says but the points, read in one go and
// judged before anybody relies on it. No point data are touched, whatever their size.

#pragma once

#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/ObjectFile.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Reads the description of a bundle file. Errors: "<path>: ..." when the file is missing, no
/// regular file, no bundle, of a newer format, damaged, or says things that cannot be true.
/// Threads: any.
MemCore::Outcome<StoredBundle> scanBundle(const std::string& path);
/// The same of a file that is open already.
MemCore::Outcome<StoredBundle> scanBundle(const std::string& path, const ObjectFile& file);

/// An open file that proved to be a bundle.
struct OpenedBundle {
  ObjectFile file;
  FileIdentity identity;
};

/// Opens a bundle file for reading and checks format and version. Errors: as scanBundle.
MemCore::Outcome<OpenedBundle> openBundle(const std::string& path);

}  // namespace Fiber::Container
