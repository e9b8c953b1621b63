// SPDX-License-Identifier: Apache-2.0
//
// Types and extents as HDF5's datatype and dataspace messages.

#pragma once

#include "datamodel/container/objects/ByteCursor.hpp"
#include "datamodel/container/objects/ByteSink.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// Requires: the type is not foreign.
void encodeType(ByteSink& sink, const ObjectType& type);
/// The next type; foreign for everything that encodeType does not write.
ObjectType decodeType(ByteCursor& cursor);

/// Requires: the rank is at most kMostRank.
void encodeExtents(ByteSink& sink, const ObjectExtents& extents);
/// The next extents; only their rank, where they are foreign.
ObjectExtents decodeExtents(ByteCursor& cursor);

}  // namespace Fiber::Container
