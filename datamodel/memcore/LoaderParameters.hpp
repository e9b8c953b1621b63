// SPDX-License-Identifier: Apache-2.0
//
// LoaderParameters: what to load into a bundle, and how.

#pragma once

#include <string>
#include <vector>

namespace MemCore {

struct LoaderParameters {
  std::vector<std::string> files;  ///< bundle files, in order
  bool eager = false;              ///< read the point data at once instead of on demand
};

}  // namespace MemCore
