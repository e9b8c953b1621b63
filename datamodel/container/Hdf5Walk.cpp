// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/Hdf5Walk.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Outcome<void> requireHardLink(hid_t parent, const std::string& name) {
  H5L_info_t info{};
  if (auto found = checkHdf5(H5Lget_info(parent, name.c_str(), &info, H5P_DEFAULT),
                             fmt::format("{}: missing", name));
      !found.ok()) {
    return found;
  }
  if (info.type != H5L_TYPE_HARD) {
    return Failure{fmt::format("{}: a soft or external link, expected the object itself", name)};
  }
  return {};
}

}  // namespace

Outcome<std::vector<std::string>> childNames(hid_t group) {
  std::vector<std::string> names;
  const auto collect = [](hid_t, const char* name, const H5L_info_t* info, void* data) -> herr_t {
    if (info->type == H5L_TYPE_HARD) {
      static_cast<std::vector<std::string>*>(data)->emplace_back(name);
    }
    return 0;
  };
  // In the order of storage: for any other the library first makes a table, and frees half of it
  // uninitialised when it meets damage.
  const herr_t walked = H5Literate(group, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collect, &names);
  if (auto done = checkHdf5(walked, "group: cannot be listed"); !done.ok()) return done.failure();
  std::sort(names.begin(), names.end());
  return names;
}

Outcome<GroupHandle> openGroup(hid_t parent, const std::string& name) {
  if (auto linked = requireHardLink(parent, name); !linked.ok()) return linked.failure();
  return ownHdf5<GroupHandle>(H5Gopen2(parent, name.c_str(), H5P_DEFAULT),
                              fmt::format("{}: not a group", name));
}

Outcome<DatasetHandle> openDataset(hid_t parent, const std::string& name) {
  if (auto linked = requireHardLink(parent, name); !linked.ok()) return linked.failure();
  return ownHdf5<DatasetHandle>(H5Dopen2(parent, name.c_str(), H5P_DEFAULT),
                                fmt::format("{}: not a dataset", name));
}

Outcome<GroupHandle> openGroupPath(hid_t parent, const std::string& path) {
  auto group = findGroupPath(parent, path);
  if (!group.ok() || group->ok()) return group;
  return Failure{fmt::format("{}: missing", path)};
}

Outcome<GroupHandle> findGroupPath(hid_t parent, const std::string& path) {
  auto group = ownHdf5<GroupHandle>(H5Gopen2(parent, ".", H5P_DEFAULT), "group");
  std::size_t start = 0;
  while (group.ok() && group->ok() && start < path.size()) {
    const std::size_t slash = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, slash - start);
    start = slash + 1;
    if (name.empty() || name == ".") continue;
    if (H5Lexists(group->get(), name.c_str(), H5P_DEFAULT) == 0) return GroupHandle();
    group = openGroup(group->get(), name);
  }
  return group;
}

}  // namespace Fiber::Container
