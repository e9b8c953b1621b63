// SPDX-License-Identifier: Apache-2.0
//
// Names of the data model as names within a bundle file. Any text can be the name of a grid, a
// field or an attribute; the file reserves '/' for paths, '#' for numbered attributes and some
// words for itself. Such bytes are written as '%' and two hexadecimal digits, '%' itself too, so
// that every name has one stored form and returns exactly; ordinary names are stored as they are.

#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Fiber::Container {

/// The stored form of a name. A name among `reserved` words gets its first byte escaped; the empty
/// name becomes "%".
std::string storedName(std::string_view name, std::span<const std::string_view> reserved = {});

/// The inverse of storedName. A '%' without two hexadecimal digits behind it stands for itself.
std::string originalName(std::string_view stored);

/// The shortest text that reads back as exactly this time, for group names: "0", "2.5", "1e+300".
std::string timeText(double time);

}  // namespace Fiber::Container
