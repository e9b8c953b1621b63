// SPDX-License-Identifier: Apache-2.0
//
// ValueParsing: the values of the command line's flags, from text. Every text is read whole and in
// the same way in every locale. Errors: "found ..., expected ..."; the caller adds the flag's name.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Host {

/// A finite number.
MemCore::Outcome<double> parseNumber(const std::string& text);

/// A whole number from `least` to `most`; thousands may be grouped by "_" or "'", and a trailing
/// k, M or G multiplies by a thousand, a million, a thousand million.
MemCore::Outcome<std::uint64_t> parseCount(const std::string& text, std::uint64_t least,
                                           std::uint64_t most);

/// A number of bytes: "8G", "512M", "1.5GiB", "4096". Units are powers of 1024. At least one byte.
MemCore::Outcome<std::uint64_t> parseByteSize(const std::string& text);

/// "X,Y,Z": three finite numbers, negative ones too.
MemCore::Outcome<Eagle::PhysicalSpace::point> parsePoint(const std::string& text);

/// "X[,Y[,Z]]": edge lengths, none negative. One value sets x and y; a missing z is 0. X and y are
/// both above 0, or both 0.
MemCore::Outcome<Eagle::FixedArray<double, 3>> parseFragmentLength(const std::string& text);

/// "S" or "X,Y,Z": steps of coordinates, all finite and above 0; one value is for all axes.
MemCore::Outcome<Eagle::PhysicalSpace::point> parseScale(const std::string& text);

/// "x,y,z,NAME,-,...": names of columns, x, y and z among them once each; "-" leaves a column out.
MemCore::Outcome<std::vector<std::string>> parseColumnNames(const std::string& text);

/// A finite overlap of at least 0.
MemCore::Outcome<double> parseOverlap(const std::string& text);

}  // namespace Host
