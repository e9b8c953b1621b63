// SPDX-License-Identifier: Apache-2.0
//
// NamelessFile: a file without a name, for what is needed only while the program runs: gone with
// its last descriptor, however the process ends.

#pragma once

#include <string>

namespace Formats {

/// A descriptor for reading and writing, which the caller owns. On file systems that have no
/// nameless files, one is made and unlinked at once. Errors: -1, with errno set.
int openNamelessFile(const std::string& folder);

}  // namespace Formats
