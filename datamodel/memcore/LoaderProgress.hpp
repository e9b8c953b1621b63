// SPDX-License-Identifier: Apache-2.0
//
// LoaderProgress: how a long step reports its progress to the host and learns that the user wants
// to stop.

#pragma once

#include <cstdint>
#include <string>

#include "datamodel/memcore/Export.hpp"

namespace MemCore {

/// Derived by the host. Threads: report may be called from several threads at once.
class FIBER_API LoaderProgress {
 public:
  virtual ~LoaderProgress() = default;
  /// Says that `current` of `total` items of the step named `text` are done; false means that the
  /// user has asked to stop.
  virtual bool report(const std::string& text, std::uint64_t current, std::uint64_t total) = 0;
};

}  // namespace MemCore
