// SPDX-License-Identifier: Apache-2.0
//
// The plan of one representation: every creator of its fields is asked once what it knows, many
// fragments at a time by all threads, because a linked bundle may have millions of creators. What
// is only linked is noted in a few bytes and its creator let go.

#pragma once

#include <string>

#include "datamodel/container/BundlePlan.hpp"

namespace Fiber::Container {

/// Plans one representation of a bundle that is to be saved as `file`; its chart and group are the
/// caller's to settle. Errors: "field <f>, fragment <n>: ...", as planBundle has them.
MemCore::Outcome<PlannedRepresentation> planRepresentation(const Representation& representation,
                                                           const std::string& file,
                                                           bool linkFragments);

}  // namespace Fiber::Container
