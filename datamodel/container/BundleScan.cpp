// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundleScan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/FieldScan.hpp"
#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/FragmentTableStorage.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/Hdf5Walk.hpp"
#include "datamodel/container/StoredName.hpp"
#include "datamodel/container/TableCheck.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

Failure within(std::string_view object, const std::string& text) {
  return Failure{fmt::format("{}: {}", object, text)};
}

/// Walks one file; every group is entered once, so that a file whose groups contain each other
/// cannot keep it busy.
class BundleWalk {
 public:
  explicit BundleWalk(std::uint64_t fileBytes) : fileBytes_(fileBytes) {}

  Outcome<std::vector<StoredSlice>> slices(hid_t root) {
    return children<StoredSlice>(root,
                                 [this](hid_t group, const std::string&) { return slice(group); });
  }

 private:
  Outcome<StoredSlice> slice(hid_t group) {
    const auto time = readNumber<double>(group, kTimeAttribute);
    if (!time.ok()) return time.failure();
    if (*time != *time) return Failure{"time: not a number"};
    StoredSlice slice;
    slice.time = *time;
    auto grids = children<StoredGrid>(
        group, [this](hid_t child, const std::string& name) { return grid(child, name); });
    if (!grids.ok()) return grids.failure();
    slice.grids = std::move(grids).value();
    return slice;
  }

  Outcome<StoredGrid> grid(hid_t group, const std::string& name) {
    StoredGrid grid;
    grid.name = originalName(name);
    auto table = readAttributes({group, group, kLargeAttributes, kGridWords}, fileBytes_);
    if (!table.ok()) return table.failure();
    grid.attributes = std::move(table->attributes);
    if (const auto bits = readPropertyBits(group); bits.ok()) {
      grid.propertyBits = *bits;
    } else {
      return bits.failure();
    }
    auto skeletons = children<StoredSkeleton>(
        group, [this](hid_t child, const std::string&) { return skeleton(child); });
    if (!skeletons.ok()) return skeletons.failure();
    grid.skeletons = std::move(skeletons).value();
    return grid;
  }

  Outcome<StoredSkeleton> skeleton(hid_t group) {
    const auto dimension = readNumber<std::int32_t>(group, kDimensionAttribute);
    const auto refinement = readNumber<std::int32_t>(group, kRefinementAttribute);
    if (!dimension.ok()) return dimension.failure();
    if (!refinement.ok()) return refinement.failure();
    StoredSkeleton skeleton;
    skeleton.dimension = *dimension;
    skeleton.refinement = *refinement;
    auto representations = children<StoredRepresentation>(
        group,
        [this](hid_t child, const std::string& name) { return representation(child, name); });
    if (!representations.ok()) return representations.failure();
    skeleton.representations = std::move(representations).value();
    return skeleton;
  }

  Outcome<StoredRepresentation> representation(hid_t group, const std::string& name) {
    StoredRepresentation stored;
    stored.chart = originalName(name);
    stored.group = groupPath(group);
    const auto names = childNames(group);
    if (!names.ok()) return names.failure();
    std::size_t wideFields = 0;
    for (const std::string& child : *names) {
      if (isWord(child)) continue;
      auto field = scanField(group, child, fileBytes_);
      if (!field.ok()) return within(child, field.error());
      wideFields += field->rank > 1 ? 1 : 0;
      stored.fields.push_back(std::move(field).value());
    }
    auto contents = readFragmentTable(group, wideFields, fileBytes_);
    if (!contents.ok()) return contents.failure();
    if (auto fits = requireFields(stored, contents->fieldNames); !fits.ok()) return fits.failure();
    stored.table = std::move(contents->table);
    stored.sourceGroups = std::move(contents->sourceGroups);
    if (auto valid = checkTable(stored); !valid.ok()) return valid.failure();
    return stored;
  }

  /// The columns of the table go by the fields in ascending order of stored name.
  static Outcome<void> requireFields(const StoredRepresentation& stored,
                                     const std::vector<std::string>& names) {
    bool same = stored.fields.size() == names.size();
    for (std::size_t f = 0; same && f < names.size(); ++f) {
      same = stored.fields[f].name == originalName(names[f]);
    }
    if (same) return {};
    return Failure{
        fmt::format("fragments: its fields are not those of the group, found {}, "
                    "expected {}",
                    names.size(), stored.fields.size())};
  }

