// SPDX-License-Identifier: Apache-2.0
//
// Opening the objects of a file by name. Only hard links are followed: a soft or external link in
// a file from somewhere could lead to any other file of the machine, and no file of ours has one.
// Everything here requires Hdf5Lock to be held.

#pragma once

#include <string>
#include <vector>

#include "datamodel/container/Hdf5Handle.hpp"

namespace Fiber::Container {

/// The names of the hard links in a group, in ascending order.
MemCore::Outcome<std::vector<std::string>> childNames(hid_t group);

/// A group or dataset directly within a group. Errors: "<name>: ..." when it is missing, of another
/// kind, or behind a link that is not a hard one.
MemCore::Outcome<GroupHandle> openGroup(hid_t parent, const std::string& name);
MemCore::Outcome<DatasetHandle> openDataset(hid_t parent, const std::string& name);

/// As openGroupPath, but empty when a group on the way does not exist.
MemCore::Outcome<GroupHandle> findGroupPath(hid_t parent, const std::string& path);

/// A group by a path of names with '/' between them, from `parent` on.
MemCore::Outcome<GroupHandle> openGroupPath(hid_t parent, const std::string& path);

}  // namespace Fiber::Container
