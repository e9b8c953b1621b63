// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Text.hpp"

#include <fmt/format.h>

namespace MemCore {

std::string formatFixed(double value) { return fmt::format("{:f}", value); }

}  // namespace MemCore