  static std::string groupPath(hid_t group) {
    const ssize_t length = H5Iget_name(group, nullptr, 0);
    std::string path(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) H5Iget_name(group, path.data(), path.size() + 1);
    return path;
  }

  /// Reads every child of a group with `read`, whose texts get the child's name in front.
  template <class Item, class Read>
  Outcome<std::vector<Item>> children(hid_t parent, Read read) {
    const auto names = childNames(parent);
    if (!names.ok()) return names.failure();
    std::vector<Item> items;
    for (const std::string& name : *names) {
      if (isWord(name)) continue;
      const auto group = openGroup(parent, name);
      if (!group.ok()) return group.failure();
      if (!enter(group->get())) return within(name, "a group that was reached twice");
      auto item = read(group->get(), name);
      if (!item.ok()) return within(name, item.error());
      items.push_back(std::move(item).value());
    }
    return items;
  }

  /// Members that are none of the model's. Names of the model never have these stored forms.
  static bool isWord(const std::string& name) {
    const auto& words = kRepresentationWords;
    return std::find(words.begin(), words.end(), name) != words.end();
  }

  bool enter(hid_t group) {
    H5O_info_t info{};
    return H5Oget_info2(group, &info, H5O_INFO_BASIC) >= 0 && entered_.insert(info.addr).second;
  }

  std::uint64_t fileBytes_;
  std::set<haddr_t> entered_;
};

Outcome<void> requireFormat(hid_t root, std::uint64_t fileBytes) {
  const auto format = readText(root, kFormatAttribute, fileBytes);
  if (!format.ok() || *format != kFormatName) {
    return Failure{fmt::format("not a bundle file, found format \"{}\", expected \"{}\"",
                               format.ok() ? *format : std::string(), kFormatName)};
  }
  const auto version = readNumber<std::uint32_t>(root, kVersionAttribute);
  if (!version.ok()) return version.failure();
  if (*version != kFormatVersion) {
    return Failure{fmt::format("format version is not known, found {}, expected {}", *version,
                               kFormatVersion)};
  }
  return {};
}

/// A block in front of the file would shift all addresses in it.
Outcome<void> requireNoUserBlock(hid_t file) {
  const PropertyHandle creation(H5Fget_create_plist(file));
  hsize_t bytes = 0;
  if (H5Pget_userblock(creation.get(), &bytes) < 0 || bytes != 0) {
    return Failure{fmt::format("a foreign block precedes the data, found {} bytes", bytes)};
  }
  return {};
}

}  // namespace

Outcome<OpenedBundle> openBundle(const std::string& path) {
  const auto stamp = stampOf(path);
  if (!stamp.ok()) return stamp.failure();
  const Hdf5Lock lock;
  const PropertyHandle access = fileAccess(FileFormat::kCompressed);
  auto file = ownHdf5<FileHandle>(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access.get()),
                                  fmt::format("{}: cannot be opened as a bundle file", path));
  if (!file.ok()) return file.failure();
  OpenedBundle opened;
  opened.file = std::move(file).value();
  opened.identity.path = path;
  opened.identity.sizeBytes = stamp->sizeBytes;
  const hid_t root = opened.file.get();
  if (auto plain = requireNoUserBlock(root); !plain.ok()) return within(path, plain.error());
  if (auto ours = requireFormat(root, stamp->sizeBytes); !ours.ok()) {
    return within(path, ours.error());
  }
  const auto id = readNumber<std::uint64_t>(root, kContentIdAttribute);
  if (!id.ok()) return within(path, id.error());
  opened.identity.contentId = *id;
  return opened;
}

Outcome<StoredBundle> scanBundle(const std::string& path) {
  const Hdf5Lock lock;
  const auto opened = openBundle(path);
  if (!opened.ok()) return opened.failure();
  StoredBundle bundle;
  bundle.file = opened->identity;
  auto slices = BundleWalk(bundle.file.sizeBytes).slices(opened->file.get());
  if (!slices.ok()) return within(path, slices.error());
  bundle.slices = std::move(slices).value();
  return bundle;
}

}  // namespace Fiber::Container
