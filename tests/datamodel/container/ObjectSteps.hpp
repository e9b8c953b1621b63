// SPDX-License-Identifier: Apache-2.0
//
// Files of objects written and opened again, for tests.

#pragma once

#include <functional>
#include <string>

#include "datamodel/container/ObjectFile.hpp"
#include "datamodel/container/OutputFile.hpp"

namespace Fiber::Container {

/// Writes a file at a path; `fill` adds to it. A failure fails the test.
void writeObjects(const std::string& path, const std::function<void(OutputFile&)>& fill);

/// Opens it with our own decoder, or with the library. A failure fails the test.
ObjectFile openObjects(const std::string& path, bool byLibrary);

/// "" when two trees say the same; else where they differ. How chunks are listed is left out.
std::string differenceOf(const ObjectGroup& a, const ObjectGroup& b);

}  // namespace Fiber::Container
