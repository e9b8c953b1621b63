// SPDX-License-Identifier: Apache-2.0
//
// Numbers as text the way every report and file name of the system spells them, independent of the
// process's locale: a decimal comma in a tile's file name would make it another file.

#pragma once

#include <string>

#include "datamodel/memcore/Export.hpp"

namespace MemCore {

/// Six decimals, as printf's "%f" gives them in the C locale.
FIBER_API std::string formatFixed(double value);

}  // namespace MemCore
