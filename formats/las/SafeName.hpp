// SPDX-License-Identifier: Apache-2.0
//
// SafeName: names found in files as names of fields. Files may call their columns anything.

#pragma once

#include <string>
#include <string_view>

namespace Formats {

/// A name that can stand in a path of the data model and in any text: '/', '\', control characters
/// and bytes that are no UTF-8 become '_', as does a leading dot; an empty one is "Unnamed".
std::string safeName(std::string_view stored);

}  // namespace Formats
