// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "tests/support/TempDir.hpp"

namespace LidarLib::TestSupport {

/// Cuts the nameless files that the process has open in a folder to nothing, as a failing disk
/// might; how many there were.
int cutNamelessFiles(const TempDir& folder);

}  // namespace LidarLib::TestSupport
