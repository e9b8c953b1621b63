// SPDX-License-Identifier: Apache-2.0
//
// OutputFile: the single file that a sub-command writes: where it goes, and whether it may.

#pragma once

#include <string>
#include <vector>

#include "host/Result.hpp"

namespace Host {

/// The absolute path for an output file; makes the folder above it and removes what dead runs left
/// there. Errors: usage, for a name that has none of the `endings`; failed, for a file that exists
/// (unless forced), a folder of that name, or a folder that cannot be made.
Result<std::string> prepareOutputFile(const std::string& output,
                                      const std::vector<std::string>& endings, bool force);

}  // namespace Host
